// Tests of Base64: known vectors, every byte value, and each class of bad text.
#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string decodeText(std::string const &text, int *result) {
    std::string out = "untouched";
    *result = KVX::Base64::decode(text.data(), static_cast<int>(text.size()), &out);
    return out;
}

std::string encodeText(std::string const &data) {
    return KVX::Base64::encode(data.data(), static_cast<int>(data.size()));
}

TEST(Base64, KnownVectors) {
    // The test vectors of RFC 4648, section 10.
    EXPECT_EQ(encodeText(""), "");
    EXPECT_EQ(encodeText("f"), "Zg==");
    EXPECT_EQ(encodeText("fo"), "Zm8=");
    EXPECT_EQ(encodeText("foo"), "Zm9v");
    EXPECT_EQ(encodeText("foob"), "Zm9vYg==");
    EXPECT_EQ(encodeText("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encodeText("foobar"), "Zm9vYmFy");

    int result = 1;
    EXPECT_EQ(decodeText("", &result), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(decodeText("Zg==", &result), "f");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(decodeText("Zm8=", &result), "fo");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(decodeText("Zm9vYmFy", &result), "foobar");
    EXPECT_EQ(result, 0);
}

TEST(Base64, AllByteValuesRoundTrip) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    std::string const expected =
        "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+P0BBQk"
        "NERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3BxcnN0dXZ3eHl6e3x9fn+AgYKDhIWG"
        "h4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6ChoqOkpaanqKmqq6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIyc"
        "rLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj5OXm5+jp6uvs7e7v8PHy8/T19vf4+fr7/P3+/w==";
    std::string const text = encodeText(bytes);
    EXPECT_EQ(text, expected);
    int result = 1;
    EXPECT_EQ(decodeText(text, &result), bytes);
    EXPECT_EQ(result, 0);

    // Every length of a tail, so that each padding case meets every byte.
    for (std::size_t start = 0; start < 256; ++start) {
        std::string part = bytes.substr(start, 1 + start % 5);
        ASSERT_EQ(decodeText(encodeText(part), &result), part) << start;
        ASSERT_EQ(result, 0);
    }
}

TEST(Base64, DecodesOnlyTheGivenLength) {
    std::string out;
    EXPECT_EQ(KVX::Base64::decode("Zm9vYmFy", 4, &out), 0);
    EXPECT_EQ(out, "foo");
    EXPECT_EQ(KVX::Base64::decode("Zm9vYmFy", 0, &out), 0);
    EXPECT_EQ(out, "");
}

TEST(Base64, RejectsBadCharacter) {
    char const *const bad[] = {
        "Zm9v!mFy", "Zm9 YmFy", "Zm9v\nYmE", "Zm-v", "Zm_v", "Zm9\x80", "Zm9v\tg==",
    };
    for (char const *text : bad) {
        int result = 0;
        EXPECT_EQ(decodeText(text, &result), "untouched") << text;
        EXPECT_EQ(result, -1) << text;
    }
    // A NUL inside the given length is a bad character too.
    int result = 0;
    EXPECT_EQ(decodeText(std::string("Zm\0v", 4), &result), "untouched");
    EXPECT_EQ(result, -1);
    // Whitespace is never skipped.
    EXPECT_EQ(decodeText("Zm9v    ", &result), "untouched");
    EXPECT_EQ(result, -1);
}

TEST(Base64, RejectsBadLength) {
    char const *const bad[] = {"Z", "Zm", "Zm9", "Zm9vY", "Zm9vYmF", "Zg=", "Zg"};
    for (char const *text : bad) {
        int result = 0;
        EXPECT_EQ(decodeText(text, &result), "untouched") << text;
        EXPECT_EQ(result, -1) << text;
    }
    std::string out = "untouched";
    EXPECT_EQ(KVX::Base64::decode("Zm9v", -4, &out), -1);
    EXPECT_EQ(out, "untouched");
}

TEST(Base64, RejectsMisplacedPadding) {
    char const *const bad[] = {
        "====",     "Z===",     "=Zg=", "Zg=a", // padding must end the text
        "Zg==Zm8=", "Zm8=Zm9v",                 // padding inside the text
        "Zh==",     "Zm9=",                     // left-over bits not zero
    };
    for (char const *text : bad) {
        int result = 0;
        EXPECT_EQ(decodeText(text, &result), "untouched") << text;
        EXPECT_EQ(result, -1) << text;
    }
}

} // namespace
