// The scanner of the XML reader: character classes, name and end-tag
// comparisons by words, and the sixteen-at-a-time scans of its quick path.
// Every function reads only bytes before the input's NUL (or within the
// lengths it is given). Header only, stateless; safe from any thread.
#ifndef KVX_TEXT_TEXTSCAN_H
#define KVX_TEXT_TEXTSCAN_H

#include "vocabulary/NameBytes.h"

#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KVX {
namespace Internal {

// Character classes of the scanner: one table load per character instead of a
// chain of comparisons.
enum : unsigned char {
    Space = 1,    // blank, tab, line feed and carriage return; nothing else counts
    NameEnd = 2,  // ends an element name: whitespace, '>', '/' and NUL
    TextStop = 4, // stops the scan of text content: '<', '&' and NUL
};

struct CharClassTable {
    unsigned char bits[256];
    constexpr CharClassTable() : bits() {
        for (unsigned char c : {' ', '\t', '\n', '\r'})
            bits[c] = Space | NameEnd;
        bits[static_cast<unsigned char>('>')] = NameEnd;
        bits[static_cast<unsigned char>('/')] = NameEnd;
        bits[static_cast<unsigned char>('<')] = TextStop;
        bits[static_cast<unsigned char>('&')] = TextStop;
        bits[0] = NameEnd | TextStop;
    }
};
constexpr CharClassTable Classes;

inline bool inClass(char c, unsigned char classes) {
    return (Classes.bits[static_cast<unsigned char>(c)] & classes) != 0;
}

inline bool isSpace(char c) {
    return inClass(c, Space);
}

// Scans run on a local pointer, never on one held by reference: every load of
// a character may alias the memory of such a pointer, and the compiler would
// store it back at each step of the loop.
inline char const *afterSpace(char const *text) {
    while (isSpace(*text))
        ++text;
    return text;
}

inline void skipSpace(char const *&text) {
    text = afterSpace(text);
}

// True when `text` starts with "</name>". `inputEnd` is the input's NUL.
// Where the tag's bytes all lie before it, the name is compared by words;
// otherwise byte by byte, which stops at the NUL at the latest, as the name
// holds none: neither reads behind the end of the input.
[[gnu::always_inline]] inline bool atEndTag(char const *text, CharArray const &name,
                                            char const *inputEnd) {
    if (text[0] != '<' || text[1] != '/')
        return false;
    std::size_t const length = static_cast<std::size_t>(name.length);
    char const *const tag = text + 2;
    if (static_cast<std::size_t>(inputEnd - tag) > length)
        return sameText(tag, name.data, length) && tag[length] == '>';
    for (std::size_t i = 0; i < length; ++i) {
        if (tag[i] != name.data[i])
            return false;
    }
    return tag[length] == '>';
}

// Masks of the first 0 to 8 bytes of a word as it lies in memory, by table:
// a name's length decides the mask, and a branch on it would be mispredicted.
struct FirstBytesTable {
    std::uint64_t masks[9];
    constexpr FirstBytesTable() : masks() {
        for (unsigned count = 1; count <= 8; ++count) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
            masks[count] = ~std::uint64_t(0) << (64 - 8 * count);
#else
            masks[count] = count == 8 ? ~std::uint64_t(0) : (std::uint64_t(1) << (8 * count)) - 1;
#endif
        }
    }
};
constexpr FirstBytesTable FirstBytes;

// The scans of the quick path, sixteen characters at a time where all of them
// lie before the input's NUL, else one at a time.
#if defined(__SSE2__)
inline __m128i sixteenAt(char const *text) {
    __m128i bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}
#endif

// The first character at or behind `text` that may end a name: NameEnd, and
// with sixteen at a time every other control character too. The quick path
// takes a name only when that character is its '>', which is then the one
// the exact scan finds as well.
inline char const *quickNameEnd(char const *text, char const *inputEnd) {
#if defined(__SSE2__)
    while (inputEnd - text >= 16) {
        __m128i const bytes = sixteenAt(text);
        __m128i const control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(' ')), bytes);
        __m128i const stops =
            _mm_or_si128(control, _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('>')),
                                               _mm_cmpeq_epi8(bytes, _mm_set1_epi8('/'))));
        int const found = _mm_movemask_epi8(stops);
        if (found != 0)
            return text + __builtin_ctz(static_cast<unsigned>(found));
        text += 16;
    }
#endif
    while (!inClass(*text, NameEnd))
        ++text;
    return text;
}

// The first TextStop character at or behind `text`.
inline char const *textStop(char const *text, char const *inputEnd) {
#if defined(__SSE2__)
    while (inputEnd - text >= 16) {
        __m128i const bytes = sixteenAt(text);
        __m128i const stops =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('<')),
                         _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')),
                                      _mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
        int const found = _mm_movemask_epi8(stops);
        if (found != 0)
            return text + __builtin_ctz(static_cast<unsigned>(found));
        text += 16;
    }
#endif
    while (!inClass(*text, TextStop))
        ++text;
    return text;
}

inline char const *findChar(CharArray const &view, char c) {
    return static_cast<char const *>(
        std::memchr(view.data, c, static_cast<std::size_t>(view.length)));
}

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_TEXTSCAN_H
