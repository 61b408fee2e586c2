// KVXDefaultMap: the fixed vocabulary of the message format, turning element
// names, namespace URIs and complex type names into their wire ids and back.
// The tables and search trees are built into the library and never change, so
// every operation may be called from any number of threads without locks.
#ifndef KVX_KVXDEFAULTMAP_H
#define KVX_KVXDEFAULTMAP_H

#include <kvx/CharArray.h>
#include <kvx/KVXDefs.h>

namespace KVX {

// A class of static operations; an object holds nothing.
class KVX_EXPORT KVXDefaultMap {
public:
    KVXDefaultMap() = default;
    KVXDefaultMap(KVXDefaultMap const &) = default;
    KVXDefaultMap &operator=(KVXDefaultMap const &) = default;
    virtual ~KVXDefaultMap();

    // Lookups by name. Each gives the id of `name` in its table (elements
    // 1001..2304, namespaces 201..311, types 101..389), or 0 when the table does
    // not hold it. Matching is exact and case-sensitive over the whole view; a
    // NUL inside `name` ends it there. A null `data` reads as the empty string.
    // The empty name finds the first reserved row of each table: 2180, 251 and
    // 367. No allocation, no lock; the view need not be NUL-terminated.
    static int findElem(Internal::CharArray const &name);
    static int findNS(Internal::CharArray const &name);
    static int findType(Internal::CharArray const &name);

    // Lookups by id. Each gives the table row of `id`, or the table's not-found
    // row (an empty view whose `data` is "") when `id` lies outside the table.
    // A reserved id gives its reserved row (an empty view whose `data` is null).
    // Test a result for emptiness by `length`, never by `data`. The reference is
    // to static storage and stays valid for the life of the library.
    static Internal::CharArray const &findElemID(int id);
    static Internal::CharArray const &findNSID(int id);
    static Internal::CharArray const &findTypeID(int id);

    // findElem of `name` if that is not 0, else findNS of `name`. Element and
    // namespace ids are disjoint, so the result tells which table matched.
    static int findElemOrNSStr(Internal::CharArray const &name);

    // findElemID of `id` if that row is not empty, else findNSID of `id`. Type
    // ids are never searched.
    static Internal::CharArray const &findElemOrNSID(int id);
};

} // namespace KVX

#endif // KVX_KVXDEFAULTMAP_H
