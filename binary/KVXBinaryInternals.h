// KVXBinaryInternals: the storage behind a KVXBinary, shared by the messages of
// one copy family until a writer separates them: the frame buffer (malloc),
// its change counter, capacity, used length and id map. The node operations
// here are the only code that edits a frame; cursors, the text parser and
// grafting call them with a BinaryPath of their own. Not thread-safe.
#ifndef KVX_BINARY_KVXBINARYINTERNALS_H
#define KVX_BINARY_KVXBINARYINTERNALS_H

#include "binary/FrameGeometry.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/Node.h"

#include <kvx/BinaryPath.h>

#include <cstdint>

namespace KVX {

class KVXBinaryInternals {
public:
    KVXBinaryInternals();
    ~KVXBinaryInternals();
    KVXBinaryInternals(KVXBinaryInternals const &) = delete;
    KVXBinaryInternals &operator=(KVXBinaryInternals const &) = delete;

    // A deep copy (capacity rounded up to 4096, stamp + 2), or null when out of
    // memory. A source with nothing used gives a copy with a null buffer.
    KVXBinaryInternals *deepCopy() const;

    // Growth rule for `n` more bytes: reallocates when capacity <= used + n, by
    // capacity when n < capacity, else by n rounded up to 4096. New bytes are
    // zeroed unless `zero` is false. False when realloc failed (buffer intact).
    bool grow(std::uint32_t n, bool zero = true);
    // First step of create: used 0, ids reset, capacity at least 8192 by the
    // reset rule, a fresh head written. 0 or -1.
    int resetBuffer();
    // Loads a whole frame by one copy (the framing of deserialize). 0 or -1.
    int loadFrame(char const *frame, std::uint32_t length);

    // Geometry of the frame in `buffer`. Inline: every node operation and walk
    // asks for these, several times per node.
    std::uint32_t rootEnd() const;  // end of the root section = start of the name table
    std::uint32_t frameEnd() const; // end of the frame computed from the head
    unsigned format() const;        // format byte
    binary::Node node(std::uint32_t offset) const; // view limited to `used`

