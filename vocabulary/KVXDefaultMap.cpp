// Lookups of the fixed vocabulary: by id through the constant tables, by name
// through three ternary search trees built from them once, while the library
// loads. After that the trees are only read, so lookups take no lock.
#include <kvx/KVXDefaultMap.h>

#include "vocabulary/VocabularyTables.h"
#include "vocabulary/VocabularyTrie.h"

#include <cstdint>
#include <limits>

namespace KVX {

using Internal::CharArray;

namespace {

// One not-found row per table: empty, with a non-null `data`, so that a caller
// printing `data` can tell an unknown id from a reserved one.
constexpr CharArray ElementNotFound("", 0);
constexpr CharArray NamespaceNotFound("", 0);
constexpr CharArray TypeNotFound("", 0);

struct Trees {
    Internal::VocabularyTrie element;
    Internal::VocabularyTrie ns;
    Internal::VocabularyTrie type;
};

// Each builder walks its table with a counter just wide enough for it; the
// namespace table may not grow past 255 rows without widening its counter.
static_assert(Internal::ElementRowCount <= std::numeric_limits<std::uint16_t>::max(),
              "the element table is walked with a 16-bit counter");
static_assert(Internal::TypeRowCount <= std::numeric_limits<std::uint16_t>::max(),
              "the type table is walked with a 16-bit counter");
static_assert(Internal::NamespaceRowCount <= std::numeric_limits<std::uint8_t>::max(),
              "the namespace table is walked with an 8-bit counter");

Trees buildTrees() {
    Trees trees;
    Internal::buildTrie(trees.element, Internal::ElementTable,
                        static_cast<std::uint16_t>(Internal::ElementRowCount),
                        Internal::ElementFirstId);
    Internal::buildTrie(trees.ns, Internal::NamespaceTable,
                        static_cast<std::uint8_t>(Internal::NamespaceRowCount),
                        Internal::NamespaceFirstId);
    Internal::buildTrie(trees.type, Internal::TypeTable,
                        static_cast<std::uint16_t>(Internal::TypeRowCount), Internal::TypeFirstId);
    return trees;
}

// The trees are built on first use, guarded by the compiler's once-only
// initialisation, so that a static initialiser elsewhere that looks up a name
// before this unit is initialised still gets a full tree. Afterwards the guard
// costs one acquire load per lookup. The nodes are never freed.
Trees const &trees() {
    static Trees const built = buildTrees();
    return built;
}

// Builds the trees while the library loads, so that no caller pays for them.
Trees const &LoadTimeTrees = trees();

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
    return trees().element.find(name);
}

int KVXDefaultMap::findNS(CharArray const &name) {
    return trees().ns.find(name);
}

int KVXDefaultMap::findType(CharArray const &name) {
    return trees().type.find(name);
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
