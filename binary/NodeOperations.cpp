// Node operations of KVXBinaryInternals: with binary/BuildingAtEnd.cpp and
// binary/NameEntries.cpp the only code that inserts, resizes and removes nodes
// and name table entries in the document's frame (its malloc'd buffer). Each edit is one memmove
// behind the edit point plus a patch of the ancestors' sizes; every offset is checked against the
// root section and `used` first, so a damaged frame or stale path is refused. Not thread-safe.
#include "binary/KVXBinaryInternals.h"
#include "binary/NodeFrame.h"
#include "binary/WireFormat.h"
#include "message/VersionText.h"

#include <cstring>
#include <functional>
#include <vector>

namespace KVX {

using namespace Internal;

namespace {

bool frameIsSound(KVXBinaryInternals const &doc) {
    Geometry frame;
    return readGeometry(doc, frame);
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

// True when adding `delta` keeps the size of the node at `offset` in 32 bits.
bool sizeTakes(KVXBinaryInternals const &doc, std::uint32_t offset, std::int64_t delta) {
    std::int64_t const size = static_cast<std::int64_t>(doc.node(offset).size()) + delta;
    return size >= 0 && size <= static_cast<std::int64_t>(UINT32_MAX);
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

} // namespace

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
    std::uint32_t valueSize = 0;
    if (!valueSizeOf(kind, length, terminate, valueSize))
        return -1;
    std::uint64_t const nodeBytes = Internal::nodeSize(valueSize, kind, frame.format);
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
    std::uint32_t const inserted = openGap(*this, frame, nodeBytes, valueSize, kind, position);
    if (inserted == 0)
        return -1;
    // The gap is zeroed and holds kind and size: id, ns and the value complete it.
    fillNode(buffer + position, id, ns, kind, valueSize, source, length);
    for (PathEntry const &entry : path.entries)
        addToSize(buffer, entry.offset, inserted);
    return endAppend(*this, path, id, position, source, length);
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
    std::uint32_t valueSize = 0;
    if (!valueSizeOf(kind, length, terminate, valueSize))
        return -1;
    std::int64_t const change =
        static_cast<std::int64_t>(Internal::nodeSize(valueSize, kind, frame.format)) -
        static_cast<std::int64_t>(oldBytes);
    if (change != 0 && !pathTakes(buffer, frame, path, change, true))
        return -1;
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    std::int64_t delta = 0;
    if (resizeAt(*this, frame, offset, oldBytes, valueSize, kind, delta))
        return -1;
    storeValue(*this, offset, source, length, addsNul(kind, terminate));
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
