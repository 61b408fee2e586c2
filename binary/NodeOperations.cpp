// Node operations of KVXBinaryInternals: the only code that inserts, resizes and
// removes nodes and name table entries in the document's frame (its malloc'd
// buffer). Each edit is one memmove behind the edit point plus a patch of the
// ancestors' sizes; every offset is checked against the root section and `used`
// first, so a damaged frame or stale path is refused. Not thread-safe.
#include "binary/KVXBinaryInternals.h"
#include "binary/QuickAppend.h"

#include "binary/WireFormat.h"
#include "message/VersionText.h"

#include <cstring>
#include <functional>
#include <vector>

namespace KVX {

using namespace Internal;

namespace {

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

bool frameIsSound(KVXBinaryInternals const &doc) {
    Geometry frame;
    return readGeometry(doc, frame);
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

// A node header at `offset` whose whole node lies inside the root section.
// Only the root section counts here, not the name table.
bool nodeInsideRoot(KVXBinaryInternals const &doc, std::uint32_t offset) {
    return hasHead(doc) && nodeBytesInsideRoot(doc.buffer, geometryOf(doc), offset) != 0;
}

// True when every entry of `path` (all of them, or all but the last when
// `skipLast`) lies whole inside the root section and can take `delta` in its
// size field within 32 bits. One pass, so a path is decoded once per edit.
bool pathTakes(char const *buffer, Geometry const &frame, BinaryPath const &path,
               std::int64_t delta, bool skipLast) {
    std::size_t const count = path.entries.size() - (skipLast ? 1 : 0);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t const offset = path.entries[i].offset;
        if (nodeBytesInsideRoot(buffer, frame, offset) == 0)
            return false;
        std::int64_t const size = static_cast<std::int64_t>(load32(buffer + offset + 8)) + delta;
        if (size < 0 || size > static_cast<std::int64_t>(UINT32_MAX))
            return false;
    }
    return true;
}

bool pathInsideRoot(KVXBinaryInternals const &doc, BinaryPath const &path) {
    if (!hasHead(doc))
        return path.entries.empty();
    Geometry const frame = geometryOf(doc);
    for (PathEntry const &entry : path.entries) {
        if (nodeBytesInsideRoot(doc.buffer, frame, entry.offset) == 0)
            return false;
    }
    return true;
}

// Adds `delta` to the size field of the node at `offset`.
void addToSize(char *buffer, std::uint32_t offset, std::int64_t delta) {
    std::int64_t const size = static_cast<std::int64_t>(load32(buffer + offset + 8)) + delta;
    store32(buffer + offset + 8, static_cast<std::uint32_t>(size));
}

// True when adding `delta` keeps the size of the node at `offset` in 32 bits.
bool sizeTakes(KVXBinaryInternals const &doc, std::uint32_t offset, std::int64_t delta) {
    std::int64_t const size = static_cast<std::int64_t>(doc.node(offset).size()) + delta;
    return size >= 0 && size <= static_cast<std::int64_t>(UINT32_MAX);
}

// A value that lies in the document's own buffer (a graft from the document
// into itself) would move under the copy when the buffer grows or the tail
// shifts; such a value is copied aside first.
char const *keepApart(KVXBinaryInternals const &doc, void const *value, std::uint32_t length,
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

// Writes the value of the node at `offset` and clears every byte of the node
// behind its first 12, so that no stale bytes of earlier content remain in
// its padding. A value that does not fit the node is not written.
void storeValue(KVXBinaryInternals &doc, std::uint32_t offset, char const *value,
                std::uint32_t length, bool addNul) {
    binary::Node const node = doc.node(offset);
    std::uint64_t const end = node.end();
    std::uint32_t const valueOffset = node.valueOffset();
    std::memset(doc.buffer + offset + ShortHeaderSize, 0, end - (offset + ShortHeaderSize));
    if (static_cast<std::uint64_t>(valueOffset) + length + (addNul ? 1 : 0) > end)
        return;
    if (value != nullptr && length != 0)
        std::memcpy(doc.buffer + valueOffset, value, length);
    if (addNul)
        doc.buffer[valueOffset + length] = '\0';
}

bool addsNul(unsigned short kind, bool terminate) {
    return terminate || kind == KindBase64;
}

// insertNode after its checks of the frame: opens a gap of `nodeBytes` at
// `offset` (at most the root end) and writes kind and size there; the rest of
// the node is zero. 0 when the growth fails or a typed leaf would open the root.
std::uint32_t openGap(KVXBinaryInternals &doc, Geometry const &frame, std::uint64_t nodeBytes,
                      std::uint32_t size, unsigned short kind, std::uint32_t offset) {
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

// Copies a name of `length` bytes. Names are a few bytes long: up to 16 go by
// two overlapping loads and stores instead of a call to memcpy.
template <typename Word> void copyEnds(char *to, char const *from, std::uint32_t length) {
    Word head;
    Word tail;
    std::memcpy(&head, from, sizeof(Word));
    std::memcpy(&tail, from + length - sizeof(Word), sizeof(Word));
    std::memcpy(to, &head, sizeof(Word));
    std::memcpy(to + length - sizeof(Word), &tail, sizeof(Word));
}

void copyName(char *to, char const *from, std::uint32_t length) {
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

// Writes a name table entry of `entryBytes` at `at`: id, table kind, the size
// of the text with its NUL, the text, and zeros elsewhere.
inline void writeNameEntry(char *at, int id, int tableKind, char const *name, std::uint32_t length,
                           std::uint64_t entryBytes) {
    // An entry has at least 16 bytes, and its padding lies within its last 8:
    // clearing the header and those 8 leaves no byte unwritten, without a
    // call to clear a few bytes.
    std::memset(at, 0, 16);
    std::memset(at + entryBytes - 8, 0, 8);
    std::uint32_t const valueSize = length + 1;
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 4, static_cast<std::uint16_t>(tableKind));
    store32(at + 8, valueSize);
    char *const text = at + headerSize(valueSize, static_cast<unsigned>(tableKind));
    copyName(text, name, length);
    text[length] = '\0';
}

// Room is opened only where it saves more than it costs: opening and closing
// each move the name table once.
constexpr std::uint32_t MinimumRoom = 1024;

// Moves the name table to the top of the buffer, so that the free capacity
// lies between it and the root section. Requires: no room open.
void openRoom(KVXBinaryInternals &doc, Geometry const &frame) {
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

} // namespace

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

std::uint32_t KVXBinaryInternals::insertNode(std::uint32_t size, unsigned short kind,
                                             std::uint32_t offset) {
    closeRoom();
    Geometry frame;
    if (!readGeometry(*this, frame))
        return 0;
    // A node goes inside the root section or at its end, where the caller then
    // grows the enclosing nodes; never into the name table.
    if (offset < RootOffset || offset > frame.rootEnd)
        return 0;
    return openGap(*this, frame, Internal::nodeSize(size, kind, frame.format), size, kind, offset);
}

int KVXBinaryInternals::append(BinaryPath &path, int id, unsigned short kind, void const *value,
                               std::uint32_t length, bool terminate) {
    closeRoom();
    Geometry frame;
    if (!readGeometry(*this, frame))
        return -1;
    bool const addNul = addsNul(kind, terminate);
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + (addNul ? 1 : 0);
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const nodeBytes =
        Internal::nodeSize(static_cast<std::uint32_t>(valueSize), kind, frame.format);
    std::uint32_t position = 0;
    unsigned short ns = 0;
    bool convert = false;
    std::uint32_t parent = 0;
    if (path.entries.empty()) {
        // The root position. A frame that has a root already would get a second
        // top-level node outside it.
        if (!frameIsEmpty(buffer))
            return -1;
        position = frame.rootEnd;
    } else {
        if (!pathTakes(buffer, frame, path, static_cast<std::int64_t>(nodeBytes), false))
            return -1;
        parent = path.entries.back().offset;
        unsigned const parentKind = load16(buffer + parent + 4);
        std::uint32_t const parentSize = load32(buffer + parent + 8);
        std::uint64_t const parentBytes = Internal::nodeSize(parentSize, parentKind, frame.format);
        if (isContainerKind(parentKind)) {
            position = static_cast<std::uint32_t>(parent + parentBytes);
        } else if (parentKind == KindUntyped && parentBytes == LongHeaderSize) {
            // An element without a value, or with a text of up to four bytes
            // (such as the empty text of "<cookie></cookie>"), has the node size
            // of an empty container: it becomes one in place, and what text it
            // had stays behind in the long header's padding.
            convert = true;
            position = static_cast<std::uint32_t>(parent + parentBytes);
        } else {
            // A typed leaf, or an element holding text: there is no place for a
            // child behind the value, and the plain position would be offset 0.
            return -1;
        }
        ns = load16(buffer + parent + 6);
    }
    if (!path.namespaces.empty())
        ns = static_cast<unsigned short>(static_cast<std::uint32_t>(path.namespaces.back()) &
                                         0xFFFFu);
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    if (convert) {
        store16(buffer + parent + 4, KindStructure);
        store32(buffer + parent + 8, 0);
    }
    std::uint32_t const inserted =
        openGap(*this, frame, nodeBytes, static_cast<std::uint32_t>(valueSize), kind, position);
    if (inserted == 0)
        return -1;
    // The gap is zeroed and holds kind and size: id, ns and the value complete it.
    char *const at = buffer + position;
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 6, ns);
    std::uint32_t const valueOffset =
        headerSize(static_cast<std::uint32_t>(valueSize), static_cast<unsigned>(kind));
    if (source != nullptr && length != 0)
        std::memcpy(at + valueOffset, source, length);
    for (PathEntry const &entry : path.entries)
        addToSize(buffer, entry.offset, inserted);
    path.entries.push_back(PathEntry{id, position});
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId)) {
        if (source != nullptr && id == 101)
            ids.version = parseVersionText(source, length);
        return 0;
    }
    return ids.recordsName(id) ? 0 : -1;
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
    bool const addNul = addsNul(kind, terminate);
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + (addNul ? 1 : 0);
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const nodeBytes =
        Internal::nodeSize(static_cast<std::uint32_t>(valueSize), kind, frame.format);
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
        store32(buffer + position + 8, static_cast<std::uint32_t>(valueSize));
        inserted = static_cast<std::uint32_t>(nodeBytes);
        room -= inserted;
    } else {
        inserted =
            openGap(*this, frame, nodeBytes, static_cast<std::uint32_t>(valueSize), kind, position);
        if (inserted == 0)
            return -1;
    }
    char *const at = buffer + position;
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 6, ns);
    if (source != nullptr && length != 0)
        std::memcpy(at + headerSize(static_cast<std::uint32_t>(valueSize), kind), source, length);
    addToSize(buffer, RootOffset, inserted);
    // Filled in place: a PathEntry built aside is stored in halves and read
    // back whole, which stalls the store buffer on every node.
    path.entries.emplace_back();
    path.entries.back().id = id;
    path.entries.back().offset = position;
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId)) {
        if (source != nullptr && id == 101)
            ids.version = parseVersionText(source, length);
        return 0;
    }
    return ids.recordsName(id) ? 0 : -1;
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

