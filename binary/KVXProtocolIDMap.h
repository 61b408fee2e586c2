// KVXProtocolIDMap: the per-document map between ids and names. It joins the
// fixed vocabulary to the names a frame carries in its name table, allots
// dynamic ids to names outside the vocabulary and writes their table entries.
// Owned by value by KVXBinaryInternals. Not guarded: even its lookups may load
// the name table, so one thread at a time per document.
#ifndef KVX_BINARY_KVXPROTOCOLIDMAP_H
#define KVX_BINARY_KVXPROTOCOLIDMAP_H

#include "binary/AliasTable.h"

#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace KVX {

class KVXBinaryInternals;

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

// The map from id to NameRef of one space. Open addressing over a power-of-two
// array of slots, with no erase: a document's names only grow until reset.
// A reset keeps the slots, so a message parsing text after text allocates
// none, where a node-based map allocated and freed one node per name. A slot
// is full when its mark equals the map's generation, so that a reset empties
// every slot at once by moving to the next generation. The ids of the
// vocabulary's three tables (101 to 2304) also have one bit each that says
// whether the map holds them: the first use of a vocabulary name asks for an
// id that is not there, and that answer then costs no probe.
class NameRefMap {
public:
    NameRefMap() : present(), presentWords(0) {}

    std::size_t size() const { return filled; }
    bool empty() const { return filled == 0; }
    std::size_t count(int id) const { return find(id) != nullptr ? 1 : 0; }
    NameRef const *find(int id) const {
        unsigned const index = directIndex(id);
        if (index < DirectCount && !isPresent(index))
            return nullptr;
        return findSlot(id);
    }
    NameRef *find(int id) {
        return const_cast<NameRef *>(static_cast<NameRefMap const &>(*this).find(id));
    }
    // The reference under `id`; throws std::out_of_range when there is none.
    NameRef const &at(int id) const;
    // Adds `ref` under `id` unless the id is there; true when added.
    bool emplace(int id, NameRef const &ref) {
        // Inline for a vocabulary id where no rehash is due, the case of every
        // name that a parse records: its bit says whether it is new.
        unsigned const index = directIndex(id);
        if (index < DirectCount && (filled + 1) * 2 <= slots.size()) {
            if (isPresent(index))
                return false;
            place(id, ref);
            markPresent(index);
            return true;
        }
        return emplaceAside(id, ref);
    }
    // Empty, keeping the slots unless there are many of them.
    void clear();
    // Calls `visit(id, ref)` for every entry, in no particular order.
    template <typename Visit> void forEach(Visit visit) {
        for (Slot &slot : slots) {
            if (slot.mark == generation)
                visit(slot.id, slot.ref);
        }
    }

private:
    struct Slot {
        NameRef ref;
        int id = 0;
        std::uint32_t mark = 0; // full when equal to `generation`
    };
    static constexpr int FirstDirectId = 101; // the first type id
    static constexpr int LastDirectId = 2304; // the last element id
    static constexpr unsigned DirectCount = LastDirectId - FirstDirectId + 1;
    static constexpr unsigned DirectWords = (DirectCount + 63) / 64;
    static_assert(DirectWords <= 64, "one bit of presentWords per word of present");
    // The bit of `id` in `present`, or DirectCount and above outside the range.
    static unsigned directIndex(int id) {
        return static_cast<unsigned>(id) - static_cast<unsigned>(FirstDirectId);
    }
    bool isPresent(unsigned index) const {
        return ((present[index / 64] >> (index % 64)) & 1u) != 0;
    }
    std::size_t home(int id) const {
        // Fibonacci hashing: consecutive ids (the vocabulary's, the dynamic
        // ones counting down) spread over the slots.
        return static_cast<std::size_t>((static_cast<std::uint32_t>(id) * 2654435769u) >> shift);
    }
    void markPresent(unsigned index) {
        present[index / 64] |= std::uint64_t(1) << (index % 64);
        presentWords |= std::uint64_t(1) << (index / 64);
    }
    NameRef const *findSlot(int id) const;
    // Puts a new entry into the first free slot of its probe, without
    // comparing ids. Requires: a free slot, and `id` not in the map.
    void place(int id, NameRef const &ref) {
        std::size_t const mask = slots.size() - 1;
        std::size_t slot = home(id);
        while (slots[slot].mark == generation)
            slot = (slot + 1) & mask;
        Slot &target = slots[slot];
        target.ref = ref;
        target.id = id;
        target.mark = generation;
        ++filled;
    }
    // emplace where a rehash is due or the id lies outside the range.
    bool emplaceAside(int id, NameRef const &ref);
    void rehash(std::size_t slotCount);

