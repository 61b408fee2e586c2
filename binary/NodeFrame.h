// What the node operations share: the frame's geometry read once per
// operation, the checks of nodes and paths against the root section, the gap
// that an insertion opens, and the room that building at the end keeps open.
// Header only, for binary/NodeOperations.cpp, binary/BuildingAtEnd.cpp and
// binary/NameEntries.cpp; every function works on one document, not
// thread-safe.
#ifndef KVX_BINARY_NODEFRAME_H
#define KVX_BINARY_NODEFRAME_H

#include "binary/FrameGeometry.h"
#include "binary/KVXBinaryInternals.h"
#include "binary/Node.h"
#include "binary/WireFormat.h"
#include "message/VersionText.h"

#include <kvx/BinaryPath.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

namespace KVX {
namespace Internal {

// The geometry of a frame, read once per operation: the head and the root's
// header are decoded a single time however long the path is.
struct Geometry {
    std::uint32_t used;
    std::uint32_t rootEnd;  // end of the root section = start of the name table
    std::uint32_t frameEnd; // end of the frame computed from the head
    unsigned format;
};

inline bool hasHead(KVXBinaryInternals const &doc) {
    return doc.buffer != nullptr && doc.used >= static_cast<int>(FrameHeadSize);
}

// Requires: hasHead(doc).
inline Geometry geometryOf(KVXBinaryInternals const &doc) {
    Geometry frame;
    frame.used = static_cast<std::uint32_t>(doc.used);
    frame.rootEnd = rootSectionEnd(doc.buffer, frame.used);
    // The table size is below 2^24 and the root end at most `used`: no wrap.
    frame.frameEnd = frame.rootEnd + nameTableSize(doc.buffer);
    frame.format = frameFormat(doc.buffer);
    return frame;
}

// The head says where the frame ends; an edit moves bytes up to there, so that
// end must lie inside what is in use. False for a frame that is not sound.
inline bool readGeometry(KVXBinaryInternals const &doc, Geometry &frame) {
    if (!hasHead(doc))
        return false;
    frame = geometryOf(doc);
    return frame.frameEnd <= frame.used;
}

// The node size of the node at `offset` when its header and the whole node lie
// inside the root section, else 0 (no node is smaller than a short header).
// Reads the header directly: the bounds are checked here, once.
inline std::uint64_t nodeBytesInsideRoot(char const *buffer, Geometry const &frame,
                                         std::uint32_t offset) {
    if (offset < RootOffset || offset >= frame.rootEnd || frame.used < ShortHeaderSize ||
        offset > frame.used - ShortHeaderSize)
        return 0;
    std::uint64_t const bytes =
        Internal::nodeSize(load32(buffer + offset + 8), load16(buffer + offset + 4), frame.format);
    return offset + bytes <= frame.rootEnd ? bytes : 0;
}

// Adds `delta` to the size field of the node at `offset`.
inline void addToSize(char *buffer, std::uint32_t offset, std::int64_t delta) {
    std::int64_t const size = static_cast<std::int64_t>(load32(buffer + offset + 8)) + delta;
    store32(buffer + offset + 8, static_cast<std::uint32_t>(size));
}

// A value that lies in the document's own buffer (a graft from the document
// into itself) would move under the copy when the buffer grows or the tail
// shifts; such a value is copied aside first.
inline char const *keepApart(KVXBinaryInternals const &doc, void const *value, std::uint32_t length,
                             std::vector<char> &aside) {
    char const *const bytes = static_cast<char const *>(value);
    std::less<char const *> const before;
    if (bytes != nullptr && doc.buffer != nullptr && !before(bytes, doc.buffer) &&
        before(bytes, doc.buffer + doc.capacity)) {
        aside.assign(bytes, bytes + length);
        return aside.data();
    }
    return bytes;
}

inline bool addsNul(unsigned short kind, bool terminate) {
    return terminate || kind == KindBase64;
}

// The size field of a node holding `length` bytes of value and the NUL that
// addsNul asks for; false when it does not fit 32 bits.
inline bool valueSizeOf(unsigned short kind, std::uint32_t length, bool terminate,
                        std::uint32_t &valueSize) {
    std::uint64_t const size =
        static_cast<std::uint64_t>(length) + (addsNul(kind, terminate) ? 1 : 0);
    if (size > UINT32_MAX)
        return false;
    valueSize = static_cast<std::uint32_t>(size);
    return true;
}

// insertNode after its checks of the frame: opens a gap of `nodeBytes` at
// `offset` (at most the root end) and writes kind and size there; the rest of
// the node is zero. 0 when the growth fails or a typed leaf would open the root.
inline std::uint32_t openGap(KVXBinaryInternals &doc, Geometry const &frame,
                             std::uint64_t nodeBytes, std::uint32_t size, unsigned short kind,
                             std::uint32_t offset) {
    bool const opensRoot = frameIsEmpty(doc.buffer);
    // Only an element or a container clears the empty flag. A typed leaf in a
    // frame without a root would stand where the name table starts and be
    // invisible; it is refused before anything moves.
    if (opensRoot && kind != KindUntyped && !isContainerKind(kind))
        return 0;
    if (nodeBytes > UINT32_MAX)
        return 0;
    int const capacityBefore = doc.capacity;
    // The growth rule reallocates only when the capacity is not above used + n;
    // most appends find room and skip the call.
    if (static_cast<std::uint64_t>(doc.capacity) <= frame.used + nodeBytes &&
        !doc.grow(static_cast<std::uint32_t>(nodeBytes)))
        return 0;
    bool const reallocated = doc.capacity != capacityBefore;
    char *const buffer = doc.buffer;
    std::memmove(buffer + offset + nodeBytes, buffer + offset, frame.frameEnd - offset);
    std::memset(buffer + offset, 0, nodeBytes);
    store16(buffer + offset + 4, kind);
    store32(buffer + offset + 8, size);
    if (opensRoot)
        store32(buffer + 4, frameFlags(buffer) & ~FlagEmpty);
    // Cursors hold offsets: only nodes behind this one have moved, and an
    // append at the very end of the root section moves none of theirs.
    if (!reallocated && offset < frame.rootEnd)
        ++doc.stamp;
    doc.used += static_cast<int>(nodeBytes);
    return static_cast<std::uint32_t>(nodeBytes);
}

// Room is opened only where it saves more than it costs: opening and closing
// each move the name table once.
constexpr std::uint32_t MinimumRoom = 1024;

// Moves the name table to the top of the buffer, so that the free capacity
// lies between it and the root section. Requires: no room open.
inline void openRoom(KVXBinaryInternals &doc, Geometry const &frame) {
    // Only a frame whose table ends where `used` ends: the table must stay at
    // the same distance from `used` for the names to be found.
    if (frame.frameEnd != frame.used)
        return;
    std::uint32_t const spare =
        static_cast<std::uint32_t>(doc.capacity - doc.used) & ~(NodeAlignment - 1);
    if (spare < MinimumRoom)
        return;
    std::memmove(doc.buffer + frame.rootEnd + spare, doc.buffer + frame.rootEnd,
                 frame.frameEnd - frame.rootEnd);
    doc.used += static_cast<int>(spare);
    doc.room = spare;
    ++doc.roomOpenings;
}

// Gives a node whose gap holds its kind and size, zeros elsewhere, its id,
// namespace and value.
inline void fillNode(char *at, int id, unsigned short ns, unsigned short kind,
                     std::uint32_t valueSize, char const *value, std::uint32_t length) {
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 6, ns);
    if (value != nullptr && length != 0)
        std::memcpy(at + headerSize(valueSize, static_cast<unsigned>(kind)), value, length);
}

// The end of an append whose node stands at `position`: the node joins the
// path; the "version" attribute (101) sets the document's version, and an
// element or namespace needs its name recorded, which is the result. 0 or -1.
inline int endAppend(KVXBinaryInternals &doc, BinaryPath &path, int id, std::uint32_t position,
                     char const *value, std::uint32_t length) {
    // Filled in place: a PathEntry built aside is stored in halves and read
    // back whole, which stalls the store buffer on every node.
    path.entries.emplace_back();
    path.entries.back().id = id;
    path.entries.back().offset = position;
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId)) {
        if (value != nullptr && id == 101)
            doc.ids.version = parseVersionText(value, length);
        return 0;
    }
    return doc.ids.recordsName(id) ? 0 : -1;
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_NODEFRAME_H
