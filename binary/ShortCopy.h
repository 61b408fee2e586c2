// Copies of the few bytes of a name or a value: up to 16 of them go by two
// overlapping loads and stores, as a call to memcpy costs more than the copy.
// Reads and writes exactly the `length` bytes. Header only, stateless.
#ifndef KVX_BINARY_SHORTCOPY_H
#define KVX_BINARY_SHORTCOPY_H

#include <cstdint>
#include <cstring>

namespace KVX {
namespace Internal {

template <typename Word> inline void copyEnds(char *to, char const *from, std::uint32_t length) {
    Word head;
    Word tail;
    std::memcpy(&head, from, sizeof(Word));
    std::memcpy(&tail, from + length - sizeof(Word), sizeof(Word));
    std::memcpy(to, &head, sizeof(Word));
    std::memcpy(to + length - sizeof(Word), &tail, sizeof(Word));
}

inline void copyShort(char *to, char const *from, std::uint32_t length) {
    if (length > 16)
        std::memcpy(to, from, length);
    else if (length >= 8)
        copyEnds<std::uint64_t>(to, from, length);
    else if (length >= 4)
        copyEnds<std::uint32_t>(to, from, length);
    else if (length >= 2)
        copyEnds<std::uint16_t>(to, from, length);
    else if (length == 1)
        to[0] = from[0];
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_SHORTCOPY_H