void KVXBinaryInternals::settleAtEnd(std::uint32_t offset) {
    Geometry frame;
    if (!readGeometry(*this, frame) || offset < RootOffset || frame.rootEnd < LongHeaderSize ||
        offset > frame.rootEnd - LongHeaderSize || !isContainerKind(load16(buffer + offset + 4)))
        return;
    // A container's node is its long header and its children, which are
    // multiples of 8 in either format: it reaches the root end exactly.
    store32(buffer + offset + 8, frame.rootEnd - offset - LongHeaderSize);
}

namespace {

// resizeNode after its checks: the node at `offset`, of `oldBytes`, takes the
// new size and kind. True on failure, as resizeNode reports it.
bool resizeAt(KVXBinaryInternals &doc, Geometry const &frame, std::uint32_t offset,
              std::uint64_t oldBytes, std::uint32_t newSize, unsigned short kind,
              std::int64_t &delta) {
    std::uint64_t const newBytes = Internal::nodeSize(newSize, kind, frame.format);
    std::int64_t const change =
        static_cast<std::int64_t>(newBytes) - static_cast<std::int64_t>(oldBytes);
    bool const last = offset + oldBytes >= frame.rootEnd;
    int const capacityBefore = doc.capacity;
    if (change > 0) {
        if (change > static_cast<std::int64_t>(UINT32_MAX) ||
            !doc.grow(static_cast<std::uint32_t>(change)))
            return true;
    }
    bool const reallocated = doc.capacity != capacityBefore;
    char *const buffer = doc.buffer;
    std::memmove(buffer + offset + newBytes, buffer + offset + oldBytes,
                 frame.frameEnd - (offset + oldBytes));
    store16(buffer + offset + 4, kind);
    store32(buffer + offset + 8, newSize);
    // Even an unchanged node size counts: a cursor behind it may have read the
    // old value.
    if (!reallocated && !last)
        ++doc.stamp;
    doc.used += static_cast<int>(change);
    delta = change;
    return false;
}

} // namespace

