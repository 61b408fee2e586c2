// Subtree grafting: copies a node with its descendants from one frame under a
// node of another document, taking every id through its name so that it means
// the same in the target. The source bytes are only read; the target is edited
// through the node operations of KVXBinaryInternals. Not thread-safe.
#ifndef KVX_BINARY_GRAFTING_H
#define KVX_BINARY_GRAFTING_H

#include <kvx/BinaryPath.h>

#include <cstdint>
#include <vector>

namespace KVX {

class KVXBinaryInternals;
class KVXProtocolIDMap;

namespace Internal {

// The bytes a graft reads from. Nothing outside `limit` is read, and the top
// node and everything below it must lie before `rootEnd` (<= limit).
struct GraftSource {
    char const *base;      // start of the frame (or of a snapshot of one subtree)
    std::uint32_t limit;   // readable bytes at `base`
    std::uint32_t rootEnd; // end of the root section, where the name table starts
    unsigned format;       // format byte that gives the node sizes of these bytes
};

// The view of a complete frame of `length` bytes whose head has been checked
// (magic, and a total length that adds up).
GraftSource frameSource(char const *frame, std::uint32_t length);

// Grafts the node at the end of `sourcePath` (the root when the path is empty)
// as a new last child of the node at the end of `at` in `target`; `at` itself
// is not changed. Source ids are named through `sourceIds`. 0, or -1 when a
// node has no name (attributes and id 0 included), a node does not lie inside
// its parent, or an edit fails; nodes copied before a failure stay.
// Requires: `source` is not the target's own buffer (snapshot it first).
int graftSubtree(GraftSource const &source, BinaryPath const &sourcePath,
                 KVXProtocolIDMap &sourceIds, KVXBinaryInternals &target, BinaryPath const &at);

// The entries of a received frame's name table, as views into the frame: what
// an id map without an owner would read, without its maps and aliases, which a
// graft from bytes does not consult (it only names the frame's ids).
struct FrameNames {
    struct Entry {
        int id;
        bool type; // a complex type's entry; else an element's or namespace's
        char const *text;
        std::uint32_t length;
    };
    std::vector<Entry> entries; // newest first, as the table is walked
};

// Reads the name table of a whole frame of `length` bytes. 0, or -1 when it is
// corrupt (the faults that KVXProtocolIDMap::readNameTable refuses).
int readFrameNames(char const *frame, std::uint32_t length, FrameNames &names);

// As above, naming the source's ids through a frame's table read by
// readFrameNames; the frame must outlive the graft.
int graftSubtree(GraftSource const &source, BinaryPath const &sourcePath,
                 FrameNames const &sourceNames, KVXBinaryInternals &target, BinaryPath const &at);

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_GRAFTING_H
