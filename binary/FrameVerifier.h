// The frame verifier: one bounded pass over a received frame that says whether
// every offset, size, kind, depth and name in it holds, and where the first
// fault lies. KVXBinary::verify is its public face; the tool and the tests use
// the fault classes here. Reads only the caller's bytes; stateless, any thread.
#ifndef KVX_BINARY_FRAMEVERIFIER_H
#define KVX_BINARY_FRAMEVERIFIER_H

#include <cstdint>

namespace KVX {
namespace Internal {

// What was wrong with a frame; the offset that goes with each is given here.
enum class FrameFault {
    None,              // the frame is sound
    Truncated,         // the frame needs more bytes than given: the given length
    BadMagic,          // the first word is not the magic: 0
    FrameTooLong,      // the frame would pass MaxFrameLength: 8 (root) or 4 (name table)
    NodeOutsideParent, // a node passes the end of its parent: the node
    SizeNotSum,        // a container's size is not its children's node sizes: the container
    UnknownKind,       // a kind other than 0-6, 50, 51 or above 100: the node
    TooDeep,           // a node deeper than MaxNestingDepth: the node
    Unnamed,           // an id that needs a name table entry has none: the node
    EntryOutsideTable, // a name table entry passes the table's end: the entry
    BadTableKind,      // the word at entry offset 4 is not 0, 1 or 2: the entry
    EmptyName,         // an entry of size 0: the entry
    NameTooLong,       // a name longer than MaxTableNameLength: the entry
    NameNotTerminated, // a name without its NUL at the end, or with one inside: the entry
    OutOfMemory,       // the verifier could not allocate its tables: 0
};

struct FrameCheck {
    FrameFault fault;
    std::uint32_t offset; // meaningful when fault is not None
};

// Verifies the frame at the start of `buffer`; `length` bytes are readable.
// Bytes beyond the frame's own length are not looked at. A null buffer or a
// negative length holds no bytes. See docs/format.md, "Verifying a received frame".
FrameCheck verifyFrame(char const *buffer, int length);

// A short lower-case description of a fault class, for messages.
char const *frameFaultText(FrameFault fault);

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_FRAMEVERIFIER_H
