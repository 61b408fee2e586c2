// Equality and hash of the short texts that names are, by words instead of
// bytes: the loops' exits, which depend on the length, would be mispredicted
// on nearly every name. Every function reads exactly the bytes it is given.
// Header only, stateless; safe from any thread.
#ifndef KVX_VOCABULARY_NAMEBYTES_H
#define KVX_VOCABULARY_NAMEBYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KVX {
namespace Internal {

// Equality of two texts of `length` bytes, both readable in full, by words
// that overlap at the end instead of byte by byte: the loop's exit, which
// depends on the length, would be mispredicted on nearly every name.
template <typename Word> inline Word wordAt(char const *text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

template <typename Word> inline bool sameEnds(char const *a, char const *b, std::size_t length) {
    return wordAt<Word>(a) == wordAt<Word>(b) &&
           wordAt<Word>(a + length - sizeof(Word)) == wordAt<Word>(b + length - sizeof(Word));
}

inline bool sameLongText(char const *a, char const *b, std::size_t length) {
    for (std::size_t i = 0; i + 8 < length; i += 8) {
        if (wordAt<std::uint64_t>(a + i) != wordAt<std::uint64_t>(b + i))
            return false;
    }
    return wordAt<std::uint64_t>(a + length - 8) == wordAt<std::uint64_t>(b + length - 8);
}

// Names of up to 16 characters, nearly all of them, are compared without a
// loop, which keeps this small enough to be inlined where names are compared.
inline bool sameText(char const *a, char const *b, std::size_t length) {
    if (length > 16)
        return sameLongText(a, b, length);
    if (length >= 8)
        return sameEnds<std::uint64_t>(a, b, length);
    if (length >= 4)
        return sameEnds<std::uint32_t>(a, b, length);
    if (length >= 2)
        return sameEnds<std::uint16_t>(a, b, length);
    return length == 0 || a[0] == b[0];
}

// A name's hash, eight characters at a time. Only this process reads it (the
// tables of the vocabulary and of an id map's aliases), so the host's byte
// order does not matter.
inline std::uint64_t hashName(char const *data, std::size_t length) {
    std::uint64_t hash = static_cast<std::uint64_t>(length) * 0x9E3779B97F4A7C15u;
    while (length >= 8) {
        std::uint64_t word;
        std::memcpy(&word, data, 8);
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDu;
        hash ^= hash >> 32;
        data += 8;
        length -= 8;
    }
    // The last 1 to 7 characters by two overlapping loads (or three bytes),
    // which together with the length give every one of them, instead of a
    // loop whose exit depends on the length.
    std::uint64_t tail = 0;
    if (length >= 4) {
        std::uint32_t low;
        std::uint32_t high;
        std::memcpy(&low, data, 4);
        std::memcpy(&high, data + length - 4, 4);
        tail = low | static_cast<std::uint64_t>(high) << 32;
    } else if (length != 0) {
        tail = static_cast<std::uint64_t>(static_cast<unsigned char>(data[0])) |
               static_cast<std::uint64_t>(static_cast<unsigned char>(data[length / 2])) << 8 |
               static_cast<std::uint64_t>(static_cast<unsigned char>(data[length - 1])) << 16;
    }
    hash = (hash ^ tail) * 0xC4CEB9FE1A85EC53u;
    return hash ^ (hash >> 29);
}

} // namespace Internal
} // namespace KVX

#endif // KVX_VOCABULARY_NAMEBYTES_H
