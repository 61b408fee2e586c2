// Entity replacement for the text reader. Only element text goes through here;
// attribute values keep their entities as written. Pure functions on
// caller-owned strings; safe from any thread.
#include "text/Entities.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace KVX {
namespace Internal {

namespace {

struct NamedEntity {
    char const *name;
    char const *text;
};

// The predefined XML entities; matched exactly, so "&Lt;" is unknown.
constexpr NamedEntity NamedEntities[] = {
    {"lt", "<"},    // less-than
    {"gt", ">"},    // greater-than
    {"amp", "&"},   // ampersand
    {"apos", "'"},  // apostrophe
    {"quot", "\""}, // quotation mark
};

// One past the last Unicode code point.
constexpr std::int32_t CodePointEnd = 1114112;

// UTF-8 of a code point. The comparisons run on a signed 32-bit value: a
// reference that reads as a negative number (say "&#-1;", which %lu takes)
// lands in the one-byte branch and gives its low byte, as the format always did.
std::string utf8(std::int32_t code) {
    std::string out;
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < CodePointEnd) {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
    return out;
}

} // namespace

std::string entity(std::string const &name) {
    if (name.empty() || name[0] != '#') {
        for (NamedEntity const &row : NamedEntities) {
            if (name == row.name)
                return row.text;
        }
        return std::string();
    }
    // sscanf stops at the first character that is no digit, so "#65abc" is 65.
    // Only a lower-case 'x' selects hexadecimal; "#X41" fails as decimal.
    unsigned long number = 0;
    int read = (name.size() > 1 && name[1] == 'x') ? std::sscanf(name.c_str() + 2, "%lx", &number)
                                                   : std::sscanf(name.c_str() + 1, "%lu", &number);
    if (read != 1)
        return std::string();
    return utf8(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
}

int unescape(std::string &text) {
    std::size_t amp = text.find('&');
    if (amp == std::string::npos)
        return 0;
    std::size_t read = 0;
    std::string result;
    for (;;) {
        result.append(text, read, amp - read);
        std::size_t semicolon = text.find(';', amp + 1);
        if (semicolon == std::string::npos)
            return -1;
        std::string replacement = entity(text.substr(amp + 1, semicolon - amp - 1));
        if (replacement.empty())
            return -1;
        result += replacement;
        read = semicolon + 1;
        amp = text.find('&', read);
        if (amp == std::string::npos)
            break;
    }
    text.replace(0, read, result);
    return 0;
}

} // namespace Internal
} // namespace KVX
