// KVXProtocolIDMap: the per-document map between ids and names. It joins the
// fixed vocabulary to the names a frame carries in its name table, allots
// dynamic ids to names outside the vocabulary and writes their table entries.
// Owned by value by KVXBinaryInternals. Not guarded: even its lookups may load
// the name table, so one thread at a time per document.
#ifndef KVX_BINARY_KVXPROTOCOLIDMAP_H
#define KVX_BINARY_KVXPROTOCOLIDMAP_H

#include <kvx/CharArray.h>

#include <map>

namespace KVX {

class KVXBinaryInternals;
namespace Internal {
struct TrieNode;
} // namespace Internal

// A name that finds its text by its distance from the end of the frame, so that
// it survives every edit and reallocation in front of the name table.
struct NameRef : public Internal::CharArray {
    NameRef() : Internal::CharArray(), owner(nullptr), distance(0) {}
    NameRef(char const *text, unsigned long long textLength)
        : Internal::CharArray(text, textLength), owner(nullptr), distance(0) {}

    // The text: in the owner's frame when it has one, else `data`. A null text
    // reads as the empty string.
    Internal::CharArray text() const;

    KVXBinaryInternals *owner;
    unsigned long long distance;
};

class KVXProtocolIDMap {
public:
    explicit KVXProtocolIDMap(KVXBinaryInternals *owner);
    ~KVXProtocolIDMap();
    KVXProtocolIDMap(KVXProtocolIDMap const &) = delete;
    KVXProtocolIDMap &operator=(KVXProtocolIDMap const &) = delete;

    // Takes maps, aliases, nextId and version of `other`, pointing every NameRef
    // at this map's owner (deep copy of a document).
    void copyFrom(KVXProtocolIDMap const &other);

    // The id of a name (element, else namespace), or 0. Never allots.
    int lookupId(Internal::CharArray const &name);
    // The id of a name in the space of `tableKind`, allotting a dynamic id and
    // writing a name table entry where needed; 0 on a corrupt table or failure.
    int intern(Internal::CharArray const &name, int tableKind);
    // The name of an element or namespace id; empty if none. Records nothing.
    Internal::CharArray lookupName(int id);
    // The name of a complex type id; empty if none. Records nothing.
    Internal::CharArray lookupTypeName(int id);
    // As lookupName, adding a name table entry for a vocabulary id if missing.
    Internal::CharArray recordName(int id);
    Internal::CharArray recordTypeName(int id);
    // Adds `ref` under `id`; the id, or 0 if it was there or the entry failed.
    int addEntry(NameRef const &ref, int id, int tableKind);
    // Back to empty: names and aliases cleared, nextId -2, version 40500. The
    // types map stays as it is.
    void reset();

    // Makes sure the owner's name table is loaded. 0, or -1 when it is corrupt.
    int load();
    // Reads the name table of a whole frame into this map; the names point into
    // `frame`. For a map without an owner (grafting from a received buffer).
    // 0, or -1 when the table is corrupt.
    int readNameTable(char const *frame, unsigned int length);

    std::map<int, NameRef> names;
    std::map<int, NameRef> types;
    int nextId;
    int version;
    KVXBinaryInternals *owner;
    Internal::TrieNode *aliases;
    // Set when reading the name table found it corrupt; every later operation
    // that consults the table then gives its empty answer, until reset.
    bool tableCorrupt;
};

} // namespace KVX

#endif // KVX_BINARY_KVXPROTOCOLIDMAP_H