bool KVXBinaryInternals::resizeNode(std::uint32_t newSize, unsigned short kind,
                                    std::uint32_t offset, std::int64_t &delta) {
    delta = 0;
    closeRoom();
    Geometry frame;
    if (!readGeometry(*this, frame))
        return true;
    std::uint64_t const oldBytes = nodeBytesInsideRoot(buffer, frame, offset);
    if (oldBytes == 0)
        return true;
    return resizeAt(*this, frame, offset, oldBytes, newSize, kind, delta);
}

int KVXBinaryInternals::replaceValue(BinaryPath &path, unsigned short kind, void const *value,
                                     std::uint32_t length, bool terminate) {
    closeRoom();
    Geometry frame;
    if (!readGeometry(*this, frame) || path.entries.empty())
        return -1;
    std::uint32_t const offset = path.entries.back().offset;
    std::uint64_t const oldBytes = nodeBytesInsideRoot(buffer, frame, offset);
    if (oldBytes == 0 || !pathTakes(buffer, frame, path, 0, true))
        return -1;
    // A container takes no value; with none it becomes a leaf and loses its children.
    if (length > 0 && isContainerKind(load16(buffer + offset + 4)))
        return -1;
    bool const addNul = addsNul(kind, terminate);
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + (addNul ? 1 : 0);
    if (valueSize > UINT32_MAX)
        return -1;
    std::int64_t const change = static_cast<std::int64_t>(Internal::nodeSize(
                                    static_cast<std::uint32_t>(valueSize), kind, frame.format)) -
                                static_cast<std::int64_t>(oldBytes);
    if (change != 0 && !pathTakes(buffer, frame, path, change, true))
        return -1;
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    std::int64_t delta = 0;
    if (resizeAt(*this, frame, offset, oldBytes, static_cast<std::uint32_t>(valueSize), kind,
                 delta))
        return -1;
    storeValue(*this, offset, source, length, addNul);
    std::size_t const ancestors = path.entries.size() - 1;
    for (std::size_t i = 0; i < ancestors; ++i)
        addToSize(buffer, path.entries[i].offset, delta);
    if (source != nullptr && load32(buffer + offset) == 101u)
        ids.version = parseVersionText(source, length);
    return 0;
}

