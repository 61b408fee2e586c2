// Subtree grafting: a frame or a subtree of another document becomes a new last
// child of a cursor's node, with every id taken through its name so that it
// means in the target what it meant in the source. Source bytes are only read;
// the target is changed through its node operations. Not thread-safe.
#include "binary/Grafting.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXDefaultMap.h>

#include "binary/KVXBinaryInternals.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/NameTable.h"
#include "binary/Node.h"
#include "binary/WireFormat.h"

#include <kvx/KVXCommon.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace KVX {
namespace Internal {

namespace {

// A node's ids as they are to stand in the target.
struct TargetIds {
    int id;
    unsigned short ns;
    unsigned short kind;
};

// Where a graft finds the names of the source's ids: a document's id map, or
// the entries of a received frame's name table read by readFrameNames.
struct SourceNames {
    KVXProtocolIDMap *map;
    FrameNames const *frame;
};

// What an id map without an owner answers for a frame's table: the vocabulary
// wins for the ids it knows, then the first entry of the id's space (newest
// first, as the map keeps the first it reads). Empty when nothing names it.
CharArray frameName(FrameNames const &frame, int id, bool type) {
    if (type) {
        CharArray const &row = KVXDefaultMap::findTypeID(id);
        if (row.length != 0)
            return row;
    } else {
        if (id >= 0 && id <= LastAttributeId)
            return CharArray("", 0);
        CharArray const &element = KVXDefaultMap::findElemID(id);
        if (element.length != 0)
            return element;
        CharArray const &ns = KVXDefaultMap::findNSID(id);
        if (ns.length != 0)
            return ns;
    }
    for (FrameNames::Entry const &entry : frame.entries) {
        if (entry.id == id && entry.type == type)
            return CharArray(entry.text, entry.length);
    }
    return CharArray("", 0);
}

// The name of `id` in the source, copied out: interning in the target may move
// bytes that a view of the name points into when both maps are one.
bool sourceName(SourceNames const &sourceIds, int id, bool type, std::string &name) {
    CharArray const text = sourceIds.frame != nullptr ? frameName(*sourceIds.frame, id, type)
                           : type                     ? sourceIds.map->lookupTypeName(id)
                                                      : sourceIds.map->lookupName(id);
    name = text.str();
    return !name.empty();
}

// Source id -> target id for the ids one graft has translated already, so that
// a name met on many nodes (every `node` of a list) is looked up and interned
// once. Direct-mapped and small: a miss only costs the full translation. An id
// is kept only when interning its name again would give the same id, which
// holds when the id is the name's vocabulary id or the name's alias; an
// allotment whose alias could not be added (the text aliases an id of another
// space) is repeated on the next node, as it would be without the cache.
class IdCache {
public:
    IdCache() {
        for (Slot &slot : slots)
            slot.used = false;
    }
    bool find(int space, int source, int &target) const {
        Slot const &slot = slots[index(space, source)];
        if (!slot.used || slot.space != space || slot.source != source)
            return false;
        target = slot.target;
        return true;
    }
    void keep(int space, int source, int target) {
        Slot &slot = slots[index(space, source)];
        slot = Slot{space, source, target, true};
    }

private:
    struct Slot {
        int space;
        int source;
        int target;
        bool used;
    };
    static constexpr unsigned Bits = 7;
    static unsigned index(int space, int source) {
        std::uint32_t const key =
            static_cast<std::uint32_t>(source) * 4u + static_cast<std::uint32_t>(space);
        return (key * 0x9E3779B1u) >> (32 - Bits);
    }
    Slot slots[1u << Bits];
};

// One id of the space `tableKind` (element, namespace, type) taken through its
// name into the target; 0 when it has no name or the target cannot take it.
int translateId(SourceNames const &sourceIds, KVXProtocolIDMap &targetIds, IdCache &cache, int id,
                int tableKind) {
    int cached = 0;
    if (cache.find(tableKind, id, cached))
        return cached;
    std::string name;
    if (!sourceName(sourceIds, id, tableKind == TableType, name))
        return 0;
    CharArray const text(name);
    int const result = targetIds.intern(text, tableKind);
    if (result != 0 &&
        (result == vocabularyId(text, tableKind) || targetIds.aliases.find(text) == result))
        cache.keep(tableKind, id, result);
    return result;
}

// Takes one node's element, namespace and type ids to their names in the source
// and to ids of those names in the target, allotting where needed. Attributes
// and id 0 have no name, so they cannot be grafted: false.
bool translate(SourceNames const &sourceIds, KVXProtocolIDMap &targetIds, IdCache &cache, int id,
               unsigned short ns, unsigned short kind, TargetIds &out) {
    out.id = translateId(sourceIds, targetIds, cache, id, TableElement);
    if (out.id == 0)
        return false;
    out.ns = 0;
    if (ns != 0) {
        int const targetNs = translateId(sourceIds, targetIds, cache, ns, TableNamespace);
        if (targetNs == 0)
            return false;
        out.ns = static_cast<unsigned short>(targetNs);
    }
    out.kind = kind;
    if (kind > LastValueKind) {
        int const targetType = translateId(sourceIds, targetIds, cache, kind, TableType);
        if (targetType == 0)
            return false;
        out.kind = static_cast<unsigned short>(targetType);
    }
    return true;
}

// Writes the namespace of the node that the last append left at the end of `path`.
bool writeNamespace(KVXBinaryInternals &target, BinaryPath const &path, unsigned short ns) {
    if (path.entries.empty())
        return false;
    std::uint32_t const offset = path.entries.back().offset;
    if (!target.node(offset).fits())
        return false;
    store16(target.buffer + offset + 6, ns);
    return true;
}

// The value that append takes for a copied node: KindBase64 counts a terminator
// that append writes again.
std::uint32_t valueLength(binary::Node const &node) {
    std::uint32_t const size = node.size();
    return (node.kind() == KindBase64 && size > 0) ? size - 1 : size;
}

// True when the node at `offset` lies wholly inside [offset, end): its header
// and its node size. Every graft walk asks this before it reads a node.
bool insideParent(binary::Node const &node, std::uint64_t end) {
    std::uint64_t const offset = node.offset;
    if (offset >= end || end - offset < ShortHeaderSize || !node.fits())
        return false;
    return node.nodeSize() <= end - offset && node.valueOffset() <= end;
}

// Bulk copy: one append of the top node with all its descendants, then a walk
// over the copied bytes that rewrites their ids in place. Sizes need no change
// because the layouts agree; ancestors were patched by the append.
int bulkCopy(binary::Node const &top, SourceNames const &sourceIds, KVXBinaryInternals &target,
             BinaryPath &path) {
    IdCache cache;
    TargetIds ids;
    if (!translate(sourceIds, target.ids, cache, top.id(), top.ns(), top.kind(), ids))
        return -1;
    bool const container = top.isContainer();
    if (target.append(path, ids.id, ids.kind, top.value(), valueLength(top), false) != 0)
        return -1;
    if (!writeNamespace(target, path, ids.ns))
        return -1;
    if (!container)
        return 0;

    unsigned const format = target.format();
    std::uint32_t const added = path.entries.back().offset;
    binary::Node const copy(target.buffer, static_cast<std::uint32_t>(target.used), added, format);
    if (!insideParent(copy, target.rootEnd()))
        return -1;
    // Ends of the containers being walked, innermost last: the stack lets each
    // node be checked against its own parent, so a damaged inner size is found
    // before anything is read behind it. It is bounded by the copied bytes.
    std::vector<std::uint64_t> ends(1, copy.end());
    std::uint64_t cursor = copy.valueOffset();
    while (!ends.empty()) {
        if (cursor == ends.back()) {
            ends.pop_back();
            continue;
        }
        // Re-read the base at every node: interning may have moved the buffer.
        // Name table entries go behind the root section, so offsets hold.
        binary::Node node(target.buffer, static_cast<std::uint32_t>(target.used),
                          static_cast<std::uint32_t>(cursor), format);
        if (!insideParent(node, ends.back()))
            return -1;
        std::uint64_t const nodeSize = node.nodeSize();
        std::uint64_t const valueOffset = node.valueOffset();
        bool const isContainer = node.isContainer();
        if (!translate(sourceIds, target.ids, cache, node.id(), node.ns(), node.kind(), ids))
            return -1;
        char *header = target.buffer + cursor;
        store16(header + 4, ids.kind);
        store16(header + 6, ids.ns);
        // A name that has a vocabulary id in the target keeps the id bytes it
        // came with; only dynamic ids are rewritten.
        if (ids.id <= -2)
            store32(header, static_cast<std::uint32_t>(ids.id));
        if (isContainer) {
            ends.push_back(cursor + nodeSize);
            cursor = valueOffset;
        } else {
            cursor += nodeSize;
        }
    }
    return 0;
}

// Node-by-node copy, for a legacy source under a current target: node sizes
// differ, so each node is appended on its own. An explicit stack of source
// ranges replaces recursion; it holds one range per open container.
int nodeByNodeCopy(GraftSource const &source, binary::Node const &top, SourceNames const &sourceIds,
                   KVXBinaryInternals &target, BinaryPath &path) {
    struct Range {
        std::uint64_t next;
        std::uint64_t end;
    };
    IdCache cache;
    std::vector<Range> ranges(1, Range{top.offset, top.end()});
    while (!ranges.empty()) {
        if (ranges.back().next >= ranges.back().end) {
            ranges.pop_back();
            if (!path.entries.empty())
                path.entries.pop_back();
            continue;
        }
        binary::Node const node(source.base, source.rootEnd,
                                static_cast<std::uint32_t>(ranges.back().next), source.format);
        if (!insideParent(node, ranges.back().end))
            return -1;
        ranges.back().next += node.nodeSize();
        TargetIds ids;
        if (!translate(sourceIds, target.ids, cache, node.id(), node.ns(), node.kind(), ids))
            return -1;
        if (node.isContainer()) {
            if (target.append(path, ids.id, ids.kind, nullptr, 0, false) != 0 ||
                !writeNamespace(target, path, ids.ns))
                return -1;
            ranges.push_back(Range{node.valueOffset(), node.end()});
        } else {
            if (!node.valueFits())
                return -1;
            if (target.append(path, ids.id, ids.kind, node.value(), valueLength(node), false) !=
                    0 ||
                !writeNamespace(target, path, ids.ns))
                return -1;
            path.entries.pop_back();
        }
    }
    return 0;
}

} // namespace

GraftSource frameSource(char const *frame, std::uint32_t length) {
    unsigned const format = frameFormat(frame);
    std::uint32_t rootEnd = RootOffset;
    if (!frameIsEmpty(frame)) {
        // The frame's total length has been checked, so the root fits in it.
        binary::Node const root(frame, length, RootOffset, format);
        rootEnd = static_cast<std::uint32_t>(RootOffset + root.nodeSize());
    }
    return GraftSource{frame, length, rootEnd, format};
}

namespace {

int graftFrom(GraftSource const &source, BinaryPath const &sourcePath, SourceNames const &sourceIds,
              KVXBinaryInternals &target, BinaryPath const &at) {
    std::uint32_t topOffset = RootOffset;
    if (sourcePath.entries.empty()) {
        if (source.rootEnd <= RootOffset)
            return 0; // an empty frame: nothing to graft
    } else {
        topOffset = sourcePath.entries.back().offset;
    }
    binary::Node const top(source.base, source.rootEnd, topOffset, source.format);
    if (!insideParent(top, source.rootEnd) || !top.valueFits())
        return -1;
    if (target.buffer == nullptr)
        return -1;
    // The caller's cursor does not move: the graft runs on a copy of its path.
    BinaryPath path = at;
    if (source.format >= target.format())
        return bulkCopy(top, sourceIds, target, path);
    return nodeByNodeCopy(source, top, sourceIds, target, path);
}

} // namespace

int readFrameNames(char const *frame, std::uint32_t length, FrameNames &names) {
    names.entries.clear();
    names.entries.reserve(32); // a packet's table: one allocation instead of a growth per doubling
    NameTableWalk walk(frame, length);
    NameTableEntry entry;
    while (walk.next(entry)) {
        names.entries.push_back(FrameNames::Entry{entry.id, entry.tableKind == TableType,
                                                  frame + entry.text, entry.textLength});
    }
    return walk.corrupt() ? -1 : 0;
}

int graftSubtree(GraftSource const &source, BinaryPath const &sourcePath,
                 KVXProtocolIDMap &sourceIds, KVXBinaryInternals &target, BinaryPath const &at) {
    return graftFrom(source, sourcePath, SourceNames{&sourceIds, nullptr}, target, at);
}

int graftSubtree(GraftSource const &source, BinaryPath const &sourcePath,
                 FrameNames const &sourceNames, KVXBinaryInternals &target, BinaryPath const &at) {
    return graftFrom(source, sourcePath, SourceNames{nullptr, &sourceNames}, target, at);
}

} // namespace Internal

