// Framing of KVXBinary: where a frame ends in a stream, writing a frame (or the
// text form for old peers), and loading a whole frame. Frames handed out are C
// heap blocks that the caller frees; received bytes are only read, and never
// beyond the length the caller gave. One thread at a time per message.
#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include "binary/FrameGeometry.h"
#include "binary/Grafting.h"
#include "binary/KVXBinaryInternals.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/Node.h"
#include "binary/WireFormat.h"

#include <kvx/KVXCommon.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace KVX {

namespace {

using namespace Internal;

// The offset of the node that a cursor stands on: the top of the subtree that
// a serialize from it writes. False, after the assertion, for no node.
bool cursorTop(KVXBinaryIterator const &cursor, std::uint32_t &top) {
    BinaryPath const &path = cursor.binaryPath();
    KVX_ASSERT(!path.entries.empty()); // `from` stands on no node
    if (path.entries.empty())
        return false;
    top = path.entries.back().offset;
    return true;
}

// Lowest peer version that gets the binary form; below it a peer gets text.
constexpr int FirstBinaryVersion = 40000;
// What the fixed-buffer form always writes, whatever the document's version.
constexpr int FixedBufferVersion = 40000;
// What a document without a "version" attribute counts as in format 2.
constexpr int CurrentVersion = 40500;
// A legacy frame without a "version" attribute predates binary peers.
constexpr int LegacyVersion = 0;

// The frame length rule over the caller's `length` bytes: 0 when more bytes
// are needed, -1 when the magic is wrong, else the length of the frame at the
// start of the buffer. A negative length reads nothing. The sums are taken in
// 64 bits, so a size near 4 GiB cannot wrap into a short "complete" frame, and
// a result is never more than `length`, so it fits an int.
int frameLength(char const *buffer, int length) {
    if (length < static_cast<int>(FrameHeadSize))
        return 0;
    return static_cast<int>(measureFrame(buffer, static_cast<std::uint64_t>(length)));
}

// True when the document holds at least a frame head to read.
bool hasFrame(KVXBinaryInternals const &doc) {
    return doc.buffer != nullptr && doc.used >= static_cast<int>(FrameHeadSize);
}

// The node size of the top node at `top`, or false when that node does not lie
// wholly inside the root section (a stale or damaged offset).
bool topNodeSize(KVXBinaryInternals const &doc, std::uint32_t top, std::uint64_t &size) {
    std::uint32_t const rootEnd = doc.rootEnd();
    if (top >= rootEnd)
        return false;
    binary::Node const node(doc.buffer, rootEnd, top, doc.format());
    if (!node.fits() || node.nodeSize() > rootEnd - top)
        return false;
    size = node.nodeSize();
    return true;
}

// The name table of the document, or false when the head claims more table
// than the buffer holds.
bool tableSpan(KVXBinaryInternals const &doc, std::uint32_t &start, std::uint32_t &size) {
    start = doc.rootEnd();
    size = nameTableSize(doc.buffer);
    std::uint64_t const used = static_cast<std::uint64_t>(doc.used);
    return start <= used && size <= used - start;
}

// Bytes a frame of the node at `top` needs for a peer of `version`.
std::uint64_t neededLength(KVXBinaryInternals const &doc, std::uint32_t top, int version) {
    std::uint64_t needed = FrameHeadSize;
    std::uint64_t nodeSize = 0;
    if (topNodeSize(doc, top, nodeSize))
        needed += nodeSize;
    if (version >= FirstBinaryVersion)
        needed += nameTableSize(doc.buffer);
    return needed;
}

// The common frame writer: a fresh head, the top node with its descendants,
// and (from version 40000 on) the whole name table. The node goes across
// unchanged; its ids keep their meaning because the table travels with it.
// Returns the frame length, or 0 when nothing was written.
std::uint64_t writeFrame(KVXBinaryInternals const &doc, std::uint32_t top, char *dest,
                         std::uint64_t capacity, int version) {
    if (dest == nullptr)
        return 0;
    std::uint32_t tableStart = 0;
    std::uint32_t tableSize = 0;
    if (!tableSpan(doc, tableStart, tableSize))
        return 0;
    std::uint64_t const needed = neededLength(doc, top, version);
    if (needed > capacity)
        return 0;
    store32(dest, FrameMagic);
    store32(dest + 4, FreshFlags);
    std::uint64_t nodeSize = 0;
    if (!frameIsEmpty(doc.buffer) && topNodeSize(doc, top, nodeSize)) {
        std::memmove(dest + RootOffset, doc.buffer + top, static_cast<std::size_t>(nodeSize));
        store32(dest + 4, frameFlags(dest) & ~FlagEmpty);
    }
    if (version < FirstBinaryVersion) {
        // The legacy form carries no name table; its format byte says so.
        store32(dest + 4, frameFlags(dest) & ~FormatMask);
        return RootOffset + nodeSize;
    }
    store32(dest + 4,
            (frameFlags(dest) & ~NameTableMask) | (frameFlags(doc.buffer) & NameTableMask));
    std::memmove(dest + RootOffset + nodeSize, doc.buffer + tableStart, tableSize);
    return RootOffset + nodeSize + tableSize;
}

} // namespace