void KVXBinaryInternals::remove(BinaryPath &path) {
    ++stamp;
    closeRoom();
    if (path.entries.empty())
        return;
    std::uint32_t const offset = path.entries.back().offset;
    // A path or frame that does not hold together is popped without moving a
    // byte: the gap to close would be taken from damaged sizes.
    bool sound = frameIsSound(*this) && pathInsideRoot(*this, path);
    std::uint64_t const nodeBytes = sound ? node(offset).nodeSize() : 0;
    for (std::size_t i = 0; sound && i + 1 < path.entries.size(); ++i)
        sound = sizeTakes(*this, path.entries[i].offset, -static_cast<std::int64_t>(nodeBytes));
    if (sound) {
        std::uint32_t const end = frameEnd();
        std::memmove(buffer + offset, buffer + offset + nodeBytes, end - (offset + nodeBytes));
        used -= static_cast<int>(nodeBytes);
        for (std::size_t i = 0; i + 1 < path.entries.size(); ++i)
            addToSize(buffer, path.entries[i].offset, -static_cast<std::int64_t>(nodeBytes));
    }
    // The name table keeps its entries: a name stays after its last user.
    path.entries.pop_back();
}

namespace {

// addNameEntry where its quick case does not hold: a text inside the buffer,
// no room open, or room that the entry would close. Kept out of line, so that
// the quick case saves and restores few registers.
[[gnu::noinline]] int addNameEntryAside(KVXBinaryInternals &doc, int id, int tableKind,
                                        char const *text, std::uint32_t length,
                                        std::uint32_t *textOffset) {
    Geometry frame;
    if (!readGeometry(doc, frame) || tableKind < TableElement || tableKind > TableType ||
        (text == nullptr && length != 0))
        return -1;
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + 1;
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const entryBytes = Internal::nodeSize(
        static_cast<std::uint32_t>(valueSize), static_cast<unsigned>(tableKind), frame.format);
    // The table size lives in bits 3 to 23 of the flags word; an entry that
    // would pass 16,777,208 bytes cannot be described and is refused.
    std::uint64_t const tableBytes =
        static_cast<std::uint64_t>(nameTableSize(doc.buffer)) + entryBytes;
    if (tableBytes > NameTableMask)
        return -1;
    std::vector<char> aside;
    char const *const name = keepApart(doc, text, length, aside);
    if (doc.room != 0) {
        // With room open the entry goes in front of the table where it stands,
        // unless the buffer would grow: that is decided as without room.
        if (static_cast<std::uint64_t>(doc.capacity) <=
                static_cast<std::uint64_t>(doc.frameLength()) + entryBytes ||
            doc.room < entryBytes) {
            doc.closeRoom();
            frame = geometryOf(doc);
        } else {
            std::uint32_t const start =
                frame.used - nameTableSize(doc.buffer) - static_cast<std::uint32_t>(entryBytes);
            writeNameEntry(doc.buffer + start, id, tableKind, name, length, entryBytes);
            store32(doc.buffer + 4, (frameFlags(doc.buffer) & ~NameTableMask) |
                                        (static_cast<std::uint32_t>(tableBytes) & NameTableMask));
            doc.room -= static_cast<std::uint32_t>(entryBytes);
            if (textOffset != nullptr)
                *textOffset = start + headerSize(length + 1, static_cast<unsigned>(tableKind));
            return 0;
        }
    }
    if (!doc.grow(static_cast<std::uint32_t>(entryBytes)))
        return -1;
    // New entries go to the front of the table, so the distance of every older
    // name from the frame's end stays what it was.
    char *const buffer = doc.buffer;
    std::uint32_t const start = frame.rootEnd;
    std::uint32_t const end = frame.frameEnd;
    std::memmove(buffer + start + entryBytes, buffer + start, end - start);
    writeNameEntry(buffer + start, id, tableKind, name, length, entryBytes);
    store32(buffer + 4, (frameFlags(buffer) & ~NameTableMask) |
                            (static_cast<std::uint32_t>(tableBytes) & NameTableMask));
    doc.used += static_cast<int>(entryBytes);
    if (textOffset != nullptr)
        *textOffset = start + headerSize(length + 1, static_cast<unsigned>(tableKind));
    return 0;
}

} // namespace

