// Tests of the version text reading shared by the node operations and the
// packet head.
#include "message/VersionText.h"

#include <gtest/gtest.h>

#include <cstring>

using KVX::parseVersionText;

namespace {

int parse(char const *text) {
    return parseVersionText(text, std::strlen(text));
}

} // namespace

TEST(VersionText, ThreeFieldsMakeMajorMinorPatch) {
    EXPECT_EQ(parse("4.5.0"), 40500);
    EXPECT_EQ(parse("4.0.0"), 40000);
    EXPECT_EQ(parse("3.2.1"), 30201);
}

TEST(VersionText, FewerFieldsAndEmptyText) {
    EXPECT_EQ(parse("4.5"), 405);
    EXPECT_EQ(parse("4"), 4);
    EXPECT_EQ(parse(""), 0);
    EXPECT_EQ(parseVersionText(nullptr, 5), 0);
}

TEST(VersionText, EveryNonDigitFoldsTheNumber) {
    EXPECT_EQ(parse("4..5"), 40005);
    EXPECT_EQ(parse("v4.5.0"), 40500); // a leading non-digit folds a zero
    EXPECT_EQ(parse("4.5.0."), 4050000);
    EXPECT_EQ(parse("10.20.30"), 102030);
}

TEST(VersionText, ReadsNoFurtherThanLengthOrNul) {
    EXPECT_EQ(parseVersionText("4.5.0junk", 5), 40500);
    EXPECT_EQ(parseVersionText("4.5.0\0.9", 8), 40500);
}

TEST(VersionText, LongTextWrapsWithoutOverflow) {
    // 1.2.3.4.5.6 folds to 10203040506, kept modulo 2^32.
    EXPECT_EQ(parse("1.2.3.4.5.6"), static_cast<int>(static_cast<unsigned>(10203040506ull)));
}
