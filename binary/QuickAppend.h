// KVXBinaryInternals::quickAppend and quickSettle: the text parser's appends
// of its common elements into the room, with the checks of the frame as a
// whole made once for a run of appends instead of once per node. Header only:
// they are inlined into the parser's loop. Not thread-safe, as every node
// operation.
#ifndef KVX_BINARY_QUICKAPPEND_H
#define KVX_BINARY_QUICKAPPEND_H

#include "binary/KVXBinaryInternals.h"
#include "binary/ShortCopy.h"
#include "binary/WireFormat.h"

#include <climits>
#include <cstring>
#include <functional>

namespace KVX {

inline bool KVXBinaryInternals::quickAppend(QuickState &state, BinaryPath &path, int id,
                                            char const *value, std::uint32_t length, bool leaf,
                                            bool trusted, bool recorded) {
    using namespace Internal;
    // A trusted state is one that the caller knows to be current: the last
    // quickAppend succeeded and nothing but quickSettle and settleAtEnd ran
    // since. Otherwise it is compared with the frame, and the root's size
    // read again in case something set it without moving the room.
    if (!trusted &&
        (((state.used != used || state.room != room || state.buffer != buffer ||
           state.capacity != capacity || state.opening != roomOpenings || state.rootEnd == 0) &&
          !checkQuickState(state)) ||
         load32(buffer + RootOffset + 8) != state.rootSize))
        return false;
    // An element whose name this document recorded already: append would
    // report the name, and here it needs no search.
    static_assert(KVXProtocolIDMap::FirstCachedId > LastAttributeId,
                  "isRecorded is false for attribute ids");
    // The path's first entry stays the root while only quick appends and
    // settles change the path's end.
    if ((!trusted &&
         (path.entries.empty() || path.entries.front().offset != RootOffset || ids.tableCorrupt)) ||
        (!recorded && !ids.isRecorded(id)) || length >= UINT32_MAX - 16)
        return false;
    std::uint32_t const rootEnd = state.rootEnd;
    std::uint32_t const valueSize = leaf ? length + 1 : 0;
    std::uint32_t const nodeBytes =
        static_cast<std::uint32_t>(Internal::nodeSize(valueSize, KindUntyped, state.format));
    std::uint32_t const parent = path.entries.back().offset;
    std::less<char const *> const before;
    if (room < nodeBytes ||
        static_cast<std::uint64_t>(capacity) <=
            static_cast<std::uint64_t>(frameLength()) + nodeBytes ||
        state.rootSize > UINT32_MAX - nodeBytes ||
        (value != nullptr && !before(value, buffer) && before(value, buffer + capacity)))
        return false;
    bool convert = false;
    if (parent != state.parent) {
        // The parent is a container, or an element without a value that is
        // the last node: the first child makes it a container in place. A
        // container stays one, and inside the root section, until another
        // operation edits the frame; the state then starts over.
        if (parent < RootOffset || parent > rootEnd - LongHeaderSize)
            return false;
        unsigned const parentKind = load16(buffer + parent + 4);
        std::uint64_t const parentBytes =
            Internal::nodeSize(load32(buffer + parent + 8), parentKind, state.format);
        convert = !isContainerKind(parentKind);
        if (parent + parentBytes > rootEnd ||
            (convert && (parentKind != KindUntyped || parentBytes != LongHeaderSize ||
                         parent + LongHeaderSize != rootEnd)))
            return false;
        if (convert) {
            store16(buffer + parent + 4, KindStructure);
            store32(buffer + parent + 8, 0);
        }
        state.parent = parent;
    }
    unsigned short ns = load16(buffer + parent + 6);
    if (!path.namespaces.empty())
        ns = static_cast<unsigned short>(static_cast<std::uint32_t>(path.namespaces.back()) &
                                         0xFFFFu);
    char *const at = buffer + rootEnd;
    // Cleared as appendAtEnd clears the room: a value covers everything
    // between its first 16 and its last 8 bytes, its NUL included.
    std::memset(at, 0, 16);
    if (leaf) {
        std::memset(at + nodeBytes - 8, 0, 8);
        store32(at + 8, valueSize);
        if (value != nullptr && length != 0)
            Internal::copyShort(at + headerSize(valueSize, KindUntyped), value, length);
    }
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 6, ns);
    // A root made a container here starts from size 0, as in appendAtEnd.
    std::uint32_t const rootSize =
        (convert && parent == RootOffset ? 0 : state.rootSize) + nodeBytes;
    store32(buffer + RootOffset + 8, rootSize);
    room -= nodeBytes;
    state.room = room;
    state.rootEnd = rootEnd + nodeBytes;
    state.rootSize = rootSize;
    if (!leaf) {
        path.entries.emplace_back();
        path.entries.back().id = id;
        path.entries.back().offset = rootEnd;
    }
    return true;
}

inline bool KVXBinaryInternals::quickSettle(QuickState const &state, std::uint32_t offset,
                                            bool trusted) {
    using namespace Internal;
    if (!trusted && (state.used != used || state.room != room || state.buffer != buffer ||
                     state.capacity != capacity || state.opening != roomOpenings ||
                     state.rootEnd == 0 || load32(buffer + RootOffset + 8) != state.rootSize))
        return false;
    // settleAtEnd's checks, on the root section's end that the state knows.
    if (offset < RootOffset || offset > state.rootEnd - LongHeaderSize)
        return true;
    if (isContainerKind(load16(buffer + offset + 4)))
        store32(buffer + offset + 8, state.rootEnd - offset - LongHeaderSize);
    return true;
}

} // namespace KVX

#endif // KVX_BINARY_QUICKAPPEND_H