int KVXBinaryInternals::addNameEntry(int id, int tableKind, char const *text, std::uint32_t length,
                                     std::uint32_t *textOffset) {
    // A parse records each name once, with room open: the table then ends at
    // `used` and the entry goes in front of it. That case is decided here
    // from the head alone, without decoding the root; a text inside the
    // buffer, and every case that closes the room or fails, take the general
    // path, which gives the same bytes.
    std::less<char const *> const before;
    if (room != 0 && buffer != nullptr && used >= static_cast<int>(FrameHeadSize) &&
        static_cast<unsigned>(tableKind) <= static_cast<unsigned>(TableType) &&
        length < UINT32_MAX &&
        (text == nullptr ? length == 0
                         : before(text, buffer) || !before(text, buffer + capacity))) {
        std::uint32_t const flags = frameFlags(buffer);
        std::uint32_t const valueSize = length + 1;
        std::uint64_t const entryBytes =
            Internal::nodeSize(valueSize, static_cast<unsigned>(tableKind), flags >> FormatShift);
        std::uint32_t const table = flags & NameTableMask;
        if (table + entryBytes <= NameTableMask && room >= entryBytes &&
            static_cast<std::uint64_t>(capacity) >
                static_cast<std::uint64_t>(frameLength()) + entryBytes) {
            std::uint32_t const start =
                static_cast<std::uint32_t>(used) - table - static_cast<std::uint32_t>(entryBytes);
            writeNameEntry(buffer + start, id, tableKind, text, length, entryBytes);
            store32(buffer + 4,
                    (flags & ~NameTableMask) |
                        ((table + static_cast<std::uint32_t>(entryBytes)) & NameTableMask));
            room -= static_cast<std::uint32_t>(entryBytes);
            if (textOffset != nullptr)
                *textOffset = start + headerSize(valueSize, static_cast<unsigned>(tableKind));
            return 0;
        }
    }
    return addNameEntryAside(*this, id, tableKind, text, length, textOffset);
}

