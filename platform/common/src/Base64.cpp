// Base64 of RFC 4648: standard alphabet, '=' padding, no line breaks.
// Stateless and thread-safe. Decoding is strict, so every text it accepts is
// exactly the encoding of what it returns.
#include <kvx/KVXCommon.h>

#include <cstddef>
#include <cstdint>

namespace KVX {
namespace Base64 {

namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char Pad = '=';
constexpr int Invalid = -1;

// Value of each alphabet character; Invalid for every other byte, including
// whitespace and '=' (padding is handled by position).
struct DecodeTable {
    signed char value[256];
    constexpr DecodeTable() : value() {
        for (int i = 0; i < 256; ++i) {
            value[i] = Invalid;
        }
        for (int i = 0; i < 64; ++i) {
            value[static_cast<unsigned char>(Alphabet[i])] = static_cast<signed char>(i);
        }
    }
};

constexpr DecodeTable Decode;

int valueOf(char c) {
    return Decode.value[static_cast<unsigned char>(c)];
}

} // namespace

std::string encode(char const *data, int length) {
    KVX_ASSERT(length >= 0);                    // the caller passed a negative length
    KVX_ASSERT(data != nullptr || length <= 0); // the caller passed no data
    if (length <= 0 || data == nullptr) {
        return std::string();
    }
    std::size_t const size = static_cast<std::size_t>(length);
    unsigned char const *in = reinterpret_cast<unsigned char const *>(data);
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    std::size_t i = 0;
    for (; size - i >= 3; i += 3) {
        std::uint32_t bits = (std::uint32_t{in[i]} << 16) | (std::uint32_t{in[i + 1]} << 8) |
                             std::uint32_t{in[i + 2]};
        out += Alphabet[(bits >> 18) & 0x3F];
        out += Alphabet[(bits >> 12) & 0x3F];
        out += Alphabet[(bits >> 6) & 0x3F];
        out += Alphabet[bits & 0x3F];
    }
    std::size_t const rest = size - i;
    if (rest == 1) {
        std::uint32_t bits = std::uint32_t{in[i]} << 16;
        out += Alphabet[(bits >> 18) & 0x3F];
        out += Alphabet[(bits >> 12) & 0x3F];
        out += Pad;
        out += Pad;
    } else if (rest == 2) {
        std::uint32_t bits = (std::uint32_t{in[i]} << 16) | (std::uint32_t{in[i + 1]} << 8);
        out += Alphabet[(bits >> 18) & 0x3F];
        out += Alphabet[(bits >> 12) & 0x3F];
        out += Alphabet[(bits >> 6) & 0x3F];
        out += Pad;
    }
    return out;
}

// Rules: the length is a multiple of 4; '=' appears only as the last one or
// two characters; the bits that padding leaves over must be zero. Whitespace
// is not skipped: the encoder never writes it. On failure `*out` is unchanged.
int decode(char const *text, int length, std::string *out) {
    KVX_ASSERT(out != nullptr);                 // the caller gave nowhere to decode into
    KVX_ASSERT(text != nullptr || length <= 0); // the caller passed no text
    if (out == nullptr || length < 0 || (text == nullptr && length > 0)) {
        return -1;
    }
    std::size_t const size = static_cast<std::size_t>(length);
    if (size % 4 != 0) {
        return -1;
    }
    std::string decoded;
    decoded.reserve(size / 4 * 3);
    for (std::size_t i = 0; i < size; i += 4) {
        bool const last = size - i == 4;
        int const a = valueOf(text[i]);
        int const b = valueOf(text[i + 1]);
        if (a == Invalid || b == Invalid) {
            return -1;
        }
        std::uint32_t bits =
            (static_cast<std::uint32_t>(a) << 18) | (static_cast<std::uint32_t>(b) << 12);
        if (last && text[i + 2] == Pad) {
            // "xx==": one byte; the low 4 bits of b are left over.
            if (text[i + 3] != Pad || (bits & 0xFFFF) != 0) {
                return -1;
            }
            decoded += static_cast<char>(bits >> 16);
            break;
        }
        int const c = valueOf(text[i + 2]);
        if (c == Invalid) {
            return -1;
        }
        bits |= static_cast<std::uint32_t>(c) << 6;
        if (last && text[i + 3] == Pad) {
            // "xxx=": two bytes; the low 2 bits of c are left over.
            if ((bits & 0xFF) != 0) {
                return -1;
            }
            decoded += static_cast<char>(bits >> 16);
            decoded += static_cast<char>((bits >> 8) & 0xFF);
            break;
        }
        int const d = valueOf(text[i + 3]);
        if (d == Invalid) {
            return -1;
        }
        bits |= static_cast<std::uint32_t>(d);
        decoded += static_cast<char>(bits >> 16);
        decoded += static_cast<char>((bits >> 8) & 0xFF);
        decoded += static_cast<char>(bits & 0xFF);
    }
    out->swap(decoded);
    return 0;
}

} // namespace Base64
} // namespace KVX
