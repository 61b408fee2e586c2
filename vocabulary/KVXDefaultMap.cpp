// Lookups of the fixed vocabulary: by id through the constant tables, by name
// through a hash table over each of them, with a ternary search tree for the
// keys that end early (empty, null or holding a NUL). All are built once, while
// the library loads, and only read afterwards, so lookups take no lock.
#include <kvx/KVXDefaultMap.h>

#include "vocabulary/NameBytes.h"
#include "vocabulary/VocabularyTables.h"
#include "vocabulary/VocabularyTrie.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace KVX {

using Internal::CharArray;

namespace {

// One not-found row per table: empty, with a non-null `data`, so that a caller
// printing `data` can tell an unknown id from a reserved one.
constexpr CharArray ElementNotFound("", 0);
constexpr CharArray NamespaceNotFound("", 0);
constexpr CharArray TypeNotFound("", 0);

// Open addressing over one table: a slot holds a row index + 1, or 0 when
// empty. At most a quarter of the slots are taken, so a probe sequence is short.
// It holds the non-empty rows only; the trie answers every other key.
class NameHash {
public:
    void build(CharArray const *rowTable, std::size_t rowCount, int firstRowId) {
        table = rowTable;
        firstId = firstRowId;
        std::size_t size = 16;
        while (size < 4 * rowCount)
            size *= 2;
        slots.assign(size, 0);
        mask = size - 1;
        for (std::size_t index = 0; index < rowCount; ++index) {
            CharArray const &row = rowTable[index];
            if (row.data == nullptr || row.length == 0)
                continue; // reserved: only the empty key finds it, through the trie
            std::size_t const length = static_cast<std::size_t>(row.length);
            // The trie would end such a row at its NUL; no row has one, and a
            // table that did is left to the trie entirely.
            if (std::memchr(row.data, 0, length) != nullptr) {
                usable = false;
                return;
            }
            // The first of two equal rows keeps the name, as in the trie.
            if (find(row.data, length) != 0)
                continue;
            std::size_t slot = Internal::hashName(row.data, length) & mask;
            while (slots[slot] != 0)
                slot = (slot + 1) & mask;
            slots[slot] = static_cast<std::uint16_t>(index + 1);
        }
    }

    // The id of a key of `length` > 0 characters without NUL, or 0.
    int find(char const *data, std::size_t length) const {
        std::size_t slot = Internal::hashName(data, length) & mask;
        while (std::uint16_t const taken = slots[slot]) {
            CharArray const &row = table[taken - 1];
            if (row.length == length && Internal::sameText(row.data, data, length))
                return firstId + taken - 1;
            slot = (slot + 1) & mask;
        }
        return 0;
    }

    // False when the table has a row the hash cannot stand for.
    bool usable = true;

private:
    std::vector<std::uint16_t> slots;
    std::size_t mask = 0;
    CharArray const *table = nullptr;
    int firstId = 0;
};

// One table's lookup by name: the hash for a whole non-empty key; the trie,
// which ends a key at its first NUL and reads a null key as "", for the rest.
struct NameIndex {
    Internal::VocabularyTrie trie;
    NameHash hash;

    int find(CharArray const &name) const {
        if (name.data != nullptr && name.length != 0 && hash.usable) {
            int const id = hash.find(name.data, static_cast<std::size_t>(name.length));
            // A miss is final unless a NUL ends the key early: rows hold none.
            if (id != 0 ||
                std::memchr(name.data, 0, static_cast<std::size_t>(name.length)) == nullptr)
                return id;
        }
        return trie.find(name);
    }
};

struct Indexes {
    NameIndex element;
    NameIndex ns;
    NameIndex type;
};

// Each builder walks its table with a counter just wide enough for it; the
// namespace table may not grow past 255 rows without widening its counter.
static_assert(Internal::ElementRowCount <= std::numeric_limits<std::uint16_t>::max(),
              "the element table is walked with a 16-bit counter");
static_assert(Internal::TypeRowCount <= std::numeric_limits<std::uint16_t>::max(),
              "the type table is walked with a 16-bit counter");
static_assert(Internal::NamespaceRowCount <= std::numeric_limits<std::uint8_t>::max(),
              "the namespace table is walked with an 8-bit counter");

Indexes buildIndexes() {
    Indexes built;
    Internal::buildTrie(built.element.trie, Internal::ElementTable,
                        static_cast<std::uint16_t>(Internal::ElementRowCount),
                        Internal::ElementFirstId);
    Internal::buildTrie(built.ns.trie, Internal::NamespaceTable,
                        static_cast<std::uint8_t>(Internal::NamespaceRowCount),
                        Internal::NamespaceFirstId);
    Internal::buildTrie(built.type.trie, Internal::TypeTable,
                        static_cast<std::uint16_t>(Internal::TypeRowCount), Internal::TypeFirstId);
    built.element.hash.build(Internal::ElementTable, Internal::ElementRowCount,
                             Internal::ElementFirstId);
    built.ns.hash.build(Internal::NamespaceTable, Internal::NamespaceRowCount,
                        Internal::NamespaceFirstId);
    built.type.hash.build(Internal::TypeTable, Internal::TypeRowCount, Internal::TypeFirstId);
    return built;
}

// The indexes are built on first use, guarded by the compiler's once-only
// initialisation, so that a static initialiser elsewhere that looks up a name
// before this unit is initialised still gets a full index. Afterwards the guard
// costs one acquire load per lookup. The trie nodes are never freed.
Indexes const &indexes() {
    static Indexes const built = buildIndexes();
    return built;
}

// Builds the indexes while the library loads, so that no caller pays for them.
Indexes const &LoadTimeIndexes = indexes();

// Range test as one unsigned comparison: ids below the first id wrap to large
// values and fall out with those above the last one.
CharArray const &rowOf(CharArray const *table, int firstId, int rowCount, CharArray const &notFound,
                       int id) {
    unsigned const index = static_cast<unsigned>(id) - static_cast<unsigned>(firstId);
    if (index > static_cast<unsigned>(rowCount - 1)) {
        return notFound;
    }
    return table[index];
}

} // namespace

KVXDefaultMap::~KVXDefaultMap() {}

int KVXDefaultMap::findElem(CharArray const &name) {
    return indexes().element.find(name);
}

int KVXDefaultMap::findNS(CharArray const &name) {
    return indexes().ns.find(name);
}

int KVXDefaultMap::findType(CharArray const &name) {
    return indexes().type.find(name);
}

CharArray const &KVXDefaultMap::findElemID(int id) {
    return rowOf(Internal::ElementTable, Internal::ElementFirstId, Internal::ElementRowCount,
                 ElementNotFound, id);
}

CharArray const &KVXDefaultMap::findNSID(int id) {
    return rowOf(Internal::NamespaceTable, Internal::NamespaceFirstId, Internal::NamespaceRowCount,
                 NamespaceNotFound, id);
}

CharArray const &KVXDefaultMap::findTypeID(int id) {
    return rowOf(Internal::TypeTable, Internal::TypeFirstId, Internal::TypeRowCount, TypeNotFound,
                 id);
}

int KVXDefaultMap::findElemOrNSStr(CharArray const &name) {
    int const element = findElem(name);
    return element != 0 ? element : findNS(name);
}

CharArray const &KVXDefaultMap::findElemOrNSID(int id) {
    CharArray const &element = findElemID(id);
    return element.length != 0 ? element : findNSID(id);
}

} // namespace KVX