int KVXBinary::isComplete(char const *buffer, int length) {
    KVX_ASSERT(buffer != nullptr || length <= 0); // a length was given for no buffer
    if (buffer == nullptr)
        return 0;
    int const frame = frameLength(buffer, length);
    if (frame >= 0)
        return frame;
    // No magic: this is text, which ends at its first NUL. A stream of garbage
    // stays incomplete until a NUL turns up; it is never reported as an error.
    void const *nul = std::memchr(buffer, 0, static_cast<std::size_t>(length));
    if (nul == nullptr)
        return 0;
    return static_cast<int>(static_cast<char const *>(nul) - buffer) + 1;
}

int KVXBinary::init(char const *buffer, int length) {
    return deserialize(buffer, length, nullptr);
}

int KVXBinary::serialize(char *buffer, unsigned __int64 *size,
                         KVXMessageIterator const *from) const {
    KVX_ASSERT(size != nullptr); // the caller gave nowhere to store the size
    if (size == nullptr)
        return -1;
    if (saveChanges() != 0 || internals == nullptr || !hasFrame(*internals))
        return -1;
    std::uint32_t top = RootOffset;
    if (from != nullptr) {
        // This form does not validate `from`: it must be a current cursor on
        // this document. Its offset is still checked against the root section.
        KVXBinaryIterator const *cursor = dynamic_cast<KVXBinaryIterator const *>(from);
        KVX_ASSERT(cursor != nullptr); // `from` is a cursor of another protocol
        if (cursor == nullptr)
            return -1;
        if (!cursorTop(*cursor, top))
            return -1;
    }
    std::uint64_t nodeSize = 0;
    std::uint32_t tableStart = 0;
    std::uint32_t tableSize = 0;
    // A document with no root is refused here, and so is an offset behind the
    // root section or a node that would reach past it.
    if (!topNodeSize(*internals, top, nodeSize) || !tableSpan(*internals, tableStart, tableSize))
        return -1;
    if (buffer == nullptr) {
        *size = RootOffset + nodeSize + tableSize;
        return -2;
    }
    std::uint64_t const capacity = *size & 0xFFFFFFFFu;
    std::uint64_t const written = writeFrame(*internals, top, buffer, capacity, FixedBufferVersion);
    if (written == 0)
        return -1;
    *size = written;
    return 0;
}