int KVXBinaryInternals::setNamespace(BinaryPath &path, int id) {
    if (path.entries.empty() || !nodeInsideRoot(*this, path.entries.back().offset))
        return -1;
    // The field is written first: clearing with 0 takes effect and reports -1,
    // since 0 has no name.
    store16(buffer + path.entries.back().offset + 6,
            static_cast<std::uint16_t>(static_cast<std::uint32_t>(id) & 0xFFFFu));
    return ids.recordsName(id) ? 0 : -1;
}

int KVXBinaryInternals::setKind(BinaryPath &path, int typeId) {
    if (path.entries.empty() || (typeId >= 0 && typeId <= static_cast<int>(LastValueKind)))
        return -1;
    std::uint32_t const offset = path.entries.back().offset;
    if (!nodeInsideRoot(*this, offset))
        return -1;
    binary::Node const current = node(offset);
    // One 32-bit test of kind and ns together: only a plain KindStructure with
    // no namespace takes a type; any other container keeps what it has and
    // reports success.
    if (current.isContainer() && current.kindAndNamespace() != KindStructure)
        return 0;
    std::uint16_t const kind =
        static_cast<std::uint16_t>(static_cast<std::uint32_t>(typeId) & 0xFFFFu);
    // A new kind that changes the node size (a leaf with a short value) would
    // leave the parent's size wrong and the nodes behind it misplaced.
    if (Internal::nodeSize(current.size(), kind, format()) != current.nodeSize())
        return -1;
    store16(buffer + offset + 4, kind);
    return ids.recordTypeName(typeId).length != 0 ? 0 : -1;
}

int KVXBinaryInternals::currentNamespace(BinaryPath const &path) const {
    if (path.entries.empty())
        return 0;
    binary::Node const current = node(path.entries.back().offset);
    return current.fits() ? current.ns() : 0;
}

} // namespace KVX