int KVXBinary::deserialize(KVXMessageIterator const *from, KVXMessageIterator *into) {
    KVXBinaryIterator *cursor = dynamic_cast<KVXBinaryIterator *>(into);
    KVX_ASSERT(cursor != nullptr); // the place to graft at is not a cursor of this protocol
    if (cursor == nullptr)
        return -1;
    KVX_ASSERT(from != nullptr); // there is no subtree to graft
    if (from == nullptr)
        return -1;

    KVXBinaryIterator const *source = dynamic_cast<KVXBinaryIterator const *>(from);
    if (source == nullptr) {
        // A foreign cursor hands over its subtree as bytes.
        char *bytes = nullptr;
        int size = 0;
        if (from->serializeFromChild(&bytes, &size) != 0) {
            std::free(bytes);
            return -1;
        }
        int const result = deserialize(bytes, size, into);
        std::free(bytes);
        return result;
    }

    // The target first: separating shared storage may change the document under
    // the source cursor too, when both stand on one message.
    if (cursor->validateInternals() != 0)
        return -1;
    KVXBinary *targetMessage = cursor->getBinaryMessage();
    KVXBinary *sourceMessage = source->getBinaryMessage();
    if (targetMessage == nullptr || targetMessage->internals == nullptr ||
        sourceMessage == nullptr || sourceMessage->internals == nullptr)
        return -1;
    if (source->validateStamp() != 0)
        return -1;
    KVXBinaryInternals &sourceDoc = *sourceMessage->internals;
    KVXBinaryInternals &target = *targetMessage->internals;
    if (sourceDoc.buffer == nullptr || sourceDoc.used < static_cast<int>(Internal::FrameHeadSize))
        return -1;
    // A corrupt table is found again by each lookup, which then names nothing.
    (void)sourceDoc.ids.load();

    Internal::GraftSource const view{sourceDoc.buffer, static_cast<std::uint32_t>(sourceDoc.used),
                                     sourceDoc.rootEnd(), sourceDoc.format()};
    BinaryPath const &sourcePath = source->binaryPath();
    if (&sourceDoc != &target)
        return Internal::graftSubtree(view, sourcePath, sourceDoc.ids, target,
                                      cursor->binaryPath());

    // Grafting within one document: the appends move and may reallocate the
    // very bytes being copied, so the subtree is copied out first.
    if (sourcePath.entries.empty() && view.rootEnd <= Internal::RootOffset)
        return 0;
    std::uint32_t const topOffset =
        sourcePath.entries.empty() ? Internal::RootOffset : sourcePath.entries.back().offset;
    binary::Node const top(view.base, view.rootEnd, topOffset, view.format);
    if (!top.fits() || top.nodeSize() > view.rootEnd - topOffset)
        return -1;
    std::uint32_t const snapshotSize = static_cast<std::uint32_t>(top.nodeSize());
    std::vector<char> snapshot(view.base + topOffset, view.base + topOffset + snapshotSize);
    BinaryPath snapshotPath;
    snapshotPath.entries.push_back(PathEntry{top.id(), 0});
    Internal::GraftSource const copy{snapshot.data(), snapshotSize, snapshotSize, view.format};
    return Internal::graftSubtree(copy, snapshotPath, target.ids, target, cursor->binaryPath());
}

} // namespace KVX
