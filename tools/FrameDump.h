// The annotated layout of a frame for `kvxmsg dump`: head, every node in
// document order, the name table, and the first fault of a damaged frame. The
// analysis reads the caller's bytes only, checks every offset against the
// buffer's length before it reads, and walks without recursion, so any input
// is safe. Results are plain values; single-threaded. Layout: docs/format.md.
#ifndef KVX_TOOLS_FRAMEDUMP_H
#define KVX_TOOLS_FRAMEDUMP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KVX {
namespace Tool {

// How a node's value is shown.
enum class ValueForm {
    None,     // no value bytes (size 0)
    Text,     // text kinds: `text`, `terminated` tells whether a NUL ended it
    Integer,  // KindInt, KindLongLong: `integer`
    Real,     // KindDouble: `real`
    Octets,   // KindBase64: the octets in `text`, `terminated` for the closing NUL
    Children, // a container: `children` direct children
    Unknown,  // a kind this format does not define: the raw bytes in `text`
    Bad,      // a size the kind cannot have: the reason in `text`
};

struct FrameFault {
    bool found = false;
    std::uint64_t offset = 0; // first byte that is not as the format requires
    std::string reason;
};

struct DumpHead {
    std::uint32_t magic = 0;
    std::uint32_t flags = 0;
    unsigned format = 0;
    bool empty = false;
    std::uint32_t nameTableSize = 0;
    std::uint64_t nameTableOffset = 0; // the end of the root section
    std::uint64_t frameLength = 0;     // head + root + name table
};

struct DumpNode {
    std::uint64_t offset = 0;
    unsigned depth = 0; // 0 for the root
    int id = 0;
    std::string name; // "" when neither the frame nor the vocabulary names it
    bool attribute = false;
    unsigned kind = 0;
    std::string kindName;
    unsigned ns = 0;
    std::string namespaceUri;
    std::uint32_t size = 0;
    std::uint64_t nodeSize = 0;
    ValueForm form = ValueForm::None;
    std::string text;
    long long integer = 0;
    double real = 0;
    bool terminated = false;
    unsigned children = 0;
};

struct DumpEntry {
    std::uint64_t offset = 0;
    int id = 0;
    int tableKind = 0; // 0 element, 1 namespace, 2 complex type
    std::uint32_t size = 0;
    std::uint64_t nodeSize = 0;
    std::string name;
};

struct FrameLayout {
    std::uint64_t length = 0; // bytes given
    bool hasHead = false;     // the head was read (8 bytes and the magic)
    DumpHead head;
    std::vector<DumpNode> nodes;
    std::vector<DumpEntry> nameTable;
    FrameFault fault;           // the first fault in document order; nothing behind it is listed
    std::uint64_t trailing = 0; // bytes behind the frame, not part of it
};

// Reads the frame at `data` of `length` bytes. Names come from the frame's own
// name table first and from the vocabulary after that.
FrameLayout analyseFrame(char const *data, std::size_t length);

// The layout as readable tables, one line per node and per table entry, and a
// last line "fault at offset X: reason" for a damaged frame.
std::string renderLayoutText(FrameLayout const &layout);
// The same as one JSON object (keys: length, head, nodes, nameTable, trailing,
// fault), with a line feed behind it.
std::string renderLayoutJson(FrameLayout const &layout);

} // namespace Tool
} // namespace KVX

#endif // KVX_TOOLS_FRAMEDUMP_H
