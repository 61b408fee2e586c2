// KVXBinaryIterator: construction, copies, and the validation that keeps a
// cursor's (id, offset) path in step with its document's change counter.
// The cursor owns only its path; the frame belongs to the message's
// KVXBinaryInternals. One thread at a time per document and its cursors.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

#include <new>

namespace KVX {

namespace {

// Stamp value that the document's counter is not expected to reach, so that
// an invalidated cursor re-checks its path at the next validation.
constexpr unsigned int InvalidStamp = 0xFFFFFFFFu;

// Room reserved in both vectors of a new cursor's path; deeper documents grow
// them as usual.
constexpr std::size_t ReservedDepth = 8;

// Walks the frame from the root along `entries`: each (id, offset) pair must
// name a node of that id at that offset in the span of the pair before it. A
// leaf ends the check early with success.
bool resolvePath(Internal::FrameView const &frame, std::vector<PathEntry> const &entries) {
    Internal::Span span = frame.rootSpan();
    if (span.empty() || !frame.hasRoot())
        return false;
    for (PathEntry const &entry : entries) {
        std::uint32_t current = span.begin;
        bool matched = false;
        while (current < span.end && frame.usable(current, span.end)) {
            binary::Node node = frame.node(current);
            if (node.id() == entry.id && current == entry.offset) {
                matched = true;
                break;
            }
            std::uint64_t next = node.end();
            current = next < span.end ? static_cast<std::uint32_t>(next) : span.end;
        }
        if (!matched)
            return false;
        binary::Node node = frame.node(current);
        if (!node.isContainer())
            return true;
        span = frame.childSpan(current, span.end);
    }
    return true;
}

// validateStamp past its one comparison: the document changed since the cursor
// last looked. Out of line so that the common case, run on every cursor step,
// is that comparison alone.
[[gnu::noinline]] int refreshPath(KVXBinaryInternals const &internals, unsigned __int64 cursorCount,
                                  char *&buffer, unsigned int &stamp, BinaryPath &path) {
    buffer = internals.buffer;
    // A lone cursor keeps its own path right through its edits; only the base
    // needs refreshing, and the stamp is left stale on purpose.
    if (cursorCount < 2)
        return 0;
    Internal::FrameView frame(internals);
    if (path.entries.empty()) {
        // A cursor made on a document without a root finds the root that has
        // been created since.
        stamp = internals.stamp;
        if (buffer != nullptr && frame.hasRoot())
            path.entries.push_back(
                PathEntry{frame.node(Internal::RootOffset).id(), Internal::RootOffset});
        return 0;
    }
    if (buffer == nullptr || !resolvePath(frame, path.entries))
        return -1;
    stamp = internals.stamp;
    return 0;
}

} // namespace

int KVXBinaryIterator::Policy = 0;

KVXBinaryIterator::KVXBinaryIterator(KVXBinary *binary)
    : KVXMessageIterator(binary), policy(Policy), buffer(nullptr), stamp(0), path() {
    path.entries.reserve(ReservedDepth);
    path.namespaces.reserve(ReservedDepth);
    if (binary == nullptr || binary->internals == nullptr)
        return;
    KVXBinaryInternals const &internals = *binary->internals;
    buffer = internals.buffer;
    stamp = internals.stamp;
    if (buffer == nullptr)
        return;
    Internal::FrameView frame(internals);
    if (frame.hasRoot())
        path.entries.push_back(
            PathEntry{frame.node(Internal::RootOffset).id(), Internal::RootOffset});
}

// Both copy forms take message, policy and path from the source, but buffer
// and stamp fresh from the document: a copy of a stale cursor looks current
// and keeps the stale offsets.
KVXBinaryIterator::KVXBinaryIterator(KVXBinaryIterator const *other)
    : KVXMessageIterator(other), policy(other->policy), buffer(nullptr), stamp(0),
      path(other->path) {
    KVXBinary *binary = getBinaryMessage();
    if (binary != nullptr && binary->internals != nullptr) {
        buffer = binary->internals->buffer;
        stamp = binary->internals->stamp;
    }
}

KVXBinaryIterator::KVXBinaryIterator(KVXBinaryIterator const &other) : KVXBinaryIterator(&other) {}

// Assignment takes everything from the source, buffer and stamp included.
KVXBinaryIterator &KVXBinaryIterator::operator=(KVXBinaryIterator const &other) {
    if (this == &other)
        return *this;
    KVXMessageIterator::operator=(other);
    policy = other.policy;
    buffer = other.buffer;
    stamp = other.stamp;
    path.entries = other.path.entries;
    path.namespaces = other.path.namespaces;
    return *this;
}

KVXBinaryIterator::~KVXBinaryIterator() {}

KVXMessageIterator *KVXBinaryIterator::newIterator(bool deep) const {
    KVXBinaryIterator *copy = new (std::nothrow) KVXBinaryIterator(*this);
    if (copy == nullptr || !deep)
        return copy;
    // The copy walks a message of its own that shares this one's data; the
    // caller owns that message through getMessage(). Buffer and stamp still
    // describe the old document until the next validation.
    copy->message = message != nullptr ? message->copy(false) : nullptr;
    return copy;
}

void KVXBinaryIterator::invalidate() const {
    stamp = InvalidStamp;
}

int KVXBinaryIterator::curID() const {
    // An empty path means the cursor was moved above the root (seekUp) or was
    // made on a document without a root; the caller asked for a node anyway.
    KVX_ASSERT(!path.entries.empty());
    return path.entries.empty() ? -1 : path.entries.back().id;
}

int KVXBinaryIterator::validateInternals() const {
    if (KVXMessageIterator::validateInternals() != 0)
        return -1;
    return validateStamp() != 0 ? -1 : 0;
}

int KVXBinaryIterator::validateStamp() const {
    KVXBinary *binary = getBinaryMessage();
    if (binary == nullptr || binary->internals == nullptr)
        return -1;
    if (stamp == binary->internals->stamp)
        return 0;
    return refreshPath(*binary->internals, binary->cursorCount, buffer, stamp, path);
}

KVXBinary *KVXBinaryIterator::getBinaryMessage() const {
    return static_cast<KVXBinary *>(message);
}

KVXBinaryInternals &KVXBinaryIterator::doc() const {
    return *getBinaryMessage()->internals;
}

KVXProtocolIDMap &KVXBinaryIterator::ids() const {
    return doc().ids;
}

} // namespace KVX
