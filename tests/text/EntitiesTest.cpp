// Tests of entity replacement in element text: the five named entities, numeric
// references in decimal and hexadecimal, their UTF-8 forms and the refusals.
#include "text/Entities.h"

#include <gtest/gtest.h>

#include <string>

using KVX::Internal::entity;
using KVX::Internal::unescape;

TEST(Entities, NamedEntitiesGiveTheirCharacters) {
    EXPECT_EQ("<", entity("lt"));
    EXPECT_EQ(">", entity("gt"));
    EXPECT_EQ("&", entity("amp"));
    EXPECT_EQ("'", entity("apos"));
    EXPECT_EQ("\"", entity("quot"));
}

TEST(Entities, NamedEntitiesAreCaseSensitive) {
    EXPECT_EQ("", entity("Lt"));
    EXPECT_EQ("", entity("AMP"));
    EXPECT_EQ("", entity("Quot"));
    EXPECT_EQ("", entity("nbsp"));
    EXPECT_EQ("", entity(""));
}

TEST(Entities, DecimalReference) {
    EXPECT_EQ("A", entity("#65"));
}

TEST(Entities, LowerCaseXIsHexadecimal) {
    EXPECT_EQ("A", entity("#x41"));
    EXPECT_EQ("J", entity("#x4a"));
    EXPECT_EQ("J", entity("#x4A"));
}

TEST(Entities, UpperCaseXIsNotHexadecimal) {
    EXPECT_EQ("", entity("#X41"));
}

TEST(Entities, CharactersBehindTheNumberAreIgnored) {
    EXPECT_EQ("A", entity("#65abc"));
    EXPECT_EQ("A", entity("#x41zz"));
}

TEST(Entities, NoNumberGivesNothing) {
    EXPECT_EQ("", entity("#"));
    EXPECT_EQ("", entity("#x"));
    EXPECT_EQ("", entity("#abc"));
    EXPECT_EQ("", entity("#xzz"));
}

TEST(Entities, Utf8OneToFourBytes) {
    EXPECT_EQ("\x7F", entity("#127"));
    EXPECT_EQ("\xC2\x80", entity("#128"));
    EXPECT_EQ("\xDF\xBF", entity("#2047"));
    EXPECT_EQ("\xE0\xA0\x80", entity("#2048"));
    EXPECT_EQ("\xEF\xBF\xBF", entity("#65535"));
    EXPECT_EQ("\xF0\x90\x80\x80", entity("#65536"));
    EXPECT_EQ("\xF4\x8F\xBF\xBF", entity("#1114111"));
    EXPECT_EQ("\xE2\x82\xAC", entity("#x20AC"));
}

TEST(Entities, PastLastCodePointGivesNothing) {
    EXPECT_EQ("", entity("#1114112"));
    EXPECT_EQ("", entity("#x110000"));
}

TEST(Entities, SurrogateIsEncodedInThreeBytes) {
    EXPECT_EQ("\xED\xA0\x80", entity("#xD800"));
    EXPECT_EQ("\xED\xBF\xBF", entity("#57343"));
}

TEST(Entities, ZeroGivesOneNulByte) {
    std::string nul = entity("#0");
    ASSERT_EQ(1u, nul.size());
    EXPECT_EQ('\0', nul[0]);
    EXPECT_EQ(std::string(1, '\0'), entity("#x0"));
}

TEST(Entities, NumbersCompareAsSigned32Bit) {
    // 2^32 + 65 keeps its low 32 bits; "-1" read by %lu is all ones, which as a
    // signed number is below 128 and gives its low byte.
    EXPECT_EQ("A", entity("#4294967361"));
    EXPECT_EQ("\xFF", entity("#-1"));
    // 2^31 is negative as a signed 32-bit number.
    EXPECT_EQ(std::string(1, '\0'), entity("#x80000000"));
}

TEST(Unescape, TextWithoutAmpersandIsUnchanged) {
    std::string text = "a < b > c ; d";
    EXPECT_EQ(0, unescape(text));
    EXPECT_EQ("a < b > c ; d", text);
}

TEST(Unescape, ReplacesEveryEntity) {
    std::string text = "a&lt;b&gt;c&amp;d&apos;e&quot;f";
    EXPECT_EQ(0, unescape(text));
    EXPECT_EQ("a<b>c&d'e\"f", text);
}

TEST(Unescape, NumericReferencesInText) {
    std::string text = "x&#65;y&#x42;z&#67abc;";
    EXPECT_EQ(0, unescape(text));
    EXPECT_EQ("xAyBzC", text);
}

TEST(Unescape, ReplacesOneLevelOnly) {
    std::string text = "&amp;lt;";
    EXPECT_EQ(0, unescape(text));
    EXPECT_EQ("&lt;", text);
}

TEST(Unescape, AmpersandWithoutSemicolonFailsAndLeavesText) {
    std::string text = "a&lt;b&c";
    EXPECT_EQ(-1, unescape(text));
    EXPECT_EQ("a&lt;b&c", text);
}

TEST(Unescape, UnknownEntityFails) {
    std::string text = "x&Lt;y";
    EXPECT_EQ(-1, unescape(text));
    EXPECT_EQ("x&Lt;y", text);
}

TEST(Unescape, EmptyEntityNameFails) {
    std::string text = "&;";
    EXPECT_EQ(-1, unescape(text));
}

TEST(Unescape, SemicolonIsTheNextOneBehindTheAmpersand) {
    // The name runs to the first ';', blanks and all.
    std::string text = "&l t;";
    EXPECT_EQ(-1, unescape(text));
    std::string kept = "&lt;;";
    EXPECT_EQ(0, unescape(kept));
    EXPECT_EQ("<;", kept);
}

TEST(Unescape, NulReferenceStaysInTheText) {
    std::string text = "a&#0;b";
    EXPECT_EQ(0, unescape(text));
    EXPECT_EQ(std::string("a\0b", 3), text);
}
