// binary::Node: the view of one node header in a frame, on which walks and
// cursor predicates run. It never owns bytes. Every read is checked against the
// view's limit with KVX_ASSERT; code that walks frames from outside tests
// fits() first and treats a node that does not fit as the end of its span.
#ifndef KVX_BINARY_NODE_H
#define KVX_BINARY_NODE_H

#include "binary/WireFormat.h"

#include <kvx/KVXCommon.h>

#include <cstdint>

namespace KVX {
namespace binary {

class Node {
public:
    // `base` is the frame, `limit` the number of valid bytes in it, `offset` the
    // node's header offset, `format` the frame's format byte.
    Node(char const *frame, std::uint32_t frameLimit, std::uint32_t nodeOffset,
         unsigned frameFormat)
        : base(frame), limit(frameLimit), offset(nodeOffset), format(frameFormat) {}

    // True when the short header lies inside the limit.
    bool fits() const {
        return base != nullptr && limit >= Internal::ShortHeaderSize &&
               offset <= limit - Internal::ShortHeaderSize;
    }
    // True when the header and the whole value lie inside the limit.
    bool valueFits() const {
        return fits() && static_cast<std::uint64_t>(valueOffset()) + size() <= limit;
    }

    int id() const { return Internal::loadInt32(at(0, 4)); }
    unsigned short kind() const { return Internal::load16(at(4, 2)); }
    unsigned short ns() const { return Internal::load16(at(6, 2)); }
    std::uint32_t size() const { return Internal::load32(at(8, 4)); }
    // The 32-bit word that kind and ns make together.
    std::uint32_t kindAndNamespace() const { return Internal::load32(at(4, 4)); }

    bool isContainer() const { return Internal::isContainerKind(kind()); }
    std::uint32_t headerSize() const { return Internal::headerSize(size(), kind()); }
    std::uint32_t valueOffset() const { return offset + headerSize(); }
    std::uint64_t nodeSize() const { return Internal::nodeSize(size(), kind(), format); }
    std::uint64_t end() const { return offset + nodeSize(); }
    // The value bytes. Requires: valueFits().
    char const *value() const {
        static char const empty[8] = {};
        bool inside = valueFits();
        KVX_ASSERT(inside); // a caller read a value without checking the frame
        return inside ? base + valueOffset() : empty;
    }

    char const *base;
    std::uint32_t limit;
    std::uint32_t offset;
    unsigned format;

private:
    // A header field. Outside the frame the assertion fires; when an installed
    // handler returns, the read goes to zero bytes instead of past the frame.
    char const *at(std::uint32_t field, std::uint32_t width) const {
        static char const zeros[8] = {};
        bool inside = base != nullptr && limit >= width && offset <= limit - width &&
                      field <= limit - width - offset;
        KVX_ASSERT(inside); // header read outside the frame
        return inside ? base + offset + field : zeros;
    }
};

// Ids 1 to 200 are attributes: one unsigned comparison of id - 1 against 200.
inline bool isAttribute(Node const &node) {
    return static_cast<unsigned>(node.id()) - 1u < static_cast<unsigned>(Internal::LastAttributeId);
}

} // namespace binary
} // namespace KVX

#endif // KVX_BINARY_NODE_H