    std::vector<Slot> slots;
    std::size_t filled = 0;
    unsigned shift = 32;
    std::uint32_t generation = 1;       // never 0, the mark of a slot never filled
    std::uint64_t present[DirectWords]; // bit per id of the range: the map holds it
    std::uint64_t presentWords;         // bit w: word w of `present` may be non-zero
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
    // The same, for a builder whose document this map has written alone since
    // its reset (the text parser): where the frame's table holds only entries
    // that the earlier steps find by their texts, it is not searched again.
    // `vocabulary`, when given, receives the name's vocabulary id (or 0).
    int lookupOwnId(Internal::CharArray const &name, int *vocabulary = nullptr);
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
    // recordName(id).length != 0, the test that append makes: an id whose entry
    // this document wrote already is answered without a search of `names`
    // (a set bit stands for an entry whose text is in the frame and not empty,
    // which is what recordName would find and report).
    bool recordsName(int id) {
        return (!tableCorrupt && isRecorded(id)) || recordName(id).length != 0;
    }
    // Adds `ref` under `id`; the id, or 0 if it was there or the entry failed.
    int addEntry(NameRef const &ref, int id, int tableKind);
    // A new dynamic element id for `name` with its entry and alias, whatever
    // the table holds: the text parser's id for a name without a prefix that
    // lookupId does not know. 0 when the entry cannot be added.
    int allotElement(Internal::CharArray const &name);
    // Back to empty: names and aliases cleared, nextId -2, version 40500. The
    // types map stays as it is.
    void reset();

    // Makes sure the owner's name table is loaded. 0, or -1 when it is corrupt.
    // Inline: every lookup asks, and once a name is known the answer is 0.
    int load() {
        if (tableCorrupt)
            return -1;
        return names.empty() ? loadTable() : 0;
    }
    // Reads the name table of a whole frame into this map; the names point into
    // `frame`. For a map without an owner (grafting from a received buffer).
    // 0, or -1 when the table is corrupt.
    int readNameTable(char const *frame, unsigned int length);

    NameRefMap names;
    NameRefMap types;
    int nextId;
    int version;
    KVXBinaryInternals *owner;
    Internal::AliasTable aliases;
    // Set when reading the name table found it corrupt; every later operation
    // that consults the table then gives its empty answer, until reset.
    bool tableCorrupt;

    // A positive cache of `names` over the ids of the vocabulary's namespace
    // and element ranges (201 to 2304): a set bit means that `names` holds the
    // id with a non-empty text written into the owner's frame. Set by
    // addEntry, cleared by reset; a clear bit says nothing.
    static constexpr int FirstCachedId = 201;
    static constexpr int CachedIdCount = 2304 - 201 + 1;
    bool isRecorded(int id) const {
        unsigned const index = static_cast<unsigned>(id) - static_cast<unsigned>(FirstCachedId);
        return index < static_cast<unsigned>(CachedIdCount) &&
               ((recorded[index / 64] >> (index % 64)) & 1u) != 0;
    }
    std::uint64_t recorded[(CachedIdCount + 63) / 64];

    // What this map wrote into its owner's table since reset: the bytes, and
    // how many of those entries the first steps of lookupId would not find by
    // their texts (neither under their vocabulary id nor through an alias).
    std::uint32_t ownTableBytes;
    int unexplainedEntries;

private:
    // load() for a map that holds no name yet.
    int loadTable();
    // Whether lookupId finds an entry by its text before it reads the table:
    // known for the map's own writes, worked out for a caller's.
    enum Finding { FoundByName, NotFoundByName, CheckText };
    int writeEntry(NameRef const &ref, int id, int tableKind, Finding finding);
    // writeEntry for an id that the caller found missing from its map.
    int writeNewEntry(NameRef const &ref, int id, int tableKind, Finding finding);
    // Sets the bit of `recorded` for an id whose non-empty text `names` holds.
    void markRecorded(int id);
    int findId(Internal::CharArray const &name, bool ownEntriesOnly, int *vocabularyOut);
    // The last step of findId: the search of the frame's table for `name`,
    // whose vocabulary id (or 0) is `vocabulary`. Out of line, as it is rare.
    [[gnu::noinline]] int searchTable(Internal::CharArray const &name, int vocabulary);
    // Adds the alias of a dynamic id just given to `name`.
    void addAlias(Internal::CharArray const &name, int id, int tableKind);
};

} // namespace KVX

#endif // KVX_BINARY_KVXPROTOCOLIDMAP_H
