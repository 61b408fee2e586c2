// Cursor navigation: the moves of KVXBinaryIterator (root, up, by id, by path,
// first child, next sibling) over the bounded walks of CursorWalk.h, and the
// stricter bound that the editing operations take. Reads the frame of the
// message's KVXBinaryInternals and changes only the cursor's own path. One
// thread at a time per document.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

#include <algorithm>

namespace KVX {

namespace Internal {

// A segment is copied into a buffer of this size with its terminator, which
// bounds a path segment to 255 characters.
constexpr std::size_t SegmentBufferSize = 256;

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

} // namespace Internal

namespace {

// The offset of the first child of the current node that `test` accepts, or 0
// when there is none (offset 0 is the frame head, never a child). A current
// node outside the root section has an empty child span, so stale or damaged
// offsets find nothing.
// Inlined into each caller, where the test is a constant.
[[gnu::always_inline]] inline std::uint32_t firstMatch(Internal::FrameView const &frame,
                                                       std::vector<PathEntry> const &entries,
                                                       Internal::ChildTest const &test) {
    // The caller needs a current node, but the path is empty: the cursor went
    // above the root with seekUp, or its document never had a root.
    KVX_ASSERT(!entries.empty());
    if (entries.empty())
        return 0;
    std::size_t last = entries.size() - 1;
    std::uint32_t offset = entries[last].offset;
    // Most nodes of a packet are leaves: they are told by their kind before
    // the parent's bound is read. childSpan would give them an empty span too.
    if (!frame.usable(offset, frame.rootEnd) || !Internal::isContainerKind(frame.kindAt(offset)))
        return 0;
    Internal::FilteredWalk walk(frame, frame.childSpan(offset, frame.parentEnd(entries, last)),
                                test);
    walk.settle();
    return walk.atEnd() ? 0 : walk.offset();
}

// The first child of the current node with `id`, an attribute for ids 1 to
// 200, else an element; 0 when there is none. Out of line so that seek(0), with
// which every typed read by id begins, stays small.
[[gnu::noinline]] std::uint32_t childWithId(KVXBinaryInternals const &document,
                                            std::vector<PathEntry> const &entries, int id) {
    Internal::FrameView frame(document);
    bool attribute =
        static_cast<unsigned>(id) - 1u < static_cast<unsigned>(Internal::LastAttributeId);
    return firstMatch(frame, entries, Internal::ChildTest::withId(id, attribute));
}

// The walk step shared by the three nextSibling forms: settle from the current
// node, step over the node found, settle again. Settling from the current node
// is what makes a call from a non-matching node skip the first match.
// Inlined into each caller, where the test is a constant.
[[gnu::always_inline]] inline int stepSibling(Internal::FrameView const &frame, BinaryPath &path,
                                              Internal::ChildTest const &test) {
    std::vector<PathEntry> &entries = path.entries;
    // nextSibling at the root: the root has no parent to walk.
    KVX_ASSERT(entries.size() >= 2);
    if (entries.size() < 2)
        return -1;
    std::size_t parent = entries.size() - 2;
    Internal::Span span = frame.childSpan(entries[parent].offset, frame.parentEnd(entries, parent));
    std::uint32_t start = entries.back().offset;
    if (start < span.begin || start >= span.end)
        return -1;
    span.begin = start;
    Internal::FilteredWalk walk(frame, span, test);
    walk.settle();
    if (walk.atEnd())
        return -1;
    walk.advance();
    walk.settle();
    if (walk.atEnd())
        return -1;
    entries.back() = PathEntry{frame.idAt(walk.offset()), walk.offset()};
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
    KVXBinary const *binary = static_cast<KVXBinary *>(message);
    // validateStamp, with its common case (an unchanged stamp) decided inline:
    // every typed read by id starts here.
    if (binary == nullptr || binary->internals == nullptr ||
        (stamp != binary->internals->stamp && validateStamp() != 0))
        return -1;
    if (id == 0)
        return 0;
    std::uint32_t offset = childWithId(*binary->internals, path.entries, id);
    if (offset == 0)
        return -1;
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
    KVXBinary const *binary = static_cast<KVXBinary *>(message);
    // validateStamp, with its common case (an unchanged stamp) decided inline.
    if (binary == nullptr || binary->internals == nullptr ||
        (stamp != binary->internals->stamp && validateStamp() != 0))
        return -1;
    KVXBinaryInternals const &document = *binary->internals;
    // Most nodes of a packet are leaves. A leaf has no child wherever it lies,
    // so it is told by its kind (read inside the valid bytes) before the root
    // section is measured; firstMatch would find nothing under it either.
    if (!path.entries.empty() && !Internal::mayHoldChildren(document, path.entries.back().offset))
        return -1;
    Internal::FrameView frame(document);
    std::uint32_t offset = firstMatch(frame, path.entries, Internal::ChildTest::elements());
    if (offset == 0)
        return -1;
    path.entries.push_back(PathEntry{frame.idAt(offset), offset});
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
    KVXBinary const *binary = static_cast<KVXBinary *>(message);
    // validateStamp, with its common case (an unchanged stamp) decided inline.
    if (binary == nullptr || binary->internals == nullptr ||
        (stamp != binary->internals->stamp && validateStamp() != 0))
        return -1;
    Internal::FrameView frame(*binary->internals);
    return stepSibling(frame, path, Internal::ChildTest::elements());
}

int KVXBinaryIterator::nextSibling(int id) const {
    if (id == 0)
        return 0;
    if (validateStamp() != 0)
        return -1;
    Internal::FrameView frame(doc());
    // There is no attribute form: an id of 1 to 200 never matches an element.
    return stepSibling(frame, path, Internal::ChildTest::withId(id, false));
}

int KVXBinaryIterator::nextSibling(std::string const &name) const {
    if (getBinaryMessage() == nullptr || getBinaryMessage()->internals == nullptr)
        return -1;
    int id = ids().lookupId(Internal::CharArray(name));
    return id == 0 ? -1 : nextSibling(id);
}

std::string const KVXBinaryIterator::curName() const {
    // The current entry's id as curID reads it, without the call: a walk asks
    // for every node's name. An empty path means the cursor was moved above the
    // root (seekUp) or was made on a document without a root.
    KVX_ASSERT(!path.entries.empty());
    KVXBinary const *binary = static_cast<KVXBinary *>(message);
    if (path.entries.empty() || binary == nullptr || binary->internals == nullptr)
        return std::string();
    return binary->internals->ids.lookupName(path.entries.back().id).str();
}

} // namespace KVX
