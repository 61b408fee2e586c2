// Node operations of KVXBinaryInternals: the only code that inserts, resizes and
// removes nodes and name table entries in the document's frame (its malloc'd
// buffer). Each edit is one memmove behind the edit point plus a patch of the
// ancestors' sizes; every offset is checked against the root section and `used`
// first, so a damaged frame or stale path is refused. Not thread-safe.
#include "binary/KVXBinaryInternals.h"

#include "binary/VersionText.h"
#include "binary/WireFormat.h"

#include <cstring>
#include <functional>
#include <vector>

namespace KVX {

using namespace Internal;

namespace {

// The head says where the frame ends; an edit moves bytes up to there, so that
// end must lie inside what is in use.
bool frameIsSound(KVXBinaryInternals const &doc) {
    return doc.buffer != nullptr && doc.used >= static_cast<int>(FrameHeadSize) &&
           doc.frameEnd() <= static_cast<std::uint32_t>(doc.used);
}

// A node header at `offset` whose whole node lies inside the root section.
bool nodeInsideRoot(KVXBinaryInternals const &doc, std::uint32_t offset) {
    std::uint32_t const rootEnd = doc.rootEnd();
    if (offset < RootOffset || offset >= rootEnd)
        return false;
    binary::Node const node = doc.node(offset);
    return node.fits() && node.end() <= rootEnd;
}

bool pathInsideRoot(KVXBinaryInternals const &doc, BinaryPath const &path) {
    for (PathEntry const &entry : path.entries) {
        if (!nodeInsideRoot(doc, entry.offset))
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

} // namespace

std::uint32_t KVXBinaryInternals::insertNode(std::uint32_t size, unsigned short kind,
                                             std::uint32_t offset) {
    if (!frameIsSound(*this))
        return 0;
    std::uint32_t const frameEndBefore = frameEnd();
    std::uint32_t const rootEndBefore = rootEnd();
    // A node goes inside the root section or at its end, where the caller then
    // grows the enclosing nodes; never into the name table.
    if (offset < RootOffset || offset > rootEndBefore)
        return 0;
    bool const opensRoot = frameIsEmpty(buffer);
    // Only an element or a container clears the empty flag. A typed leaf in a
    // frame without a root would stand where the name table starts and be
    // invisible; it is refused before anything moves.
    if (opensRoot && kind != KindUntyped && !isContainerKind(kind))
        return 0;
    std::uint64_t const nodeBytes = Internal::nodeSize(size, kind, format());
    if (nodeBytes > UINT32_MAX)
        return 0;
    int const capacityBefore = capacity;
    if (!grow(static_cast<std::uint32_t>(nodeBytes)))
        return 0;
    bool const reallocated = capacity != capacityBefore;
    std::memmove(buffer + offset + nodeBytes, buffer + offset, frameEndBefore - offset);
    std::memset(buffer + offset, 0, nodeBytes);
    store16(buffer + offset + 4, kind);
    store32(buffer + offset + 8, size);
    if (opensRoot)
        store32(buffer + 4, frameFlags(buffer) & ~FlagEmpty);
    // Cursors hold offsets: only nodes behind this one have moved, and an
    // append at the very end of the root section moves none of theirs.
    if (!reallocated && offset < rootEndBefore)
        ++stamp;
    used += static_cast<int>(nodeBytes);
    return static_cast<std::uint32_t>(nodeBytes);
}

int KVXBinaryInternals::append(BinaryPath &path, int id, unsigned short kind, void const *value,
                               std::uint32_t length, bool terminate) {
    if (!frameIsSound(*this))
        return -1;
    bool const addNul = addsNul(kind, terminate);
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + (addNul ? 1 : 0);
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const nodeBytes =
        Internal::nodeSize(static_cast<std::uint32_t>(valueSize), kind, format());
    std::uint32_t position = 0;
    unsigned short ns = 0;
    bool convert = false;
    if (path.entries.empty()) {
        // The root position. A frame that has a root already would get a second
        // top-level node outside it.
        if (!frameIsEmpty(buffer))
            return -1;
        position = rootEnd();
    } else {
        if (!pathInsideRoot(*this, path))
            return -1;
        for (PathEntry const &entry : path.entries) {
            if (!sizeTakes(*this, entry.offset, static_cast<std::int64_t>(nodeBytes)))
                return -1;
        }
        binary::Node const current = node(path.entries.back().offset);
        if (current.isContainer()) {
            position = static_cast<std::uint32_t>(current.end());
        } else if (current.kind() == KindUntyped && current.nodeSize() == LongHeaderSize) {
            // An element without a value, or with a text of up to four bytes
            // (such as the empty text of "<cookie></cookie>"), has the node size
            // of an empty container: it becomes one in place, and what text it
            // had stays behind in the long header's padding.
            convert = true;
            position = static_cast<std::uint32_t>(current.end());
        } else {
            // A typed leaf, or an element holding text: there is no place for a
            // child behind the value, and the plain position would be offset 0.
            return -1;
        }
        ns = current.ns();
    }
    if (!path.namespaces.empty())
        ns = static_cast<unsigned short>(static_cast<std::uint32_t>(path.namespaces.back()) &
                                         0xFFFFu);
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    if (convert) {
        store16(buffer + path.entries.back().offset + 4, KindStructure);
        store32(buffer + path.entries.back().offset + 8, 0);
    }
    std::uint32_t const inserted =
        insertNode(static_cast<std::uint32_t>(valueSize), kind, position);
    if (inserted == 0)
        return -1;
    store32(buffer + position, static_cast<std::uint32_t>(id));
    store16(buffer + position + 6, ns);
    storeValue(*this, position, source, length, addNul);
    for (PathEntry const &entry : path.entries)
        addToSize(buffer, entry.offset, inserted);
    path.entries.push_back(PathEntry{id, position});
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId)) {
        if (source != nullptr && id == 101)
            ids.version = parseVersionText(source, length);
        return 0;
    }
    return ids.recordName(id).length != 0 ? 0 : -1;
}

bool KVXBinaryInternals::resizeNode(std::uint32_t newSize, unsigned short kind,
                                    std::uint32_t offset, std::int64_t &delta) {
    delta = 0;
    if (!frameIsSound(*this) || !nodeInsideRoot(*this, offset))
        return true;
    binary::Node const current = node(offset);
    std::uint64_t const oldBytes = current.nodeSize();
    std::uint64_t const newBytes = Internal::nodeSize(newSize, kind, format());
    std::int64_t const change =
        static_cast<std::int64_t>(newBytes) - static_cast<std::int64_t>(oldBytes);
    std::uint32_t const frameEndBefore = frameEnd();
    bool const last = offset + oldBytes >= rootEnd();
    int const capacityBefore = capacity;
    if (change > 0) {
        if (change > static_cast<std::int64_t>(UINT32_MAX) ||
            !grow(static_cast<std::uint32_t>(change)))
            return true;
    }
    bool const reallocated = capacity != capacityBefore;
    std::memmove(buffer + offset + newBytes, buffer + offset + oldBytes,
                 frameEndBefore - (offset + oldBytes));
    store16(buffer + offset + 4, kind);
    store32(buffer + offset + 8, newSize);
    // Even an unchanged node size counts: a cursor behind it may have read the
    // old value.
    if (!reallocated && !last)
        ++stamp;
    used += static_cast<int>(change);
    delta = change;
    return false;
}

int KVXBinaryInternals::replaceValue(BinaryPath &path, unsigned short kind, void const *value,
                                     std::uint32_t length, bool terminate) {
    if (!frameIsSound(*this) || path.entries.empty() || !pathInsideRoot(*this, path))
        return -1;
    std::uint32_t const offset = path.entries.back().offset;
    binary::Node const current = node(offset);
    // A container takes no value; with none it becomes a leaf and loses its children.
    if (length > 0 && current.isContainer())
        return -1;
    bool const addNul = addsNul(kind, terminate);
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + (addNul ? 1 : 0);
    if (valueSize > UINT32_MAX)
        return -1;
    std::int64_t const change = static_cast<std::int64_t>(Internal::nodeSize(
                                    static_cast<std::uint32_t>(valueSize), kind, format())) -
                                static_cast<std::int64_t>(current.nodeSize());
    for (std::size_t i = 0; i + 1 < path.entries.size(); ++i) {
        if (!sizeTakes(*this, path.entries[i].offset, change))
            return -1;
    }
    std::vector<char> aside;
    char const *const source = keepApart(*this, value, length, aside);
    std::int64_t delta = 0;
    if (resizeNode(static_cast<std::uint32_t>(valueSize), kind, offset, delta))
        return -1;
    storeValue(*this, offset, source, length, addNul);
    for (std::size_t i = 0; i + 1 < path.entries.size(); ++i)
        addToSize(buffer, path.entries[i].offset, delta);
    if (source != nullptr && node(offset).id() == 101)
        ids.version = parseVersionText(source, length);
    return 0;
}

void KVXBinaryInternals::remove(BinaryPath &path) {
    ++stamp;
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

int KVXBinaryInternals::addNameEntry(int id, int tableKind, char const *text,
                                     std::uint32_t length) {
    if (!frameIsSound(*this) || tableKind < TableElement || tableKind > TableType ||
        (text == nullptr && length != 0))
        return -1;
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + 1;
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const entryBytes = Internal::nodeSize(static_cast<std::uint32_t>(valueSize),
                                                        static_cast<unsigned>(tableKind), format());
    // The table size lives in bits 3 to 23 of the flags word; an entry that
    // would pass 16,777,208 bytes cannot be described and is refused.
    std::uint64_t const tableBytes = static_cast<std::uint64_t>(nameTableSize(buffer)) + entryBytes;
    if (tableBytes > NameTableMask)
        return -1;
    std::vector<char> aside;
    char const *const name = keepApart(*this, text, length, aside);
    if (!grow(static_cast<std::uint32_t>(entryBytes)))
        return -1;
    // New entries go to the front of the table, so the distance of every older
    // name from the frame's end stays what it was.
    std::uint32_t const start = rootEnd();
    std::uint32_t const end = frameEnd();
    std::memmove(buffer + start + entryBytes, buffer + start, end - start);
    std::memset(buffer + start, 0, entryBytes);
    store32(buffer + start, static_cast<std::uint32_t>(id));
    store16(buffer + start + 4, static_cast<std::uint16_t>(tableKind));
    store32(buffer + start + 8, static_cast<std::uint32_t>(valueSize));
    std::uint32_t const textOffset =
        start + headerSize(static_cast<std::uint32_t>(valueSize), static_cast<unsigned>(tableKind));
    if (length != 0)
        std::memcpy(buffer + textOffset, name, length);
    buffer[textOffset + length] = '\0';
    store32(buffer + 4, (frameFlags(buffer) & ~NameTableMask) |
                            (static_cast<std::uint32_t>(tableBytes) & NameTableMask));
    used += static_cast<int>(entryBytes);
    return 0;
}

int KVXBinaryInternals::setNamespace(BinaryPath &path, int id) {
    if (path.entries.empty() || !nodeInsideRoot(*this, path.entries.back().offset))
        return -1;
    // The field is written first: clearing with 0 takes effect and reports -1,
    // since 0 has no name.
    store16(buffer + path.entries.back().offset + 6,
            static_cast<std::uint16_t>(static_cast<std::uint32_t>(id) & 0xFFFFu));
    return ids.recordName(id).length != 0 ? 0 : -1;
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
