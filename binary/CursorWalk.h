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

#include <cstdint>
#include <cstring>
#include <vector>

namespace KVX {
namespace Internal {

// What a walk tests each node with. Built once per cursor call, so the walk
// itself allocates nothing per node.
typedef boost::function<bool(binary::Node const &)> NodePredicate;

// The predicates of navigation: attribute children (ids 1 to 200), element
// children (every other id), and either class restricted to one id.
NodePredicate attributeChildren();
NodePredicate elementChildren();
NodePredicate childrenWithId(int id, bool attributes);

// A range [begin, end) of sibling nodes. Empty when begin is not below end.
struct Span {
    std::uint32_t begin;
    std::uint32_t end;
    bool empty() const { return begin >= end; }
};

// The document's frame as the cursor reads it: base, valid length (`used`),
// format byte and the end of the root section, clamped to the valid length.
class FrameView {
public:
    explicit FrameView(KVXBinaryInternals const &doc);

    binary::Node node(std::uint32_t offset) const {
        return binary::Node(base, limit, offset, format);
    }
    // True when a whole short header at `offset` lies inside the root section
    // and below `bound`: only then may its fields be read and trusted.
    bool usable(std::uint32_t offset, std::uint32_t bound) const;
    // The root span: from the root position to the end of the root section.
    Span rootSpan() const { return Span{RootOffset, rootEnd > RootOffset ? rootEnd : RootOffset}; }
    // The child span of the node at `offset`, clamped to `bound` (the end of
    // its enclosing node) and to the root end. Leaves have an empty span at
    // their end.
    Span childSpan(std::uint32_t offset, std::uint32_t bound) const;
    // The smallest end among the first `count` nodes of `entries` and the root
    // end: the bound of the node at entries[count].
    std::uint32_t enclosingEnd(std::vector<PathEntry> const &entries, std::size_t count) const;
    // True when a root node stands at the root position.
    bool hasRoot() const { return usable(RootOffset, rootEnd); }

    char const *base;
    std::uint32_t limit;
    unsigned format;
    std::uint32_t rootEnd;
};

// A span and a predicate: settle() moves to the first node of the span that
// the predicate accepts, step() goes past the node it rests on. A node that
// does not fit ends the span, so a damaged size can neither leave the frame
// nor loop (every node size is at least 16).
class FilteredWalk {
public:
    FilteredWalk(FrameView const &view, Span span, NodePredicate const &test)
        : frame(view), current(span.begin), end(span.end), predicate(test) {}

    void settle();
    void step();
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
    NodePredicate const &predicate;
};

// The node at the end of `entries`, when its header lies inside the root
// section. An empty path is a caller's fault (asserted); a node outside the
// section (damaged or stale offsets) gives false.
bool currentNode(FrameView const &frame, std::vector<PathEntry> const &entries, binary::Node &out);

// The value text of a leaf: its bytes up to the first NUL, never past `size`
// or the frame. Requires: node.valueFits().
inline std::size_t valueTextLength(binary::Node const &node) {
    char const *value = node.value();
    void const *nul = std::memchr(value, 0, node.size());
    return nul != nullptr ? static_cast<std::size_t>(static_cast<char const *>(nul) - value)
                          : node.size();
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_CURSORWALK_H
