// Tests of the CharArray view: construction, copying out, and the three
// comparisons that order every map keyed on it.
#include <kvx/CharArray.h>

#include "AssertRecorder.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>
#include <vector>

using KVX::Internal::CharArray;

static_assert(std::is_trivially_copyable<CharArray>::value, "a view is cheap to copy");
static_assert(std::is_same<decltype(CharArray::length), unsigned long long>::value,
              "the length is unsigned 64-bit");
static_assert(sizeof(CharArray::length) == 8, "the length is unsigned 64-bit");

TEST(CharArray, DefaultIsEmptyWithNullData) {
    CharArray const view;
    EXPECT_EQ(nullptr, view.data);
    EXPECT_EQ(0u, view.length);
    EXPECT_TRUE(view.empty());
}

TEST(CharArray, PointerAndLengthNeedNoTerminator) {
    char const buffer[] = {'a', 'b', 'c', 'd'};
    CharArray const view(buffer + 1, 2);
    EXPECT_EQ(buffer + 1, view.data);
    EXPECT_EQ(2u, view.length);
    EXPECT_EQ("bc", view.str());
}

TEST(CharArray, CStringComputesLength) {
    char const *text = "alerts";
    CharArray const view(text);
    EXPECT_EQ(text, view.data);
    EXPECT_EQ(6u, view.length);
}

TEST(CharArray, NullCStringGivesEmptyView) {
    char const *text = nullptr;
    CharArray const view(text);
    EXPECT_EQ(nullptr, view.data);
    EXPECT_EQ(0u, view.length);
}

TEST(CharArray, StdStringViewsItsCharacters) {
    std::string const text("ab\0cd", 5);
    CharArray const view(text);
    EXPECT_EQ(text.data(), view.data);
    EXPECT_EQ(5u, view.length);
    EXPECT_EQ(text, view.str());
}

TEST(CharArray, EmptyWhateverItsData) {
    EXPECT_TRUE(CharArray("xyz", 0).empty());
    EXPECT_FALSE(CharArray("xyz", 1).empty());
    EXPECT_EQ("", CharArray("xyz", 0).str());
    EXPECT_EQ("", CharArray().str());
}

TEST(CharArray, ShorterIsLessWhateverItsCharacters) {
    EXPECT_TRUE(CharArray("zz") < CharArray("aaa"));
    EXPECT_FALSE(CharArray("aaa") < CharArray("zz"));
    EXPECT_TRUE(CharArray("") < CharArray("a"));
}

TEST(CharArray, SameLengthOrdersAlphabetically) {
    EXPECT_TRUE(CharArray("abc") < CharArray("abd"));
    EXPECT_FALSE(CharArray("abd") < CharArray("abc"));
    EXPECT_FALSE(CharArray("abc") < CharArray("abc"));
}

TEST(CharArray, SameLengthComparesCharactersAsUnsigned) {
    // strncmp compares unsigned char values, so a byte of 0x80 sorts after 'a'.
    EXPECT_TRUE(CharArray("a") < CharArray("\x80"));
    EXPECT_FALSE(CharArray("\x80") < CharArray("a"));
}

TEST(CharArray, LengthTestUsesSigned32BitDifference) {
    // Only the lengths are read when they differ, so a short buffer will do.
    char const *text = "x";
    CharArray const huge(text, 0x80000000ULL);
    CharArray const none(text, 0);
    // 0x80000000 - 0 and 0 - 0x80000000 are both INT32_MIN as signed 32-bit
    // numbers, so each view is less than the other.
    EXPECT_TRUE(huge < none);
    EXPECT_TRUE(none < huge);
    // Differences below 2^31 keep their sign: the shorter view is less.
    CharArray const longer(text, 0x7FFFFFFFULL);
    CharArray const one(text, 1);
    EXPECT_FALSE(longer < one);
    EXPECT_TRUE(one < longer);
}

TEST(CharArray, LengthsDifferingBy2To32AreNeitherLess) {
    char const *text = "x";
    CharArray const longer(text, 0x100000001ULL);
    CharArray const shorter(text, 1);
    EXPECT_FALSE(longer < shorter);
    EXPECT_FALSE(shorter < longer);
    EXPECT_FALSE(longer == shorter);
}

TEST(CharArray, CompareStopsAtCommonNul) {
    CharArray const left("ab\0x", 4);
    CharArray const right("ab\0y", 4);
    EXPECT_TRUE(left == right);
    EXPECT_FALSE(left != right);
    EXPECT_FALSE(left < right);
    EXPECT_FALSE(right < left);
}

TEST(CharArray, EqualNeedsSameLengthAndCharacters) {
    EXPECT_TRUE(CharArray("alerts") == CharArray("alerts"));
    EXPECT_FALSE(CharArray("alert") == CharArray("alerts"));
    EXPECT_FALSE(CharArray("alerts") == CharArray("alertz"));
    EXPECT_TRUE(CharArray("abc", 2) == CharArray("abd", 2));
    EXPECT_TRUE(CharArray("", 0) == CharArray("x", 0));
}

TEST(CharArray, NotEqualIsOppositeOfEqual) {
    std::vector<CharArray> const views = {CharArray("a"), CharArray("b"), CharArray("ab"),
                                          CharArray("abc", 2), CharArray("", 0)};
    for (CharArray const &left : views) {
        for (CharArray const &right : views) {
            EXPECT_EQ(!(left == right), left != right) << left.str() << " / " << right.str();
        }
    }
    EXPECT_TRUE(CharArray("a") != CharArray("b"));
    EXPECT_FALSE(CharArray("a") != CharArray("a"));
}

TEST(CharArray, EmptyViewsWithDataCompareWithoutAssertion) {
    AssertRecorder recorder;
    EXPECT_TRUE(CharArray("", 0) == CharArray("q", 0));
    EXPECT_FALSE(CharArray("", 0) < CharArray("q", 0));
    EXPECT_EQ(0, recorder.fired());
}

TEST(CharArray, LessAssertsOnNullData) {
    AssertRecorder recorder;
    bool const result = CharArray() < CharArray("a");
    EXPECT_EQ(1, recorder.fired());
    EXPECT_TRUE(result); // comparison goes on after the handler returned
    bool const reversed = CharArray("a") < CharArray(nullptr, 0);
    EXPECT_EQ(2, recorder.fired());
    EXPECT_FALSE(reversed);
}

TEST(CharArray, EqualAssertsOnNullData) {
    AssertRecorder recorder;
    bool const result = CharArray() == CharArray("", 0);
    EXPECT_EQ(1, recorder.fired());
    EXPECT_TRUE(result);
    bool const other = CharArray("a") == CharArray();
    EXPECT_EQ(2, recorder.fired());
    EXPECT_FALSE(other);
}

TEST(CharArray, NotEqualAssertsOnNullData) {
    AssertRecorder recorder;
    bool const result = CharArray("a") != CharArray();
    EXPECT_EQ(1, recorder.fired());
    EXPECT_TRUE(result);
}

TEST(CharArray, MapKeyOrderIsLengthFirst) {
    std::map<CharArray, int> map;
    map[CharArray("ab")] = 1;
    map[CharArray("b")] = 2;
    map[CharArray("aa")] = 3;
    map[CharArray("a")] = 4;
    map[CharArray("abc")] = 5;
    std::vector<std::string> keys;
    for (auto const &entry : map) {
        keys.push_back(entry.first.str());
    }
    EXPECT_EQ((std::vector<std::string>{"a", "b", "aa", "ab", "abc"}), keys);
    EXPECT_EQ(1, map.at(CharArray(&"xaby"[1], 2)));
}
