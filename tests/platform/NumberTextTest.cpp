// Tests of the number texts: plain decimal integers and shortest doubles.
#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

namespace {

TEST(NumberText, IntToStr) {
    EXPECT_EQ(KVX::intToStr(0), "0");
    EXPECT_EQ(KVX::intToStr(7), "7");
    EXPECT_EQ(KVX::intToStr(-1), "-1");
    EXPECT_EQ(KVX::intToStr(-40500), "-40500");
    EXPECT_EQ(KVX::intToStr(INT_MAX), "2147483647");
    EXPECT_EQ(KVX::intToStr(INT_MIN), "-2147483648");
}

TEST(NumberText, LonglongToStr) {
    EXPECT_EQ(KVX::longlongToStr(0), "0");
    EXPECT_EQ(KVX::longlongToStr(-9000000000LL), "-9000000000");
    EXPECT_EQ(KVX::longlongToStr(LLONG_MAX), "9223372036854775807");
    EXPECT_EQ(KVX::longlongToStr(LLONG_MIN), "-9223372036854775808");
}

TEST(NumberText, ShortestDoubles) {
    EXPECT_EQ(KVX::doubleToStr(0.1), "0.1");
    EXPECT_EQ(KVX::doubleToStr(1.5), "1.5");
    EXPECT_EQ(KVX::doubleToStr(-2.25), "-2.25");
    EXPECT_EQ(KVX::doubleToStr(100.0), "100");
    EXPECT_EQ(KVX::doubleToStr(1.0 / 3.0), "0.3333333333333333");
    EXPECT_EQ(KVX::doubleToStr(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(KVX::doubleToStr(1e300), "1e+300");
    EXPECT_EQ(KVX::doubleToStr(1e16), "1e+16");
    EXPECT_EQ(KVX::doubleToStr(1.25e-7), "1.25e-07");
    EXPECT_EQ(KVX::doubleToStr(5e-324), "5e-324");
    EXPECT_EQ(KVX::doubleToStr(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
}

TEST(NumberText, ZeroKeepsItsSign) {
    EXPECT_EQ(KVX::doubleToStr(0.0), "0");
    EXPECT_EQ(KVX::doubleToStr(-0.0), "-0");
}

TEST(NumberText, SpecialDoubles) {
    EXPECT_EQ(KVX::doubleToStr(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(KVX::doubleToStr(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(KVX::doubleToStr(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(NumberText, DoublesReadBackExactly) {
    std::mt19937_64 random(20240521);
    for (int i = 0; i < 20000; ++i) {
        std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isnan(value)) {
            continue;
        }
        std::string text = KVX::doubleToStr(value);
        double back = std::strtod(text.c_str(), nullptr);
        std::uint64_t backBits;
        std::memcpy(&backBits, &back, sizeof back);
        ASSERT_EQ(backBits, bits) << text;
    }
}

} // namespace
