// Reading a frame's name table: a bounded walk over its entries, and the two
// users of it, filling an id map and finding one name. Only reads the frame it
// is given, never past the length given with it. Not thread-safe per map.
#ifndef KVX_BINARY_NAMETABLE_H
#define KVX_BINARY_NAMETABLE_H

#include "binary/WireFormat.h"

#include <kvx/CharArray.h>
#include <kvx/KVXDefaultMap.h>

#include <cstdint>

namespace KVX {

class KVXBinaryInternals;
class KVXProtocolIDMap;

namespace Internal {

// One entry of a name table, as frame offsets.
struct NameTableEntry {
    int id;                   // the id being named (a 16-bit space's id as a positive value)
    int tableKind;            // 0 element, 1 namespace, 2 complex type
    std::uint32_t offset;     // the entry's header
    std::uint32_t text;       // its name
    std::uint32_t textLength; // the name's length, without the NUL
};

// Walks the entries of the name table of a frame of `length` bytes, newest
// first. A walk stops at the end of the table or at the first fault, which
// marks the table corrupt: a table running past the frame's bytes, an entry
// whose header or name passes the table's end, a size of 0, a table kind
// outside 0 to 2, a name without its NUL, or node sizes that do not add up to
// the table size exactly.
class NameTableWalk {
public:
    NameTableWalk(char const *frame, std::uint32_t length);

    // The next entry; false at the end of the table or at a fault.
    bool next(NameTableEntry &entry);
    // True once a fault has been met.
    bool corrupt() const { return failed; }

private:
    bool fail();

    char const *frame;
    std::uint32_t offset; // next entry
    std::uint32_t tableEnd;
    unsigned format;
    bool failed;
};

// The vocabulary's id of `name` in the space of `tableKind`: the element id,
// else the namespace id, for kinds 0 and 1; the type id for kind 2. 0 if none.
// Inline: it stands between every first lookup of a name and the vocabulary.
inline int vocabularyId(CharArray const &name, int tableKind) {
    if (tableKind == TableType)
        return KVXDefaultMap::findType(name);
    int const element = KVXDefaultMap::findElem(name);
    return element != 0 ? element : KVXDefaultMap::findNS(name);
}

// Reads the whole table of the frame into `map`: each entry goes into `names`
// (kinds 0, 1) or `types` (kind 2) unless its id is there already, into the
// aliases when the vocabulary gives the name another id or none, and keeps
// `nextId` below every dynamic id it names. With an `owner`, the names refer
// to the owner's frame by distance; without, they point into `frame`. 0, or -1
// for a corrupt table, with the entries read before the fault kept.
int fillFromNameTable(KVXProtocolIDMap &map, char const *frame, std::uint32_t length,
                      KVXBinaryInternals *owner);

// The first entry, newest first, whose name equals `name` byte for byte. The
// search stops without a result at the first fault. True when found.
bool findNameTableEntry(char const *frame, std::uint32_t length, CharArray const &name,
                        NameTableEntry &found);

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_NAMETABLE_H