    // Node operations (offsets are frame offsets).
    int append(BinaryPath &path, int id, unsigned short kind, void const *value,
               std::uint32_t length, bool terminate);
    int replaceValue(BinaryPath &path, unsigned short kind, void const *value, std::uint32_t length,
                     bool terminate);
    void remove(BinaryPath &path);
    // Front-to-back building, for the text parser, which adds every node at
    // the end of the root section under the chain of its open elements. On
    // such a path appendAtEnd gives the bytes of append, but keeps current
    // only the size of the root (which places the name table) instead of
    // patching every entry: each other entry takes its size from settleAtEnd,
    // which the builder calls before the entry leaves the path and before any
    // other operation that reads the sizes of the path's entries. Until then
    // an open entry's size is too small, never too large. Falls back to append
    // for an empty path (the root), and then opens the room behind it. 0 or
    // -1, as append.
    int appendAtEnd(BinaryPath &path, int id, unsigned short kind, void const *value,
                    std::uint32_t length, bool terminate);
    // appendAtEnd of a KindUntyped leaf holding `value` and a NUL, leaving
    // `path` as it was: the element "<name>text</name>" of a parse. While room
    // is open its common case is decided and written here in one short pass.
    int appendTextAtEnd(BinaryPath &path, int id, char const *value, std::uint32_t length);
    // appendAtEnd of a KindUntyped element without a value, which joins
    // `path`: the element that a parse opens. Into the room by quickAppend
    // where it can, the name's test made after it as append makes it.
    int appendElementAtEnd(BinaryPath &path, int id);
    // What the last quickAppend left of the frame. While the buffer, its
    // capacity, `used`, the room and the end of the root section are as it
    // left them, no other operation has edited the frame, and the checks of
    // the frame as a whole that an earlier call made still hold.
    struct QuickState {
        char const *buffer = nullptr;
        int capacity = 0;
        int used = 0;
        std::uint32_t room = 0;
        std::uint32_t rootEnd = 0; // 0: nothing checked yet
        std::uint32_t rootSize = 0;
        unsigned format = 0;
        std::uint32_t parent = 0;  // a container checked as a parent, or 0
        std::uint32_t opening = 0; // roomOpenings when the state was checked
    };
    // appendAtEnd of a KindUntyped element for a builder that appends many in
    // a row, where it writes into the room without growing: a leaf holding
    // `value` and a NUL (`leaf`; `path` is left as it was), or an element
    // without a value, which is pushed on `path`. The same bytes as
    // appendAtEnd; false, with nothing changed, where appendAtEnd must run.
    // `trusted`: the last quickAppend on `state` succeeded, on this `path`,
    // and since then only quickSettle or settleAtEnd ran and only the path's
    // end changed, so `state` is current and the path still starts at the root.
    // Inline (binary/QuickAppend.h): a parse runs it once per element.
    // `recorded`: the caller knows that ids.recordsName(id) holds, which
    // append would test; otherwise only the recorded bit is taken for it.
    [[gnu::always_inline]] bool quickAppend(QuickState &state, BinaryPath &path, int id,
                                            char const *value, std::uint32_t length, bool leaf,
                                            bool trusted = false, bool recorded = false);
    // Gives the container at `offset` its size as settleAtEnd does, where the
    // last quickAppend left the frame as it is. False, with nothing changed,
    // where settleAtEnd must run. `trusted` as for quickAppend. Inline as
    // quickAppend.
    [[gnu::always_inline]] bool quickSettle(QuickState const &state, std::uint32_t offset,
                                            bool trusted = false);
    // The checks of the frame as a whole behind quickAppend; fills `state`.
    bool checkQuickState(QuickState &state) const;
    // Gives the container at `offset`, an entry opened by appendAtEnd and not
    // closed since, the size that reaches the end of the root section. Any
    // other node is left as it is.
    void settleAtEnd(std::uint32_t offset);
    // appendAtEnd would move the name table behind every node it adds. It
    // therefore keeps the table at the top of the buffer while it builds, with
    // the free capacity as `room` between the table and the root section:
    // nodes take room from below, name table entries (addNameEntry) from
    // above, and nothing moves. `used` includes the room meanwhile, so that a
    // name keeps its distance from the frame's end. Growth is decided on the
    // frame's length without the room, so that the buffer grows exactly as
    // without it. settleAtEnd, addNameEntry, setNamespace, setKind and the id
    // map's name texts work with room open; every other operation closes it
    // first (the id map before it reads the table), and so must the builder
    // before it hands the frame on. No room is open otherwise.
    void closeRoom();
    // The frame's length: `used` without the room.
    int frameLength() const { return used - static_cast<int>(room); }
    std::uint32_t insertNode(std::uint32_t size, unsigned short kind, std::uint32_t offset);
    bool resizeNode(std::uint32_t newSize, unsigned short kind, std::uint32_t offset,
                    std::int64_t &delta);
    // Writes a name table entry at the front of the table. 0 or -1. With
    // `textOffset`, that receives the frame offset of the entry's name.
    int addNameEntry(int id, int tableKind, char const *text, std::uint32_t length,
                     std::uint32_t *textOffset = nullptr);
    int setNamespace(BinaryPath &path, int id);
    int setKind(BinaryPath &path, int typeId);
    int currentNamespace(BinaryPath const &path) const;

    char *buffer;
    std::uint32_t stamp;
    int capacity;
    int used;
    KVXProtocolIDMap ids;
    std::uint32_t room; // free bytes between the root section and the name table
    // Raised each time room opens. While one opening lasts, nodes are only
    // added at the end of the root section: every operation that moves,
    // replaces or removes a node closes the room first.
    std::uint32_t roomOpenings;
};

inline std::uint32_t KVXBinaryInternals::rootEnd() const {
    if (buffer == nullptr || used < static_cast<int>(Internal::FrameHeadSize))
        return Internal::RootOffset;
    return Internal::rootSectionEnd(buffer, static_cast<std::uint32_t>(used));
}

inline std::uint32_t KVXBinaryInternals::frameEnd() const {
    if (buffer == nullptr || used < static_cast<int>(Internal::FrameHeadSize))
        return Internal::RootOffset;
    // The table size is below 2^24 and the root end at most `used`, so the sum
    // cannot wrap.
    return Internal::rootSectionEnd(buffer, static_cast<std::uint32_t>(used)) +
           Internal::nameTableSize(buffer);
}

inline unsigned KVXBinaryInternals::format() const {
    if (buffer == nullptr || used < static_cast<int>(Internal::FrameHeadSize))
        return Internal::FormatCurrent;
    return Internal::frameFormat(buffer);
}

inline binary::Node KVXBinaryInternals::node(std::uint32_t offset) const {
    return binary::Node(buffer, used > 0 ? static_cast<std::uint32_t>(used) : 0, offset, format());
}

} // namespace KVX

#endif // KVX_BINARY_KVXBINARYINTERNALS_H
