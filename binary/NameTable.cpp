// Reading the name table at the end of a frame: into the id map of the frame's
// own document (names then refer to it by distance from the frame's end), or
// into a map without owner whose names point into a received buffer. Every
// read is bounded by the frame's length and the table's end. Not thread-safe.
#include "binary/NameTable.h"

#include "binary/FrameGeometry.h"
#include "binary/KVXBinaryInternals.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/WireFormat.h"

#include <kvx/KVXDefaultMap.h>

#include <climits>
#include <cstring>

namespace KVX {
namespace Internal {

NameTableWalk::NameTableWalk(char const *frameBytes, std::uint32_t length)
    : frame(frameBytes), offset(0), tableEnd(0), format(FormatCurrent), failed(false) {
    if (frame == nullptr || length < FrameHeadSize) {
        fail();
        return;
    }
    format = frameFormat(frame);
    std::uint32_t const start = rootSectionEnd(frame, length);
    std::uint64_t const end = static_cast<std::uint64_t>(start) + nameTableSize(frame);
    // A table that the flags word sizes past the frame's bytes is not read at all.
    if (end > length) {
        fail();
        return;
    }
    offset = start;
    tableEnd = static_cast<std::uint32_t>(end);
}

bool NameTableWalk::fail() {
    failed = true;
    offset = tableEnd;
    return false;
}

bool NameTableWalk::next(NameTableEntry &entry) {
    if (failed || offset >= tableEnd)
        return false;
    if (tableEnd - offset < ShortHeaderSize)
        return fail();
    char const *const header = frame + offset;
    std::uint32_t const size = load32(header + 8);
    // The kind is read as one 32-bit word with the ns bytes, which must be 0.
    std::int32_t const tableKind = loadInt32(header + 4);
    if (size == 0 || tableKind < TableElement || tableKind > TableType)
        return fail();
    std::uint32_t const text = offset + headerSize(size, static_cast<unsigned>(tableKind));
    if (text > tableEnd || size > tableEnd - text)
        return fail();
    if (frame[text + size - 1] != '\0')
        return fail();
    std::uint64_t const step = nodeSize(size, static_cast<unsigned>(tableKind), format);
    entry.id = loadInt32(header);
    entry.tableKind = tableKind;
    entry.offset = offset;
    entry.text = text;
    entry.textLength = size - 1;
    if (offset + step > tableEnd) {
        // The sizes pass the table's end without meeting it: this entry is still
        // taken, and the walk ends on a fault at the next step.
        offset = tableEnd;
        failed = true;
        return true;
    }
    offset += static_cast<std::uint32_t>(step);
    return true;
}

int fillFromNameTable(KVXProtocolIDMap &map, char const *frame, std::uint32_t length,
                      KVXBinaryInternals *owner) {
    NameTableWalk walk(frame, length);
    NameTableEntry entry;
    while (walk.next(entry)) {
        CharArray const name(frame + entry.text, entry.textLength);
        NameRef ref;
        if (owner != nullptr) {
            // The distance from the end of the frame survives every edit in front
            // of the table, so the reference never needs rewriting.
            ref.data = "";
            ref.length = entry.textLength;
            ref.owner = owner;
            ref.distance = length - entry.text;
        } else {
            ref.data = name.data;
            ref.length = name.length;
        }
        NameRefMap &target = entry.tableKind == TableType ? map.types : map.names;
        target.emplace(entry.id, ref);
        // A later lookup by name must find the frame's id, not the vocabulary's.
        if (vocabularyId(name, entry.tableKind) != entry.id)
            map.aliases.insert(name, entry.id);
        // New dynamic ids must not meet the frame's. The 16-bit spaces store
        // theirs as positive values; with the high bits set they compare with
        // element ids on the one counter.
        bool dynamic = false;
        std::int64_t seen = 0;
        if (entry.tableKind == TableElement) {
            dynamic = entry.id < 0;
            seen = entry.id;
        } else {
            dynamic = entry.id >= 32768;
            seen = static_cast<std::int32_t>(static_cast<std::uint32_t>(entry.id) | 0xFFFF0000u);
        }
        if (dynamic && seen <= map.nextId)
            map.nextId = seen > INT_MIN ? static_cast<int>(seen - 1) : INT_MIN;
    }
    return walk.corrupt() ? -1 : 0;
}

bool findNameTableEntry(char const *frame, std::uint32_t length, CharArray const &name,
                        NameTableEntry &found) {
    NameTableWalk walk(frame, length);
    while (walk.next(found)) {
        if (found.textLength == name.length &&
            (name.length == 0 || (name.data != nullptr &&
                                  std::memcmp(frame + found.text, name.data, name.length) == 0)))
            return true;
    }
    return false;
}

} // namespace Internal

int KVXProtocolIDMap::readNameTable(char const *frame, unsigned int length) {
    if (Internal::fillFromNameTable(*this, frame, length, nullptr) != 0) {
        tableCorrupt = true;
        return -1;
    }
    return 0;
}

} // namespace KVX
