// Tests of the case-insensitive comparison.
#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(TextCompare, WholeStringsWhenCountIsNegative) {
    EXPECT_EQ(KVX::compareNoCase("abc", "ABC", -1), 0);
    EXPECT_EQ(KVX::compareNoCase("Session.ID", "sESSION.id", -1), 0);
    EXPECT_EQ(KVX::compareNoCase("", "", -1), 0);
    EXPECT_LT(KVX::compareNoCase("abc", "abd", -1), 0);
    EXPECT_GT(KVX::compareNoCase("abD", "ABC", -1), 0);
    EXPECT_LT(KVX::compareNoCase("abc", "ABCd", -1), 0);
    EXPECT_GT(KVX::compareNoCase("abcd", "ABC", -1), 0);
    EXPECT_LT(KVX::compareNoCase("", "a", -1), 0);
    EXPECT_EQ(KVX::compareNoCase("abc", "ABC", -100), 0);
}

TEST(TextCompare, OrdersByLowerCase) {
    // 'a' follows 'B' in ASCII but not without case.
    EXPECT_LT(KVX::compareNoCase("a", "B", -1), 0);
    EXPECT_GT(KVX::compareNoCase("B", "a", -1), 0);
    // Letters compare as lower case: '_' (0x5F) lies between 'Z' and 'a', so
    // it orders before every letter.
    EXPECT_LT(KVX::compareNoCase("_", "A", -1), 0);
    EXPECT_LT(KVX::compareNoCase("_", "Z", -1), 0);
}

TEST(TextCompare, AtMostCountCharacters) {
    EXPECT_EQ(KVX::compareNoCase("abcX", "ABCy", 3), 0);
    EXPECT_LT(KVX::compareNoCase("abcX", "ABCy", 4), 0);
    EXPECT_EQ(KVX::compareNoCase("abc", "abcd", 3), 0);
    EXPECT_LT(KVX::compareNoCase("abc", "abcd", 4), 0);
    EXPECT_EQ(KVX::compareNoCase("abc", "abc", 10), 0);
    EXPECT_EQ(KVX::compareNoCase("xyz", "abc", 0), 0);
}

TEST(TextCompare, OnlyAsciiLettersFold) {
    EXPECT_NE(KVX::compareNoCase("\xC4", "\xE4", -1), 0);
    EXPECT_NE(KVX::compareNoCase("[", "{", -1), 0);
    // Bytes above 0x7F order after ASCII, as unsigned characters.
    EXPECT_GT(KVX::compareNoCase("\xE4", "z", -1), 0);
}

TEST(TextCompare, EmbeddedNulIsACharacter) {
    EXPECT_LT(KVX::compareNoCase(std::string("a\0b", 3), std::string("A\0c", 3), -1), 0);
    EXPECT_EQ(KVX::compareNoCase(std::string("a\0B", 3), std::string("A\0b", 3), -1), 0);
    EXPECT_LT(KVX::compareNoCase(std::string("a", 1), std::string("a\0", 2), -1), 0);
}

} // namespace
