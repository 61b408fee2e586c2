// Tests of KVXSessionID: creation, the field readers with their left/right asymmetry, and the
// case-insensitive comparison.
#include <kvx/KVXSessionID.h>

#include <gtest/gtest.h>

#include <string>

using KVX::KVXSessionID;

namespace {

const char Untouched[] = "untouched";

bool isLowerHex(std::string const &text) {
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

} // namespace

TEST(KVXSessionID, DefaultConstructedIsEmpty) {
    KVXSessionID id;
    EXPECT_TRUE(id.empty());
    EXPECT_EQ(std::string(), static_cast<std::string const &>(id));
}

TEST(KVXSessionID, TextConstructorTakesTextUnchecked) {
    KVXSessionID id(std::string("no dots at all"));
    EXPECT_EQ("no dots at all", static_cast<std::string const &>(id));
}

TEST(KVXSessionID, CopyAndAssignmentCopyTheValue) {
    KVXSessionID a(std::string("kvx.40500.7.a.b.c"));
    KVXSessionID b(a);
    EXPECT_EQ("kvx.40500.7.a.b.c", static_cast<std::string const &>(b));
    KVXSessionID c(std::string("other"));
    c = a;
    EXPECT_EQ("kvx.40500.7.a.b.c", static_cast<std::string const &>(c));
}

TEST(KVXSessionID, EmptyIdentifierReadsVersionAndTypeZero) {
    KVXSessionID id;
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
}

TEST(KVXSessionID, VersionWithoutClosingDotReadsZero) {
    KVXSessionID id(std::string("kvx.40500"));
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
}

TEST(KVXSessionID, VersionClosedBySecondDotIsRead) {
    KVXSessionID id(std::string("kvx.40500.7"));
    EXPECT_EQ(40500, id.getVersion());
}

TEST(KVXSessionID, TypeWithoutClosingDotReadsZero) {
    KVXSessionID id(std::string("kvx.40500.7"));
    EXPECT_EQ(0, id.getType());
}

TEST(KVXSessionID, TypeClosedByThirdDotIsRead) {
    KVXSessionID id(std::string("kvx.40500.7."));
    EXPECT_EQ(40500, id.getVersion());
    EXPECT_EQ(7, id.getType());
}

TEST(KVXSessionID, NoDotReadsVersionAndTypeZero) {
    KVXSessionID id(std::string("kvx"));
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
}

TEST(KVXSessionID, NonNumericVersionReadsZero) {
    KVXSessionID id(std::string("kvx.abc.xyz.a.b.u"));
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
}

TEST(KVXSessionID, NumberReadingStopsAtFirstNonDigit) {
    KVXSessionID id(std::string("kvx.12ab.3x.a.b.u"));
    EXPECT_EQ(12, id.getVersion());
    EXPECT_EQ(3, id.getType());
}

TEST(KVXSessionID, EmptyNumberFieldsReadZero) {
    KVXSessionID id(std::string("kvx...a.b.u"));
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
    EXPECT_EQ("a", id.getEID());
}

TEST(KVXSessionID, ReadersIgnoreThePrefix) {
    KVXSessionID id(std::string("other.40500.7.a.b.u"));
    EXPECT_EQ(40500, id.getVersion());
    EXPECT_EQ(7, id.getType());
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("b", id.getTargetEID());
}

TEST(KVXSessionID, LeadingDotStartsTheVersionField) {
    KVXSessionID id(std::string(".40500.7.a.b.u"));
    EXPECT_EQ(40500, id.getVersion());
    EXPECT_EQ(7, id.getType());
    EXPECT_EQ("a", id.getEID());
}

TEST(KVXSessionID, EidWithoutFourthDotLeavesOutAsItWas) {
    KVXSessionID id(std::string("kvx.40500.7.a"));
    std::string out(Untouched);
    id.getEID(out);
    EXPECT_EQ(Untouched, out);
    EXPECT_EQ("", id.getEID());
}

TEST(KVXSessionID, EidOfEmptyIdentifierLeavesOutAsItWas) {
    KVXSessionID id;
    std::string out(Untouched);
    id.getEID(out);
    EXPECT_EQ(Untouched, out);
}

TEST(KVXSessionID, EidIsThirdFieldFromTheLeft) {
    KVXSessionID id(std::string("kvx.40500.7.a."));
    std::string out(Untouched);
    id.getEID(out);
    EXPECT_EQ("a", out);
}

TEST(KVXSessionID, EmptyEidFieldReplacesOut) {
    KVXSessionID id(std::string("kvx.40500.7..b.u"));
    std::string out(Untouched);
    id.getEID(out);
    EXPECT_EQ("", out);
}

TEST(KVXSessionID, TargetEidOfThreeFieldsIsTheMiddleOne) {
    KVXSessionID id(std::string("a.b.c"));
    std::string out(Untouched);
    id.getTargetEID(out);
    EXPECT_EQ("b", out);
    EXPECT_EQ("b", id.getTargetEID());
}

TEST(KVXSessionID, TargetEidWithoutDotLeavesOutAsItWas) {
    KVXSessionID id(std::string("kvx"));
    std::string out(Untouched);
    id.getTargetEID(out);
    EXPECT_EQ(Untouched, out);
    EXPECT_EQ("", id.getTargetEID());
}

TEST(KVXSessionID, TargetEidWithOneDotLeavesOutAsItWas) {
    KVXSessionID id(std::string("kvx.40500"));
    std::string out(Untouched);
    id.getTargetEID(out);
    EXPECT_EQ(Untouched, out);
}

TEST(KVXSessionID, TargetEidWithOnlyALeadingDotLeavesOutAsItWas) {
    KVXSessionID id(std::string(".abc"));
    std::string out(Untouched);
    id.getTargetEID(out);
    EXPECT_EQ(Untouched, out);
}

TEST(KVXSessionID, TargetEidOfTwoAdjacentDotsIsEmpty) {
    KVXSessionID id(std::string(".."));
    std::string out(Untouched);
    id.getTargetEID(out);
    EXPECT_EQ("", out);
}

TEST(KVXSessionID, DotInsideEidCutsEidShortAndKeepsTargetEid) {
    KVXSessionID id(std::string("kvx.40500.7.a.x.b.u"));
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("b", id.getTargetEID());
}

TEST(KVXSessionID, DotInsideTargetEidKeepsEidAndGivesPartBehindDot) {
    KVXSessionID id(std::string("kvx.40500.7.a.b.y.u"));
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("y", id.getTargetEID());
}

TEST(KVXSessionID, DotInsideUniqueIdMisleadsTargetEidOnly) {
    KVXSessionID id(std::string("kvx.40500.7.a.b.u.v"));
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("u", id.getTargetEID());
}

TEST(KVXSessionID, CreatedValueReadsBack) {
    KVXSessionID id;
    id.create(40500, 7, "a", "b");
    EXPECT_EQ(40500, id.getVersion());
    EXPECT_EQ(7, id.getType());
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("b", id.getTargetEID());
}

TEST(KVXSessionID, CreateWritesFieldsInOrderAndEndsWithUniqueId) {
    KVXSessionID id;
    id.create(40500, 7, "a", "b");
    const std::string head = "kvx.40500.7.a.b.";
    ASSERT_EQ(head.size() + 32, id.size());
    EXPECT_EQ(head, id.substr(0, head.size()));
    std::string unique = id.substr(head.size());
    EXPECT_EQ(std::string::npos, unique.find('.'));
    EXPECT_TRUE(isLowerHex(unique)) << unique;
}

TEST(KVXSessionID, CreateReservesRoomFor256Bytes) {
    KVXSessionID id;
    id.create(1, 2, "a", "b");
    EXPECT_GE(id.capacity(), 256u);
}

TEST(KVXSessionID, CreateReplacesThePreviousValue) {
    KVXSessionID id(std::string("old.1.2.x.y.z.more"));
    id.create(40000, 3, "e", "t");
    EXPECT_EQ("kvx.40000.3.e.t.", id.substr(0, 16));
    EXPECT_EQ(16u + 32u, id.size());
}

TEST(KVXSessionID, CreateMakesANewUniqueIdEachTime) {
    KVXSessionID a;
    KVXSessionID b;
    a.create(40500, 7, "a", "b");
    b.create(40500, 7, "a", "b");
    EXPECT_NE(static_cast<std::string const &>(a), static_cast<std::string const &>(b));
}

TEST(KVXSessionID, CreateWritesNegativeNumbersWithSign) {
    KVXSessionID id;
    id.create(-5, -1, "a", "b");
    EXPECT_EQ("kvx.-5.-1.a.b.", id.substr(0, 14));
    EXPECT_EQ(-5, id.getVersion());
    EXPECT_EQ(-1, id.getType());
}

TEST(KVXSessionID, CreateKeepsDotInsideEidUnescaped) {
    KVXSessionID id;
    id.create(40500, 7, "a.x", "b");
    EXPECT_EQ("kvx.40500.7.a.x.b.", id.substr(0, 18));
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("b", id.getTargetEID());
}

TEST(KVXSessionID, CreateKeepsDotInsideTargetEidUnescaped) {
    KVXSessionID id;
    id.create(40500, 7, "a", "b.y");
    EXPECT_EQ("kvx.40500.7.a.b.y.", id.substr(0, 18));
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("y", id.getTargetEID());
}

TEST(KVXSessionID, CreateWithEmptyEndpointsGivesEmptyFields) {
    KVXSessionID id;
    id.create(40500, 7, "", "");
    EXPECT_EQ("kvx.40500.7...", id.substr(0, 14));
    std::string eid(Untouched);
    std::string target(Untouched);
    id.getEID(eid);
    id.getTargetEID(target);
    EXPECT_EQ("", eid);
    EXPECT_EQ("", target);
}

TEST(KVXSessionID, EqualityIgnoresCase) {
    KVXSessionID upper(std::string("KVX.40500.7.A.B.C"));
    KVXSessionID lower(std::string("kvx.40500.7.a.b.c"));
    EXPECT_TRUE(upper == lower);
    EXPECT_FALSE(upper != lower);
    EXPECT_TRUE(upper == std::string("kvx.40500.7.a.b.c"));
    EXPECT_FALSE(upper != std::string("kvx.40500.7.a.b.c"));
}

TEST(KVXSessionID, DifferentValuesAreUnequal) {
    KVXSessionID a(std::string("kvx.40500.7.a.b.c"));
    KVXSessionID b(std::string("kvx.40500.7.a.b.d"));
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a == std::string("kvx.40500.7.a.b.d"));
    EXPECT_TRUE(a != std::string("kvx.40500.7.a.b.d"));
}

TEST(KVXSessionID, EqualityComparesWholeStrings) {
    KVXSessionID shorter(std::string("kvx.40500.7.a.b"));
    KVXSessionID longer(std::string("KVX.40500.7.A.B.C"));
    EXPECT_FALSE(shorter == longer);
    EXPECT_TRUE(shorter != longer);
    EXPECT_FALSE(longer == std::string("kvx.40500.7.a.b"));
    EXPECT_TRUE(longer != std::string("kvx.40500.7.a.b"));
}

TEST(KVXSessionID, EmptyIdentifiersAreEqual) {
    KVXSessionID a;
    KVXSessionID b;
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a == std::string());
    EXPECT_FALSE(a == std::string("kvx"));
}