int KVXBinary::serialize(char **out, int *length, KVXMessageIterator const *from,
                         int version) const {
    KVX_ASSERT(out != nullptr && length != nullptr); // nowhere to store the result
    if (out == nullptr || length == nullptr)
        return -1;
    *out = nullptr;
    *length = 0;
    if (saveChanges() != 0 || internals == nullptr)
        return -1;
    // Only a cursor of this protocol selects a subtree; any other counts as none.
    KVXBinaryIterator const *cursor = dynamic_cast<KVXBinaryIterator const *>(from);
    if (cursor != nullptr && cursor->validateStamp() != 0)
        return -1;
    int const effective = std::min(version, internals->ids.version);
    if (effective < FirstBinaryVersion) {
        // Old peers read text, and always that of the whole message.
        char *text = nullptr;
        int textLength = 0;
        if (toText(effective, text, textLength))
            return -1;
        *out = text;
        *length = textLength;
        return 0;
    }
    if (!hasFrame(*internals) || frameIsEmpty(internals->buffer))
        return -1;
    std::uint32_t top = RootOffset;
    if (cursor != nullptr) {
        if (!cursorTop(*cursor, top))
            return -1;
    }
    std::uint64_t nodeSize = 0;
    if (!topNodeSize(*internals, top, nodeSize))
        return -1;
    std::uint64_t const needed = neededLength(*internals, top, effective);
    if (needed > static_cast<std::uint64_t>(INT_MAX))
        return -1;
    // Not calloc: writeFrame writes every byte of the needed length (head, top
    // node, name table), and clearing a megabyte first cost a quarter of the copy.
    char *frame = static_cast<char *>(std::malloc(static_cast<std::size_t>(needed)));
    if (frame == nullptr)
        return -1;
    std::uint64_t const written = writeFrame(*internals, top, frame, needed, effective);
    if (written == 0) {
        std::free(frame);
        return -1;
    }
    // Never hand out bytes that were not written, should the two lengths differ.
    if (written < needed)
        std::memset(frame + written, 0, static_cast<std::size_t>(needed - written));
    *out = frame;
    *length = static_cast<int>(written);
    return 0;
}

int KVXBinary::deserialize(char const *buffer, int length, KVXMessageIterator *into) {
    KVX_ASSERT(buffer != nullptr || length <= 0); // a length was given for no buffer
    if (buffer == nullptr)
        return -1;
    int frame = frameLength(buffer, length);
    bool const text = frame < 0;
    if (text) {
        // No magic: text up to and with its first NUL inside `length`.
        void const *nul = std::memchr(buffer, 0, static_cast<std::size_t>(length));
        if (nul == nullptr)
            return -1;
        frame = static_cast<int>(static_cast<char const *>(nul) - buffer) + 1;
    }
    // Part of a frame is refused; bytes behind a whole one belong to the next.
    if (frame == 0 || frame > length)
        return -1;
    if (text)
        return fromText(buffer, into);

    if (into != nullptr) {
        // Loading into a cursor is a graft: the frame's ids are read through its
        // own name table, read in place into a flat list: the graft only names
        // the frame's ids, so an id map's maps and aliases would be built for nothing.
        FrameNames frameIds;
        if (readFrameNames(buffer, static_cast<std::uint32_t>(frame), frameIds) != 0)
            return -1;
        // A cursor of another protocol raises std::bad_cast here, as documented.
        KVXBinaryIterator &cursor = dynamic_cast<KVXBinaryIterator &>(*into);
        if (cursor.validateInternals() != 0)
            return -1;
        KVXBinary *owner = cursor.getBinaryMessage();
        if (owner == nullptr || owner->internals == nullptr)
            return -1;
        return graftSubtree(frameSource(buffer, static_cast<std::uint32_t>(frame)), BinaryPath(),
                            frameIds, *owner->internals, cursor.binaryPath());
    }

    // The one place where a detached message gets storage back.
    if (internals == nullptr) {
        internals = new (std::nothrow) KVXBinaryInternals();
        if (internals == nullptr)
            return -1;
    }
    internals->used = 0;
    ++internals->stamp;
    internals->ids.reset();
    if (internals->loadFrame(buffer, static_cast<std::uint32_t>(frame)) != 0)
        return -1;
    int loaded = 0;
    if (getVersion(loaded) == 0)
        internals->ids.version = loaded;
    else
        internals->ids.version =
            frameFormat(internals->buffer) == FormatCurrent ? CurrentVersion : LegacyVersion;
    return 0;
}

} // namespace KVX
