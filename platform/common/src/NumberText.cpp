// Decimal text of integers and the shortest round-trip text of doubles.
// Stateless and thread-safe; the text is built in a stack buffer.
#include <kvx/KVXCommon.h>

#include <charconv>
#include <system_error>

namespace KVX {

namespace {

// Large enough for "-9223372036854775808" and for the longest shortest-form
// double, "-2.2250738585072014e-308" (24 characters).
constexpr int NumberBufferSize = 32;

template <typename T> std::string toText(T value) {
    char buffer[NumberBufferSize];
    std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value);
    KVX_ASSERT(result.ec == std::errc());
    if (result.ec != std::errc()) {
        return std::string();
    }
    return std::string(buffer, result.ptr);
}

} // namespace

std::string intToStr(int value) {
    return toText(value);
}

std::string longlongToStr(__int64 value) {
    return toText(value);
}

// std::to_chars without a format or precision gives the shortest text that
// reads back to the same value, choosing plain or exponent notation by
// length: 0.1 -> "0.1", 1e300 -> "1e+300", -0.0 -> "-0", and "inf", "-inf",
// "nan" for the special values. Readers using strtod or "%lf" accept all of it.
std::string doubleToStr(double value) {
    return toText(value);
}

} // namespace KVX
