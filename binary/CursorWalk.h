// Bounded walks over the child spans of a frame, for the cursor's own units.
// A FrameView reads the document's current buffer and never trusts a size it
// finds there: every span is clamped to its enclosing node and to the end of
// the root section, and a node whose header does not fit ends its span. Views
// only; they own nothing and are valid until the next edit. One thread at a time.
#ifndef KVX_BINARY_CURSORWALK_H
#define KVX_BINARY_CURSORWALK_H

#include "binary/KVXBinaryInternals.h"
#include "binary/Node.h"
#include "binary/WireFormat.h"

#include <kvx/BinaryPath.h>

#include <boost/function.hpp>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace KVX {
namespace Internal {

// A test of a node in general form, for walks that look for something other
// than the children navigation asks for (fragments, for one).
typedef boost::function<bool(binary::Node const &)> NodePredicate;

// A range [begin, end) of sibling nodes. Empty when begin is not below end.
struct Span {
    std::uint32_t begin;
    std::uint32_t end;
    bool empty() const { return begin >= end; }
};

// The document's frame as the cursor reads it: base, valid length (`used`),
// format byte and the end of the root section, clamped to the valid length.
// All but enclosingEnd is inline: a view is made and read on every cursor step.
//
// The root end is either 8 (no root: no header is usable) or at most the valid
// length, so a header that usable() accepts lies wholly inside the frame. The
// field readers below rely on that and read without a check of their own.
class FrameView {
public:
    explicit FrameView(KVXBinaryInternals const &doc)
        : base(doc.buffer), limit(doc.used > 0 ? static_cast<std::uint32_t>(doc.used) : 0),
          format(FormatCurrent), rootEnd(RootOffset) {
        if (base == nullptr || limit < FrameHeadSize) {
            limit = base == nullptr ? 0 : limit;
            return;
        }
        format = frameFormat(base);
        if (frameIsEmpty(base) || limit - RootOffset < ShortHeaderSize)
            return;
        // A damaged root size must not stretch the root section past the frame.
        rootEnd = static_cast<std::uint32_t>(std::min<std::uint64_t>(endAt(RootOffset), limit));
    }

    binary::Node node(std::uint32_t offset) const {
        return binary::Node(base, limit, offset, format);
    }
    // True when a whole short header at `offset` lies inside the root section
    // and below `bound`: only then may its fields be read and trusted.
    bool usable(std::uint32_t offset, std::uint32_t bound) const {
        bound = std::min(bound, rootEnd);
        return bound >= ShortHeaderSize && offset <= bound - ShortHeaderSize;
    }

    // Header fields. Requires: usable(offset, ...) was true (the root header
    // in the constructor is checked against the valid length instead).
    int idAt(std::uint32_t offset) const { return loadInt32(base + offset); }
    unsigned kindAt(std::uint32_t offset) const { return load16(base + offset + 4); }
    std::uint32_t sizeAt(std::uint32_t offset) const { return load32(base + offset + 8); }
    // Where the next node starts, in 64 bits: a damaged size must not wrap.
    std::uint64_t endAt(std::uint32_t offset) const {
        return offset + nodeSize(sizeAt(offset), kindAt(offset), format);
    }

    // The root span: from the root position to the end of the root section.
    Span rootSpan() const { return Span{RootOffset, rootEnd > RootOffset ? rootEnd : RootOffset}; }
    // The child span of the node at `offset`, clamped to `bound` (the end of
    // its enclosing node) and to the root end. Leaves have an empty span at
    // their end.
    Span childSpan(std::uint32_t offset, std::uint32_t bound) const {
        bound = std::min(bound, rootEnd);
        if (offset >= bound || !usable(offset, bound))
            return Span{bound, bound};
        std::uint32_t size = sizeAt(offset);
        unsigned kind = kindAt(offset);
        std::uint32_t end = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(offset + nodeSize(size, kind, format), bound));
        if (!isContainerKind(kind))
            return Span{end, end};
        std::uint32_t begin = offset + headerSize(size, kind);
        return begin < end ? Span{begin, end} : Span{end, end};
    }
    // The bound of the node at entries[index] as navigation takes it: the end
    // of the entry before it, clamped to the root end (the root end itself for
    // the root entry). One header read, whatever the depth, so that a step of
    // the cursor does not cost more the deeper it stands. An ancestor further
    // up whose size is damaged is not consulted; the root end still bounds
    // every span.
    std::uint32_t parentEnd(std::vector<PathEntry> const &entries, std::size_t index) const {
        if (index == 0 || index > entries.size())
            return rootEnd;
        std::uint32_t parent = entries[index - 1].offset;
        if (!usable(parent, rootEnd))
            return std::min(rootEnd, parent);
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(endAt(parent), rootEnd));
    }
    // The smallest end among the first `count` nodes of `entries` and the root
    // end: the bound of the node at entries[count], from every ancestor. The
    // editing operations take this stricter bound before they move bytes.
    std::uint32_t enclosingEnd(std::vector<PathEntry> const &entries, std::size_t count) const;
    // True when a root node stands at the root position.
    bool hasRoot() const { return usable(RootOffset, rootEnd); }

    char const *base;
    std::uint32_t limit;
    unsigned format;
    std::uint32_t rootEnd;
};

