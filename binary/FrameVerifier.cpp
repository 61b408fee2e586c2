// KVXBinary::verify and the verifier behind it: the head by the framing rule,
// then the name table, then every body node in document order with an explicit
// stack of open containers. It only reads the caller's bytes, never past the
// frame's length (itself within the caller's length); its own memory is the
// stack and two sorted id lists. Stateless; any thread.
#include "binary/FrameVerifier.h"

#include "binary/FrameLimits.h"
#include "binary/WireFormat.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXDefaultMap.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace KVX {
namespace Internal {

namespace {

// The smallest node there is: a short header and nothing else, rounded up to 8.
// Both layouts agree on it. Fewer bytes left in a span cannot hold a node.
constexpr std::uint32_t SmallestNode = 16;

// An open container: its offset (blamed when its children do not fill it) and
// the end of its child range.
struct OpenNode {
    std::uint32_t offset;
    std::uint32_t end;
};

// The kinds a reader knows: the leaf values 0 to 6, a structure, an XML
// fragment, and complex type ids above 100.
bool knownKind(unsigned kind) {
    return kind <= KindTime || kind == KindStructure || kind == KindXML || kind > LastValueKind;
}

// Element ids outside 0 to 200 name something: the vocabulary's 1001 to 2304
// and the dynamic ones below 0.
bool elementNeedsName(int id) {
    return id < 0 || id > LastAttributeId;
}

class Verifier {
public:
    Verifier(char const *frameBytes, std::uint32_t frameLimit)
        : frame(frameBytes), limit(frameLimit), format(FormatCurrent), result{FrameFault::None, 0} {
    }

    FrameCheck run();

private:
    // Every check goes through here, so a breakpoint in fail() stops at the
    // first fault of any kind.
    bool check(bool holds, FrameFault fault, std::uint32_t offset) {
        return holds || fail(fault, offset);
    }
    bool fail(FrameFault fault, std::uint32_t offset);

    bool checkHead();
    bool checkNameTable();
    bool checkBody();
    bool checkNode(std::uint32_t offset, std::uint32_t spanEnd, std::size_t depth,
                   std::uint64_t &size);
    bool named(std::vector<int> const &ids, int id) const {
        return std::binary_search(ids.begin(), ids.end(), id);
    }

