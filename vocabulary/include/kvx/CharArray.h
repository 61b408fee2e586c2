// CharArray: the library's non-owning view of characters (pointer and length),
// not necessarily NUL-terminated. It never owns or frees the bytes it shows;
// whoever hands one out keeps the bytes alive. Header only, a plain value type:
// cheap to copy and safe to share between threads as long as the bytes are.
#ifndef KVX_CHARARRAY_H
#define KVX_CHARARRAY_H

#include <kvx/KVXCommon.h>
#include <kvx/KVXDefs.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace KVX {
namespace Internal {

struct CharArray {
    char const *data;          // first character; not owned, may be null for an empty view
    unsigned long long length; // number of characters

    // An empty view with a null `data`.
    constexpr CharArray() : data(nullptr), length(0) {}

    // A view of `length` characters at `data`.
    // Requires: `data` stays valid while the view is used.
    constexpr CharArray(char const *text, unsigned long long textLength)
        : data(text), length(textLength) {}

    // A view of the NUL-terminated `text` without its terminator; a null `text`
    // gives an empty view with a null `data`.
    // Requires: `text` outlives the view (string literals always do).
    CharArray(char const *text) : data(text), length(text != nullptr ? std::strlen(text) : 0) {}

    // A view of the characters of `text`.
    // Requires: `text` is neither changed nor destroyed while the view is used;
    // a view of a temporary string dies with the full expression.
    CharArray(std::string const &text) : data(text.data()), length(text.size()) {}

    // True when the view holds no characters, whatever `data` is.
    constexpr bool empty() const { return length == 0; }

    // A copy of the characters. Requires: `data` is not null unless `length` is 0.
    std::string str() const {
        return length == 0 ? std::string() : std::string(data, static_cast<std::size_t>(length));
    }

    // Key order of every map keyed on a CharArray: the shorter view is less;
    // views of one length compare by strncmp over the right operand's length.
    // The length test keeps only the low 32 bits of the difference, as a signed
    // number. Requires: both `data` pointers are non-null.
    bool operator<(CharArray const &other) const {
        // A null `data` here means the caller compared a reserved vocabulary row
        // (or a default view) without first testing its length.
        KVX_ASSERT(data != nullptr && other.data != nullptr);
        if (length != other.length) {
            return static_cast<std::int32_t>(static_cast<std::uint32_t>(length - other.length)) < 0;
        }
        return std::strncmp(safe(data), safe(other.data), static_cast<std::size_t>(other.length)) <
               0;
    }

    // Same length and strncmp over that length gives 0. strncmp stops at a NUL,
    // so characters behind a NUL common to both views are not compared.
    // Requires: both `data` pointers are non-null.
    bool operator==(CharArray const &other) const {
        // A null `data` here means the caller compared a reserved vocabulary row
        // (or a default view) without first testing its length.
        KVX_ASSERT(data != nullptr && other.data != nullptr);
        return length == other.length &&
               std::strncmp(safe(data), safe(other.data), static_cast<std::size_t>(length)) == 0;
    }

    // Exactly !(*this == other), with the same requirement.
    bool operator!=(CharArray const &other) const { return !(*this == other); }

private:
    // After a failed assertion whose handler returned, a null pointer reads as
    // the empty string so that the comparison itself stays memory-safe.
    static char const *safe(char const *text) { return text != nullptr ? text : ""; }
};

} // namespace Internal
} // namespace KVX

#endif // KVX_CHARARRAY_H