// False when the node at `offset` certainly has no children: its header lies
// outside the valid bytes, or its kind is not a container's. A cheap first
// test, made before a FrameView is: it needs neither the root section's end
// nor the format.
inline bool mayHoldChildren(KVXBinaryInternals const &doc, std::uint32_t offset) {
    std::uint32_t used = doc.used > 0 ? static_cast<std::uint32_t>(doc.used) : 0;
    return doc.buffer != nullptr && used >= ShortHeaderSize && offset <= used - ShortHeaderSize &&
           isContainerKind(load16(doc.buffer + offset + 4));
}

// What a walk tests each node with: element children (every id outside 1 to
// 200), attribute children (ids 1 to 200), either class restricted to one id,
// or a general NodePredicate. The built-in tests are plain comparisons of the
// id made inline; a call through boost::function on every node passed was a
// large part of a cursor step. Copying a ChildTest allocates nothing.
class ChildTest {
public:
    static ChildTest elements() { return ChildTest(false, true, 0); }
    static ChildTest withId(int id, bool attributes) { return ChildTest(attributes, false, id); }
    // Requires: `test` outlives this object and every walk that holds it.
    explicit ChildTest(NodePredicate const &test)
        : attributeClass(false), anyId(true), wanted(0), general(&test) {}

    // Requires: frame.usable(offset, ...).
    bool accepts(FrameView const &frame, std::uint32_t offset) const {
        if (general != nullptr)
            return (*general)(frame.node(offset));
        int id = frame.idAt(offset);
        bool attribute = static_cast<unsigned>(id) - 1u < static_cast<unsigned>(LastAttributeId);
        return attribute == attributeClass && (anyId || id == wanted);
    }

private:
    ChildTest(bool attributes, bool anyIdentifier, int id)
        : attributeClass(attributes), anyId(anyIdentifier), wanted(id), general(nullptr) {}

    bool attributeClass; // the class accepted: attributes, else elements
    bool anyId;          // any id of that class, else only `wanted`
    int wanted;
    NodePredicate const *general; // when set, the test is this predicate alone
};

// A span and a test: settle() moves to the first node of the span that the
// test accepts, step() goes past the node it rests on. A node that does not
// fit ends the span, so a damaged size can neither leave the frame nor loop
// (every node size is at least 16).
class FilteredWalk {
public:
    FilteredWalk(FrameView const &view, Span span, ChildTest const &childTest)
        : frame(view), current(span.begin), end(span.end), test(childTest) {}
    // Requires: `predicate` outlives the walk.
    FilteredWalk(FrameView const &view, Span span, NodePredicate const &predicate)
        : frame(view), current(span.begin), end(span.end), test(predicate) {}

    void settle() {
        while (current < end) {
            if (!frame.usable(current, end)) {
                current = end;
                return;
            }
            if (test.accepts(frame, current))
                return;
            advance();
        }
    }
    void step() {
        if (current >= end)
            return;
        if (!frame.usable(current, end)) {
            current = end;
            return;
        }
        advance();
    }
    // step() for a walk that has just settled on a node, which is known to fit.
    // Requires: !atEnd() right after settle().
    void advance() {
        std::uint64_t next = frame.endAt(current);
        current = next < end ? static_cast<std::uint32_t>(next) : end;
    }
    bool atEnd() const { return current >= end; }
    std::uint32_t offset() const { return current; }
    binary::Node node() const { return frame.node(current); }
    // Two walks are equal when both are at their end or at the same byte.
    bool operator==(FilteredWalk const &other) const {
        return (atEnd() && other.atEnd()) || current == other.current;
    }

private:
    FrameView const &frame;
    std::uint32_t current;
    std::uint32_t end;
    ChildTest test;
};

// The node at the end of `entries`, when its header lies inside the root
// section. An empty path is a caller's fault (asserted); a node outside the
// section (damaged or stale offsets) gives false.
inline bool currentNode(FrameView const &frame, std::vector<PathEntry> const &entries,
                        binary::Node &out) {
    // The caller needs a current node, but the path is empty: the cursor went
    // above the root with seekUp, or its document never had a root.
    KVX_ASSERT(!entries.empty());
    if (entries.empty())
        return false;
    std::uint32_t offset = entries.back().offset;
    if (!frame.usable(offset, frame.rootEnd))
        return false;
    out = frame.node(offset);
    return true;
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_CURSORWALK_H
