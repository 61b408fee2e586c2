// Name table entries of KVXBinaryInternals: addNameEntry writes an entry in
// front of the table, into the room while a parse keeps it open, else by
// moving the table, so that every older name keeps its distance from the
// frame's end. Not thread-safe.
#include "binary/KVXBinaryInternals.h"
#include "binary/NodeFrame.h"
#include "binary/ShortCopy.h"
#include "binary/WireFormat.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace KVX {

using namespace Internal;

namespace {

// Writes a name table entry of `entryBytes` at `at`: id, table kind, the size
// of the text with its NUL, the text, and zeros elsewhere.
inline void writeNameEntry(char *at, int id, int tableKind, char const *name, std::uint32_t length,
                           std::uint64_t entryBytes) {
    // An entry has at least 16 bytes, and its padding lies within its last 8:
    // clearing the header and those 8 leaves no byte unwritten, without a
    // call to clear a few bytes.
    std::memset(at, 0, 16);
    std::memset(at + entryBytes - 8, 0, 8);
    std::uint32_t const valueSize = length + 1;
    store32(at, static_cast<std::uint32_t>(id));
    store16(at + 4, static_cast<std::uint16_t>(tableKind));
    store32(at + 8, valueSize);
    char *const text = at + headerSize(valueSize, static_cast<unsigned>(tableKind));
    copyShort(text, name, length);
    text[length] = '\0';
}

// addNameEntry where its quick case does not hold: a text inside the buffer,
// no room open, or room that the entry would close. Kept out of line, so that
// the quick case saves and restores few registers.
[[gnu::noinline]] int addNameEntryAside(KVXBinaryInternals &doc, int id, int tableKind,
                                        char const *text, std::uint32_t length,
                                        std::uint32_t *textOffset) {
    Geometry frame;
    if (!readGeometry(doc, frame) || tableKind < TableElement || tableKind > TableType ||
        (text == nullptr && length != 0))
        return -1;
    std::uint64_t const valueSize = static_cast<std::uint64_t>(length) + 1;
    if (valueSize > UINT32_MAX)
        return -1;
    std::uint64_t const entryBytes = Internal::nodeSize(
        static_cast<std::uint32_t>(valueSize), static_cast<unsigned>(tableKind), frame.format);
    // The table size lives in bits 3 to 23 of the flags word; an entry that
    // would pass 16,777,208 bytes cannot be described and is refused.
    std::uint64_t const tableBytes =
        static_cast<std::uint64_t>(nameTableSize(doc.buffer)) + entryBytes;
    if (tableBytes > NameTableMask)
        return -1;
    std::vector<char> aside;
    char const *const name = keepApart(doc, text, length, aside);
    if (doc.room != 0) {
        // With room open the entry goes in front of the table where it stands,
        // unless the buffer would grow: that is decided as without room.
        if (static_cast<std::uint64_t>(doc.capacity) <=
                static_cast<std::uint64_t>(doc.frameLength()) + entryBytes ||
            doc.room < entryBytes) {
            doc.closeRoom();
            frame = geometryOf(doc);
        } else {
            std::uint32_t const start =
                frame.used - nameTableSize(doc.buffer) - static_cast<std::uint32_t>(entryBytes);
            writeNameEntry(doc.buffer + start, id, tableKind, name, length, entryBytes);
            store32(doc.buffer + 4, (frameFlags(doc.buffer) & ~NameTableMask) |
                                        (static_cast<std::uint32_t>(tableBytes) & NameTableMask));
            doc.room -= static_cast<std::uint32_t>(entryBytes);
            if (textOffset != nullptr)
                *textOffset = start + headerSize(length + 1, static_cast<unsigned>(tableKind));
            return 0;
        }
    }
    if (!doc.grow(static_cast<std::uint32_t>(entryBytes)))
        return -1;
    // New entries go to the front of the table, so the distance of every older
    // name from the frame's end stays what it was.
    char *const buffer = doc.buffer;
    std::uint32_t const start = frame.rootEnd;
    std::uint32_t const end = frame.frameEnd;
    std::memmove(buffer + start + entryBytes, buffer + start, end - start);
    writeNameEntry(buffer + start, id, tableKind, name, length, entryBytes);
    store32(buffer + 4, (frameFlags(buffer) & ~NameTableMask) |
                            (static_cast<std::uint32_t>(tableBytes) & NameTableMask));
    doc.used += static_cast<int>(entryBytes);
    if (textOffset != nullptr)
        *textOffset = start + headerSize(length + 1, static_cast<unsigned>(tableKind));
    return 0;
}

} // namespace

int KVXBinaryInternals::addNameEntry(int id, int tableKind, char const *text, std::uint32_t length,
                                     std::uint32_t *textOffset) {
    // A parse records each name once, with room open: the table then ends at
    // `used` and the entry goes in front of it. That case is decided here
    // from the head alone, without decoding the root; a text inside the
    // buffer, and every case that closes the room or fails, take the general
    // path, which gives the same bytes.
    std::less<char const *> const before;
    if (room != 0 && buffer != nullptr && used >= static_cast<int>(FrameHeadSize) &&
        static_cast<unsigned>(tableKind) <= static_cast<unsigned>(TableType) &&
        length < UINT32_MAX &&
        (text == nullptr ? length == 0
                         : before(text, buffer) || !before(text, buffer + capacity))) {
        std::uint32_t const flags = frameFlags(buffer);
        std::uint32_t const valueSize = length + 1;
        std::uint64_t const entryBytes =
            Internal::nodeSize(valueSize, static_cast<unsigned>(tableKind), flags >> FormatShift);
        std::uint32_t const table = flags & NameTableMask;
        if (table + entryBytes <= NameTableMask && room >= entryBytes &&
            static_cast<std::uint64_t>(capacity) >
                static_cast<std::uint64_t>(frameLength()) + entryBytes) {
            std::uint32_t const start =
                static_cast<std::uint32_t>(used) - table - static_cast<std::uint32_t>(entryBytes);
            writeNameEntry(buffer + start, id, tableKind, text, length, entryBytes);
            store32(buffer + 4,
                    (flags & ~NameTableMask) |
                        ((table + static_cast<std::uint32_t>(entryBytes)) & NameTableMask));
            room -= static_cast<std::uint32_t>(entryBytes);
            if (textOffset != nullptr)
                *textOffset = start + headerSize(valueSize, static_cast<unsigned>(tableKind));
            return 0;
        }
    }
    return addNameEntryAside(*this, id, tableKind, text, length, textOffset);
}

} // namespace KVX