    char const *frame;
    std::uint32_t limit; // the caller's length
    unsigned format;
    bool empty = false;
    std::uint32_t rootEnd = RootOffset;  // end of the root section
    std::uint32_t frameEnd = RootOffset; // the frame's own length
    std::vector<int> names;              // ids of entries of kinds 0 and 1
    std::vector<int> types;              // ids of entries of kind 2
    FrameCheck result;
};

bool Verifier::fail(FrameFault fault, std::uint32_t offset) {
    result.fault = fault;
    result.offset = offset;
    return false;
}

// The framing rule, step by step, so that a frame that passes here is exactly
// what isComplete would cut. The root header at offset 8 is read whatever the
// empty flag says, as the rule does. A frame longer than MaxFrameLength can
// never be complete in an int-sized buffer: it is refused rather than awaited.
bool Verifier::checkHead() {
    if (!check(limit >= FrameHeadSize, FrameFault::Truncated, limit) ||
        !check(load32(frame) == FrameMagic, FrameFault::BadMagic, 0) ||
        !check(limit >= MinimumFrameProbe, FrameFault::Truncated, limit))
        return false;
    format = frameFormat(frame);
    empty = frameIsEmpty(frame);
    std::uint64_t const rootBytes =
        nodeSize(load32(frame + RootOffset + 8), load16(frame + RootOffset + 4), format);
    if (!check(RootOffset + rootBytes <= MaxFrameLength, FrameFault::FrameTooLong, RootOffset))
        return false;
    rootEnd = RootOffset + (empty ? 0 : static_cast<std::uint32_t>(rootBytes));
    std::uint64_t const total = static_cast<std::uint64_t>(rootEnd) + nameTableSize(frame);
    if (!check(total <= MaxFrameLength, FrameFault::FrameTooLong, 4) ||
        !check(RootOffset + rootBytes <= limit, FrameFault::Truncated, limit) ||
        !check(total <= limit, FrameFault::Truncated, limit))
        return false;
    // An empty frame without a name table is its head alone: the rule measures
    // it in a longer buffer, but cut to its 8 bytes it is never complete, so
    // it could never be handed on by itself.
    if (!check(total >= MinimumFrameProbe, FrameFault::Truncated,
               static_cast<std::uint32_t>(total)))
        return false;
    frameEnd = static_cast<std::uint32_t>(total);
    return true;
}

// Entries tile the table exactly. Each carries a name of size - 1 bytes with
// one NUL at its end and none inside: every writer makes names from NUL-free
// text, and a name with an inner NUL would read differently by length and as
// a C string. The entry's id is not judged; an entry that no node uses is
// harmless.
bool Verifier::checkNameTable() {
    std::uint32_t offset = rootEnd;
    while (offset < frameEnd) {
        std::uint32_t const left = frameEnd - offset;
        if (!check(left >= ShortHeaderSize, FrameFault::EntryOutsideTable, offset))
            return false;
        char const *const header = frame + offset;
        std::int32_t const tableKind = loadInt32(header + 4);
        std::uint32_t const size = load32(header + 8);
        if (!check(tableKind >= TableElement && tableKind <= TableType, FrameFault::BadTableKind,
                   offset) ||
            !check(size != 0, FrameFault::EmptyName, offset) ||
            !check(size - 1 <= MaxTableNameLength, FrameFault::NameTooLong, offset))
            return false;
        unsigned const kind = static_cast<unsigned>(tableKind);
        std::uint64_t const step = nodeSize(size, kind, format);
        if (!check(step <= left, FrameFault::EntryOutsideTable, offset))
            return false;
        // A leaf's value always lies inside its node size, in both layouts.
        char const *const text = header + headerSize(size, kind);
        void const *const nul = std::memchr(text, 0, size);
        if (!check(nul == text + size - 1, FrameFault::NameNotTerminated, offset))
            return false;
        (tableKind == TableType ? types : names).push_back(loadInt32(header));
        offset += static_cast<std::uint32_t>(step);
    }
    std::sort(names.begin(), names.end());
    std::sort(types.begin(), types.end());
    return true;
}

// One node inside the span that ends at `spanEnd`, at `depth` (the root is 1).
// Order of the checks: position, kind, depth, container size, names.
bool Verifier::checkNode(std::uint32_t offset, std::uint32_t spanEnd, std::size_t depth,
                         std::uint64_t &bytes) {
    // The caller made sure that SmallestNode bytes, and so a header, are left.
    char const *const header = frame + offset;
    int const id = loadInt32(header);
    unsigned const kind = load16(header + 4);
    unsigned const ns = load16(header + 6);
    std::uint32_t const size = load32(header + 8);
    bytes = nodeSize(size, kind, format);
    if (!check(bytes <= spanEnd - offset, FrameFault::NodeOutsideParent, offset) ||
        !check(knownKind(kind), FrameFault::UnknownKind, offset) ||
        !check(depth <= MaxNestingDepth, FrameFault::TooDeep, offset))
        return false;
    // Children's node sizes are multiples of 8, so no other size can be their sum.
    if (isContainerKind(kind) && !check(size % NodeAlignment == 0, FrameFault::SizeNotSum, offset))
        return false;
    // An id has a name when the frame's table gives one or, for a fixed id,
    // the vocabulary does: append records element names, but a namespace
    // saved on a cursor reaches its nodes without a table entry. A namespace
    // or type id stands in its entry as the positive 16-bit value.
    int const nsId = static_cast<int>(ns);
    int const typeId = static_cast<int>(kind);
    return check(!elementNeedsName(id) || named(names, id) ||
                     !KVXDefaultMap::findElemID(id).empty(),
                 FrameFault::Unnamed, offset) &&
           check(nsId <= LastAttributeId || named(names, nsId) ||
                     !KVXDefaultMap::findNSID(nsId).empty(),
                 FrameFault::Unnamed, offset) &&
           check(typeId <= LastValueKind || named(types, typeId) ||
                     !KVXDefaultMap::findTypeID(typeId).empty(),
                 FrameFault::Unnamed, offset);
}

// Pre-order over the root section with a stack of open containers: the bottom
// entry is the root section itself, so the root is checked like any child.
bool Verifier::checkBody() {
    if (empty)
        return true;
    std::vector<OpenNode> open;
    open.reserve(64);
    open.push_back(OpenNode{RootOffset, rootEnd});
    std::uint32_t offset = RootOffset;
    while (!open.empty()) {
        OpenNode const parent = open.back();
        if (offset == parent.end) {
            open.pop_back();
            continue;
        }
        // Children are laid end to end in multiples of 8, so what is left is
        // too, and a rest below a node's size means the sizes do not add up.
        if (!check(parent.end - offset >= SmallestNode, FrameFault::SizeNotSum, parent.offset))
            return false;
        std::uint64_t bytes = 0;
        if (!checkNode(offset, parent.end, open.size(), bytes))
            return false;
        if (isContainerKind(load16(frame + offset + 4))) {
            open.push_back(OpenNode{offset, offset + static_cast<std::uint32_t>(bytes)});
            offset += LongHeaderSize;
        } else {
            offset += static_cast<std::uint32_t>(bytes);
        }
    }
    return true;
}

FrameCheck Verifier::run() {
    if (checkHead() && checkNameTable() && checkBody())
        result = FrameCheck{FrameFault::None, 0};
    return result;
}

} // namespace

FrameCheck verifyFrame(char const *buffer, int length) {
    if (buffer == nullptr || length < 0)
        return FrameCheck{FrameFault::Truncated, 0};
    try {
        return Verifier(buffer, static_cast<std::uint32_t>(length)).run();
    } catch (std::bad_alloc const &) {
        return FrameCheck{FrameFault::OutOfMemory, 0};
    }
}

char const *frameFaultText(FrameFault fault) {
    switch (fault) {
    case FrameFault::None:
        return "sound frame";
    case FrameFault::Truncated:
        return "frame is incomplete";
    case FrameFault::BadMagic:
        return "no frame magic";
    case FrameFault::FrameTooLong:
        return "frame is longer than the limit";
    case FrameFault::NodeOutsideParent:
        return "node passes the end of its parent";
    case FrameFault::SizeNotSum:
        return "container size is not the sum of its children";
    case FrameFault::UnknownKind:
        return "unknown kind";
    case FrameFault::TooDeep:
        return "nesting deeper than the limit";
    case FrameFault::Unnamed:
        return "id without a name table entry";
    case FrameFault::EntryOutsideTable:
        return "name table entry passes the end of the table";
    case FrameFault::BadTableKind:
        return "name table entry of unknown kind";
    case FrameFault::EmptyName:
        return "name table entry of size 0";
    case FrameFault::NameTooLong:
        return "name longer than the limit";
    case FrameFault::NameNotTerminated:
        return "name without its terminating NUL";
    case FrameFault::OutOfMemory:
        return "out of memory";
    }
    return "unknown fault";
}

} // namespace Internal

int KVXBinary::verify(char const *buffer, int length, int *faultOffset) {
    Internal::FrameCheck const result = Internal::verifyFrame(buffer, length);
    if (result.fault == Internal::FrameFault::None)
        return 0;
    if (faultOffset != nullptr)
        *faultOffset = static_cast<int>(result.offset);
    return -1;
}

} // namespace KVX
