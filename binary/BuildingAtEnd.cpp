// Building at the end, for the text parser, which writes a frame front to
// back: the room between the root section and the name table, appendAtEnd and
// appendTextAtEnd that add nodes into it, settleAtEnd that gives a closed
// element its size, and the checks behind quickAppend. Not thread-safe.
#include "binary/KVXBinaryInternals.h"
#include "binary/NodeFrame.h"
#include "binary/QuickAppend.h"
#include "binary/WireFormat.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace KVX {

using namespace Internal;

void KVXBinaryInternals::closeRoom() {
    if (room == 0)
        return;
    // The table ends at `used`; it moves down to the end of the root section.
    std::uint32_t const start = rootSectionEnd(buffer, static_cast<std::uint32_t>(used));
    std::uint32_t const table = nameTableSize(buffer);
    std::memmove(buffer + start, buffer + static_cast<std::uint32_t>(used) - table, table);
    used = static_cast<int>(start + table);
    room = 0;
}

int KVXBinaryInternals::appendAtEnd(BinaryPath &path, int id, unsigned short kind,
                                    void const *value, std::uint32_t length, bool terminate) {
    Geometry frame;
    if (path.entries.empty()) {
        // The root of a build: the room opens behind it at once, so that the
        // name table entries of its attributes and declarations go straight
        // into the room instead of moving the table one entry at a time.
        int const result = append(path, id, kind, value, length, terminate);
        if (result == 0 && readGeometry(*this, frame) && !frameIsEmpty(buffer) &&
            static_cast<std::uint64_t>(capacity) > static_cast<std::uint64_t>(frameLength()))
            openRoom(*this, frame);
        return result;
    }
    if (!readGeometry(*this, frame) || frameIsEmpty(buffer) ||
        path.entries.front().offset != RootOffset)
        return append(path, id, kind, value, length, terminate);
    std::uint32_t valueSize = 0;
    if (!valueSizeOf(kind, length, terminate, valueSize))
        return -1;
    std::uint64_t const nodeBytes = Internal::nodeSize(valueSize, kind, frame.format);
    // The root's size is the largest of the path's, the one that append's
    // checks would refuse first; the others are settled from it.
    if (load32(buffer + RootOffset + 8) + nodeBytes > UINT32_MAX)
        return -1;
    std::uint32_t const parent = path.entries.back().offset;
    if (nodeBytesInsideRoot(buffer, frame, parent) == 0)
        return -1;
    unsigned const parentKind = load16(buffer + parent + 4);
    bool convert = false;
    if (!isContainerKind(parentKind)) {
        // As in append: only an element without a value, or with a text of up
        // to four bytes, takes a child, and it must be the last node.
        if (parentKind != KindUntyped ||
            Internal::nodeSize(load32(buffer + parent + 8), parentKind, frame.format) !=
                LongHeaderSize ||
            parent + LongHeaderSize != frame.rootEnd)
            return -1;
        convert = true;
    }
    unsigned short ns = load16(buffer + parent + 6);
    if (!path.namespaces.empty())
        ns = static_cast<unsigned short>(static_cast<std::uint32_t>(path.namespaces.back()) &
                                         0xFFFFu);
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    // Where append would reallocate, the room closes and append's own way is
    // taken; otherwise the node goes into the room, opened if need be.
    bool const grows = static_cast<std::uint64_t>(capacity) <=
                       static_cast<std::uint64_t>(frameLength()) + nodeBytes;
    if (room != 0 && (grows || room < nodeBytes)) {
        closeRoom();
        frame = geometryOf(*this);
    } else if (room == 0 && !grows) {
        openRoom(*this, frame);
        frame = geometryOf(*this);
    }
    if (convert) {
        store16(buffer + parent + 4, KindStructure);
        store32(buffer + parent + 8, 0);
    }
    std::uint32_t const position = frame.rootEnd;
    std::uint32_t inserted = 0;
    if (room != 0) {
        // What openGap leaves, without the move: appends at the end of the
        // root section raise no stamp, and nothing was reallocated. Only the
        // first 16 and the last 8 bytes are cleared where a value follows: it
        // covers everything between, and its NUL falls into one of the two.
        if (source != nullptr) {
            std::memset(buffer + position, 0, 16);
            std::memset(buffer + position + nodeBytes - 8, 0, 8);
        } else {
            std::memset(buffer + position, 0, nodeBytes);
        }
        store16(buffer + position + 4, kind);
        store32(buffer + position + 8, valueSize);
        inserted = static_cast<std::uint32_t>(nodeBytes);
        room -= inserted;
    } else {
        inserted = openGap(*this, frame, nodeBytes, valueSize, kind, position);
        if (inserted == 0)
            return -1;
    }
    fillNode(buffer + position, id, ns, kind, valueSize, source, length);
    addToSize(buffer, RootOffset, inserted);
    return endAppend(*this, path, id, position, source, length);
}

bool KVXBinaryInternals::checkQuickState(QuickState &state) const {
    // Room open in a sound frame with a root, whose table lies at the top of
    // the buffer: the state that appendAtEnd keeps while a parse builds.
    Geometry frame;
    if (room == 0 || ids.tableCorrupt || !readGeometry(*this, frame) || frameIsEmpty(buffer) ||
        static_cast<std::uint64_t>(frame.rootEnd) + room + nameTableSize(buffer) !=
            static_cast<std::uint64_t>(used) ||
        frame.rootEnd < RootOffset + LongHeaderSize)
        return false;
    state.buffer = buffer;
    state.capacity = capacity;
    state.used = used;
    state.room = room;
    state.rootEnd = frame.rootEnd;
    state.rootSize = load32(buffer + RootOffset + 8);
    state.format = frame.format;
    state.parent = 0;
    state.opening = roomOpenings;
    return true;
}

int KVXBinaryInternals::appendTextAtEnd(BinaryPath &path, int id, char const *value,
                                        std::uint32_t length) {
    QuickState state;
    if (quickAppend(state, path, id, value, length, true))
        return 0;
    int const result = appendAtEnd(path, id, KindUntyped, value, length, true);
    if (result == 0)
        path.entries.pop_back();
    return result;
}

int KVXBinaryInternals::appendElementAtEnd(BinaryPath &path, int id) {
    // An attribute id takes append's own way: it records no name.
    QuickState state;
    if (static_cast<unsigned>(id) > static_cast<unsigned>(LastAttributeId) &&
        quickAppend(state, path, id, nullptr, 0, false, false, true))
        return ids.recordsName(id) ? 0 : -1; // the test that append makes last
    return appendAtEnd(path, id, KindUntyped, nullptr, 0, false);
}

void KVXBinaryInternals::settleAtEnd(std::uint32_t offset) {
    Geometry frame;
    if (!readGeometry(*this, frame) || offset < RootOffset || frame.rootEnd < LongHeaderSize ||
        offset > frame.rootEnd - LongHeaderSize || !isContainerKind(load16(buffer + offset + 4)))
        return;
    // A container's node is its long header and its children, which are
    // multiples of 8 in either format: it reaches the root end exactly.
    store32(buffer + offset + 8, frame.rootEnd - offset - LongHeaderSize);
}

} // namespace KVX
