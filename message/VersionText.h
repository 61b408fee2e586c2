// The protocol version number of a version text: major * 10000 + minor * 100 +
// patch, read the way the packet head has always read its "version" attribute;
// the SOAP bridge reads the version segment of an operation's URI the same way.
// Header only, stateless; safe from any thread.
#ifndef KVX_MESSAGE_VERSIONTEXT_H
#define KVX_MESSAGE_VERSIONTEXT_H

#include <cstddef>
#include <cstdint>

namespace KVX {

// Digits accumulate into a current number; every other character folds it in
// as total * 100 + current and starts a new one; the end folds in the last.
// So "4.5.0" is 40500, "4.5" is 405, "" is 0 and "4..5" is 40005. At most
// `length` bytes are read and a NUL ends the text early, so a value stored with
// its terminator reads the same as one without. A null `text` is 0. The
// arithmetic is modulo 2^32, so an absurdly long text wraps instead of
// overflowing a signed number.
inline int parseVersionText(char const *text, std::size_t length) {
    if (text == nullptr)
        return 0;
    std::uint32_t total = 0;
    std::uint32_t current = 0;
    for (std::size_t i = 0; i < length && text[i] != '\0'; ++i) {
        char const c = text[i];
        if (c >= '0' && c <= '9') {
            current = current * 10u + static_cast<std::uint32_t>(c - '0');
        } else {
            total = total * 100u + current;
            current = 0;
        }
    }
    return static_cast<int>(total * 100u + current);
}

} // namespace KVX

#endif // KVX_MESSAGE_VERSIONTEXT_H
