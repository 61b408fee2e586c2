// Bounds of the XML text form: how deep a text or a frame may nest and how long
// a text, a value or a frame may grow while the reader or the writer works on it.
// Constant data and pure functions; usable from any thread.
#ifndef KVX_TEXT_TEXTLIMITS_H
#define KVX_TEXT_TEXTLIMITS_H

#include <climits>
#include <cstdint>

namespace KVX {
namespace Internal {

// Deepest nesting of elements that the reader accepts and of nodes that the
// writer walks. Both work with explicit stacks, so this guards memory and the
// cost of patching ancestor sizes, not the machine stack. No legitimate packet
// comes near it.
constexpr std::size_t MaxTextDepth = 10000;

// Longest element name the reader takes (the end tag is built from it).
constexpr std::size_t MaxNameLength = 250;

// Largest frame, text or value the text form lets grow: frame lengths and text
// lengths are signed 32-bit numbers, so everything stays well below INT_MAX,
// leaving room for a node header, padding and a name table entry.
constexpr std::uint64_t MaxTextLength = static_cast<std::uint64_t>(INT_MAX) - 65536;

// True when a frame of `used` bytes can take `extra` more bytes without its
// length leaving MaxTextLength.
inline bool fitsTextLimit(std::uint64_t used, std::uint64_t extra) {
    return used <= MaxTextLength && extra <= MaxTextLength - used;
}

// What the reader's append of an element may add besides its value: the
// value's NUL, a long header, padding and a name table entry of a name of up
// to MaxNameLength characters.
constexpr std::uint64_t ElementOverhead = MaxNameLength + 64;

// True when an element with a value of `length` bytes may be appended to a
// frame of `frameLength` bytes: the frame never passes MaxTextLength.
inline bool elementFits(std::uint64_t frameLength, std::uint64_t length) {
    return fitsTextLimit(frameLength, length + ElementOverhead);
}

// True when "<name>text</name>" with a text of `length` bytes is appended in
// one step with its value rather than empty and then given it. The slack
// covers the empty element and the name's entry; the two steps check the
// value's limit after adding those, and where node and entry together stay
// below the capacity, one append grows the buffer exactly when, and as much
// as, the three growths of the two steps would.
inline bool leafInOneStep(std::uint64_t frameLength, std::uint64_t length, std::uint64_t capacity) {
    constexpr std::uint64_t Slack = 1024;
    return elementFits(frameLength, length + Slack) && length + Slack < capacity;
}

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_TEXTLIMITS_H
