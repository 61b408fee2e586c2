// Cursor navigation: child spans, filtered walks over node predicates, and the
// moves of KVXBinaryIterator (root, up, by id, by path, first child, next
// sibling). Reads the frame of the message's KVXBinaryInternals and changes
// only the cursor's own path. One thread at a time per document.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

#include <boost/bind/bind.hpp>

#include <algorithm>

namespace KVX {

namespace Internal {

// A segment is copied into a buffer of this size with its terminator, which
// bounds a path segment to 255 characters.
constexpr std::size_t SegmentBufferSize = 256;

NodePredicate attributeChildren() {
    return boost::bind(&binary::isAttribute, boost::placeholders::_1);
}

NodePredicate elementChildren() {
    return !boost::bind(&binary::isAttribute, boost::placeholders::_1);
}

NodePredicate childrenWithId(int id, bool attributes) {
    using boost::placeholders::_1;
    if (attributes)
        return boost::bind(&binary::Node::id, _1) == id && boost::bind(&binary::isAttribute, _1);
    return boost::bind(&binary::Node::id, _1) == id && !boost::bind(&binary::isAttribute, _1);
}

FrameView::FrameView(KVXBinaryInternals const &doc)
    : base(doc.buffer), limit(doc.used > 0 ? static_cast<std::uint32_t>(doc.used) : 0),
      format(FormatCurrent), rootEnd(RootOffset) {
    if (base == nullptr || limit < FrameHeadSize) {
        limit = base == nullptr ? 0 : limit;
        return;
    }
    format = frameFormat(base);
    if (frameIsEmpty(base))
        return;
    binary::Node root = node(RootOffset);
    if (!root.fits())
        return;
    // A damaged root size must not stretch the root section past the frame.
    rootEnd = static_cast<std::uint32_t>(std::min<std::uint64_t>(root.end(), limit));
}

bool FrameView::usable(std::uint32_t offset, std::uint32_t bound) const {
    bound = std::min(bound, rootEnd);
    return bound >= ShortHeaderSize && offset <= bound - ShortHeaderSize && node(offset).fits();
}

Span FrameView::childSpan(std::uint32_t offset, std::uint32_t bound) const {
    bound = std::min(bound, rootEnd);
    if (offset >= bound || !usable(offset, bound))
        return Span{bound, bound};
    binary::Node parent = node(offset);
    std::uint32_t end = static_cast<std::uint32_t>(std::min<std::uint64_t>(parent.end(), bound));
    if (!parent.isContainer())
        return Span{end, end};
    std::uint32_t begin = parent.valueOffset();
    return begin < end ? Span{begin, end} : Span{end, end};
}

std::uint32_t FrameView::enclosingEnd(std::vector<PathEntry> const &entries,
                                      std::size_t count) const {
    std::uint32_t bound = rootEnd;
    for (std::size_t i = 0; i < count && i < entries.size(); ++i) {
        std::uint32_t offset = entries[i].offset;
        if (!usable(offset, bound))
            return std::min(bound, offset);
        bound = static_cast<std::uint32_t>(std::min<std::uint64_t>(node(offset).end(), bound));
    }
    return bound;
}

void FilteredWalk::settle() {
    while (current < end) {
        if (!frame.usable(current, end)) {
            current = end;
            return;
        }
        if (predicate(frame.node(current)))
            return;
        step();
    }
}

void FilteredWalk::step() {
    if (current >= end)
        return;
    if (!frame.usable(current, end)) {
        current = end;
        return;
    }
    std::uint64_t next = frame.node(current).end();
    current = next < end ? static_cast<std::uint32_t>(next) : end;
}

bool currentNode(FrameView const &frame, std::vector<PathEntry> const &entries, binary::Node &out) {
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

namespace {

// The walk step shared by the three nextSibling forms: settle from the current
// node, step over the node found, settle again. Settling from the current node
// is what makes a call from a non-matching node skip the first match.
int stepSibling(Internal::FrameView const &frame, BinaryPath &path,
                Internal::NodePredicate const &predicate) {
    std::vector<PathEntry> &entries = path.entries;
    // nextSibling at the root: the root has no parent to walk.
    KVX_ASSERT(entries.size() >= 2);
    if (entries.size() < 2)
        return -1;
    std::size_t parent = entries.size() - 2;
    Internal::Span span =
        frame.childSpan(entries[parent].offset, frame.enclosingEnd(entries, parent));
    std::uint32_t start = entries.back().offset;
    if (start < span.begin || start >= span.end)
        return -1;
    span.begin = start;
    Internal::FilteredWalk walk(frame, span, predicate);
    walk.settle();
    if (walk.atEnd())
        return -1;
    walk.step();
    walk.settle();
    if (walk.atEnd())
        return -1;
    entries.back() = PathEntry{walk.node().id(), walk.offset()};
    return 0;
}

} // namespace

int KVXBinaryIterator::seekRoot() const {
    if (path.entries.size() > 1)
        path.entries.erase(path.entries.begin() + 1, path.entries.end());
    return validateStamp();
}

int KVXBinaryIterator::seekUp() const {
    if (!path.entries.empty())
        path.entries.pop_back();
    return 0;
}

int KVXBinaryIterator::seek(int id) const {
    if (policy & 1)
        parseUnknown(); // a fragment that does not expand is no reason to fail a seek
    if (validateStamp() != 0)
        return -1;
    if (id == 0)
        return 0;
    Internal::FrameView frame(doc());
    binary::Node current(nullptr, 0, 0, 0);
    if (!Internal::currentNode(frame, path.entries, current))
        return -1;
    bool attribute =
        static_cast<unsigned>(id) - 1u < static_cast<unsigned>(Internal::LastAttributeId);
    Internal::NodePredicate predicate = Internal::childrenWithId(id, attribute);
    std::size_t last = path.entries.size() - 1;
    Internal::FilteredWalk walk(
        frame, frame.childSpan(current.offset, frame.enclosingEnd(path.entries, last)), predicate);
    walk.settle();
    if (walk.atEnd())
        return -1;
    std::uint32_t offset = walk.offset();
    if (validateStamp() != 0)
        return -1;
    path.entries.push_back(PathEntry{id, offset});
    return 0;
}

int KVXBinaryIterator::seek(std::string const &where) const {
    std::vector<PathEntry> savedEntries = path.entries;
    std::vector<int> savedNamespaces = path.namespaces;
    if (where.empty())
        return seek(0);
    if (validateStamp() != 0)
        return -1;
    std::size_t position = 0;
    if (where[0] == '/') {
        if (path.entries.size() > 1)
            path.entries.resize(1);
        position = 1;
    }
    for (;;) {
        std::size_t slash = where.find('/', position);
        std::size_t length = (slash == std::string::npos ? where.size() : slash) - position;
        if (length == 0)
            return 0; // a trailing or doubled slash ends the path with success
        // A segment must fit the 256-byte name buffer with its terminator; a
        // longer one is refused instead of overrunning it.
        if (length >= Internal::SegmentBufferSize) {
            path.entries = savedEntries;
            path.namespaces = savedNamespaces;
            return -1;
        }
        char segment[Internal::SegmentBufferSize];
        where.copy(segment, length, position);
        segment[length] = '\0';
        int id = ids().lookupId(Internal::CharArray(segment, length));
        if (id == 0 || seek(id) != 0) {
            path.entries = savedEntries;
            path.namespaces = savedNamespaces;
            return -1;
        }
        if (slash == std::string::npos)
            return 0;
        position = slash + 1;
    }
}

int KVXBinaryIterator::seekPresence(int id) const {
    if (seek(id) != 0)
        return -1;
    if (id != 0)
        seekUp();
    return 0;
}

// Only one level is undone: after a path of two segments the cursor rests on
// the first one.
int KVXBinaryIterator::seekPresence(std::string const &where) const {
    if (seek(where) != 0)
        return -1;
    if (!where.empty())
        seekUp();
    return 0;
}

int KVXBinaryIterator::firstChild() const {
    if ((policy & 1) && parseUnknown() != 0)
        return -1;
    if (validateStamp() != 0)
        return -1;
    Internal::FrameView frame(doc());
    binary::Node current(nullptr, 0, 0, 0);
    if (!Internal::currentNode(frame, path.entries, current))
        return -1;
    Internal::NodePredicate predicate = Internal::elementChildren();
    std::size_t last = path.entries.size() - 1;
    Internal::FilteredWalk walk(
        frame, frame.childSpan(current.offset, frame.enclosingEnd(path.entries, last)), predicate);
    walk.settle();
    if (walk.atEnd())
        return -1;
    path.entries.push_back(PathEntry{walk.node().id(), walk.offset()});
    return 0;
}

int KVXBinaryIterator::firstChild(int id) const {
    return seek(id);
}

int KVXBinaryIterator::firstChild(std::string const &name) const {
    if (getBinaryMessage() == nullptr || getBinaryMessage()->internals == nullptr)
        return -1;
    int id = ids().lookupId(Internal::CharArray(name));
    return id == 0 ? -1 : firstChild(id);
}

int KVXBinaryIterator::nextSibling() const {
    if (validateStamp() != 0)
        return -1;
    Internal::FrameView frame(doc());
    Internal::NodePredicate predicate = Internal::elementChildren();
    return stepSibling(frame, path, predicate);
}

int KVXBinaryIterator::nextSibling(int id) const {
    if (id == 0)
        return 0;
    if (validateStamp() != 0)
        return -1;
    Internal::FrameView frame(doc());
    // There is no attribute form: an id of 1 to 200 never matches an element.
    Internal::NodePredicate predicate = Internal::childrenWithId(id, false);
    return stepSibling(frame, path, predicate);
}

int KVXBinaryIterator::nextSibling(std::string const &name) const {
    if (getBinaryMessage() == nullptr || getBinaryMessage()->internals == nullptr)
        return -1;
    int id = ids().lookupId(Internal::CharArray(name));
    return id == 0 ? -1 : nextSibling(id);
}

std::string const KVXBinaryIterator::curName() const {
    int id = curID();
    if (path.entries.empty() || getBinaryMessage() == nullptr ||
        getBinaryMessage()->internals == nullptr)
        return std::string();
    return ids().lookupName(id).str();
}

} // namespace KVX
