// KVXProtocolIDMap: the per-document map between ids and names. The fixed
// vocabulary answers first; the document's own names live in its frame's name
// table and are referred to by their distance from the frame's end, so that no
// edit or reallocation in front of the table ever needs a fix-up. Not guarded:
// even the lookups may load the table, so one thread at a time per document.
#include "binary/KVXProtocolIDMap.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/NameTable.h"
#include "binary/WireFormat.h"

#include <kvx/KVXDefaultMap.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace KVX {

using Internal::CharArray;

namespace {

// The empty answer of every lookup: no characters, but a readable pointer.
CharArray emptyName() {
    return CharArray("", 0);
}

// The vocabulary row of an element id, else of a namespace id.
CharArray const &vocabularyName(int id) {
    CharArray const &element = KVXDefaultMap::findElemID(id);
    return element.length != 0 ? element : KVXDefaultMap::findNSID(id);
}

// Whether lookupId, given the vocabulary row of `id`, finds `id` again: true
// for an element row (rows are unique), and for a namespace row that no
// element shares.
bool rowFindsItsId(int id, CharArray const &row) {
    return row.length != 0 && Internal::vocabularyId(row, Internal::TableElement) == id;
}

// The vocabulary row of an id of the cached range, and rowFindsItsId of it,
// worked out once for the whole range: recording a name asks both, and the
// answer then costs one load instead of two calls into the vocabulary.
struct CachedRow {
    CharArray const *row;
    bool findsItsId;
};

[[gnu::noinline]] std::vector<CachedRow> buildCachedRows() {
    std::vector<CachedRow> table(KVXProtocolIDMap::CachedIdCount);
    for (int index = 0; index < KVXProtocolIDMap::CachedIdCount; ++index) {
        int const rowId = KVXProtocolIDMap::FirstCachedId + index;
        CharArray const &row = vocabularyName(rowId);
        table[static_cast<std::size_t>(index)] = CachedRow{&row, rowFindsItsId(rowId, row)};
    }
    return table;
}

// The row of FirstCachedId first. Built by one thread, the first to ask.
inline CachedRow const *cachedRows() {
    static std::vector<CachedRow> const rows = buildCachedRows();
    return rows.data();
}

bool isCached(int id) {
    return static_cast<unsigned>(id) - static_cast<unsigned>(KVXProtocolIDMap::FirstCachedId) <
           static_cast<unsigned>(KVXProtocolIDMap::CachedIdCount);
}

bool hasNoName(int id, int lastUnnamed) {
    return id >= 0 && id <= lastUnnamed;
}

} // namespace

CharArray NameRef::text() const {
    if (owner != nullptr && owner->buffer != nullptr) {
        std::uint64_t const end = owner->used > 0 ? static_cast<std::uint64_t>(owner->used) : 0;
        // A reference that the frame no longer reaches (a stale type entry after
        // the document was replaced) reads as empty rather than outside it.
        if (distance > end || length > distance)
            return emptyName();
        return CharArray(owner->buffer + (end - distance), length);
    }
    if (data == nullptr)
        return emptyName();
    return CharArray(data, length);
}

NameRef const *NameRefMap::findSlot(int id) const {
    if (filled == 0)
        return nullptr;
    std::size_t const mask = slots.size() - 1;
    for (std::size_t slot = home(id);; slot = (slot + 1) & mask) {
        Slot const &candidate = slots[slot];
        if (candidate.mark != generation)
            return nullptr;
        if (candidate.id == id)
            return &candidate.ref;
    }
}

NameRef const &NameRefMap::at(int id) const {
    NameRef const *const found = find(id);
    if (found == nullptr)
        throw std::out_of_range("NameRefMap::at");
    return *found;
}

bool NameRefMap::emplaceAside(int id, NameRef const &ref) {
    unsigned const index = directIndex(id);
    bool const direct = index < DirectCount;
    // In the vocabulary's range the bit answers whether the id is there: a new
    // one goes to the first free slot of its probe without comparing ids.
    if (direct && isPresent(index))
        return false;
    // At most half full, so that a probe meets an empty slot soon.
    if ((filled + 1) * 2 > slots.size())
        rehash(slots.empty() ? 32 : slots.size() * 2);
    if (direct) {
        place(id, ref);
        markPresent(index);
        return true;
    }
    std::size_t const mask = slots.size() - 1;
    for (std::size_t slot = home(id);; slot = (slot + 1) & mask) {
        Slot &candidate = slots[slot];
        if (candidate.mark != generation) {
            candidate.ref = ref;
            candidate.id = id;
            candidate.mark = generation;
            ++filled;
            return true;
        }
        if (candidate.id == id)
            return false;
    }
}

void NameRefMap::rehash(std::size_t slotCount) {
    std::vector<Slot> old(slotCount);
    old.swap(slots);
    unsigned bits = 0;
    while ((std::size_t(1) << bits) < slotCount)
        ++bits;
    shift = 32 - bits;
    filled = 0;
    for (Slot const &slot : old) {
        if (slot.mark == generation)
            place(slot.id, slot.ref);
    }
}

void NameRefMap::clear() {
    if (filled == 0)
        return;
    filled = 0;
    // Only the words of `present` that an id was set in are cleared.
    for (std::uint64_t words = presentWords; words != 0; words &= words - 1)
        present[__builtin_ctzll(words)] = 0;
    presentWords = 0;
    // A large table is given back rather than cleared slot by slot at every
    // reset of a message that once held many names.
    if (slots.size() > 1024) {
        std::vector<Slot>().swap(slots);
        shift = 32;
        return;
    }
    // Every slot empties at once; only when the counter wraps are the marks
    // cleared one by one, so that no old mark equals a new generation.
    if (++generation == 0) {
        for (Slot &slot : slots)
            slot.mark = 0;
        generation = 1;
    }
}

KVXProtocolIDMap::KVXProtocolIDMap(KVXBinaryInternals *mapOwner)
    : names(), types(), nextId(-2), version(40500), owner(mapOwner), aliases(), tableCorrupt(false),
      recorded(), ownTableBytes(0), unexplainedEntries(0) {}

KVXProtocolIDMap::~KVXProtocolIDMap() {}

void KVXProtocolIDMap::copyFrom(KVXProtocolIDMap const &other) {
    Internal::AliasTable copiedAliases(other.aliases);
    names = other.names;
    types = other.types;
    // A reference holds a distance from the frame's end, which the copy keeps;
    // only the frame it measures from changes.
    auto const repoint = [this](int, NameRef &ref) {
        if (ref.owner != nullptr)
            ref.owner = owner;
    };
    names.forEach(repoint);
    types.forEach(repoint);
    nextId = other.nextId;
    version = other.version;
    tableCorrupt = other.tableCorrupt;
    // The copy's frame has the same bytes, so the same entries are written.
    std::memcpy(recorded, other.recorded, sizeof recorded);
    ownTableBytes = other.ownTableBytes;
    unexplainedEntries = other.unexplainedEntries;
    aliases.swap(copiedAliases);
}

int KVXProtocolIDMap::loadTable() {
    if (owner == nullptr || owner->buffer == nullptr ||
        owner->used < static_cast<int>(Internal::FrameHeadSize) ||
        Internal::frameFlags(owner->buffer) == 0)
        return 0;
    // A fresh frame (the start of every parse) has no table to read; with no
    // room open there is nothing to close either.
    if (owner->room == 0 && Internal::nameTableSize(owner->buffer) == 0)
        return 0;
    owner->closeRoom(); // the table is read from the end of the root section
    if (Internal::fillFromNameTable(*this, owner->buffer, static_cast<std::uint32_t>(owner->used),
                                    owner) != 0) {
        tableCorrupt = true;
        return -1;
    }
    return 0;
}

// Inline into lookupId and lookupOwnId: the first use of every name of a
// parse passes here, and most return before the search of the table.
inline int KVXProtocolIDMap::findId(CharArray const &name, bool ownEntriesOnly,
                                    int *vocabularyOut) {
    if (load() != 0)
        return 0;
    int const vocabulary = Internal::vocabularyId(name, Internal::TableElement);
    if (vocabularyOut != nullptr)
        *vocabularyOut = vocabulary;
    // A vocabulary id is one of the ids whose presence `names` tells by a bit.
    if (vocabulary != 0 && names.count(vocabulary) != 0)
        return vocabulary;
    int const alias = aliases.find(name);
    if (alias != 0 && names.count(alias) != 0)
        return alias;
    if (owner == nullptr || owner->buffer == nullptr ||
        owner->used < static_cast<int>(Internal::FrameHeadSize))
        return vocabulary;
    // A table of this map's own entries, each of which the steps above find by
    // its text, has nothing more to give: every first use of a name in a parse
    // would otherwise walk the whole table.
    if (ownEntriesOnly && unexplainedEntries == 0 &&
        Internal::nameTableSize(owner->buffer) == ownTableBytes)
        return vocabulary;
    return searchTable(name, vocabulary);
}

int KVXProtocolIDMap::lookupId(CharArray const &name) {
    return findId(name, false, nullptr);
}

int KVXProtocolIDMap::lookupOwnId(CharArray const &name, int *vocabulary) {
    return findId(name, true, vocabulary);
}

int KVXProtocolIDMap::searchTable(CharArray const &name, int vocabulary) {
    // Last resort: the frame's own table, which may name this text under an id
    // that neither the vocabulary nor the aliases know.
    owner->closeRoom(); // the table is read from the end of the root section
    Internal::NameTableEntry entry;
    std::uint32_t const used = static_cast<std::uint32_t>(owner->used);
    if (!Internal::findNameTableEntry(owner->buffer, used, name, entry) || entry.id == 0)
        return vocabulary;
    if (entry.id != vocabulary)
        aliases.insert(name, entry.id);
    // The reference goes to the table entry, not to the caller's text, which
    // may die first (a path segment of a seek does).
    NameRef ref("", entry.textLength);
    ref.owner = owner;
    ref.distance = used - entry.text;
    names.emplace(entry.id, ref);
    return entry.id;
}

int KVXProtocolIDMap::intern(CharArray const &name, int tableKind) {
    if (load() != 0)
        return 0;
    NameRefMap &map = tableKind == Internal::TableType ? types : names;
    int const vocabulary = Internal::vocabularyId(name, tableKind);
    if (vocabulary != 0 && map.count(vocabulary) != 0)
        return vocabulary;
    int const alias = aliases.find(name);
    if (alias != 0 && map.count(alias) != 0)
        return alias;
    NameRef const ref(name.data, name.length);
    // The vocabulary's id of this very text: lookupId finds it by name, types
    // apart, which it does not search.
    if (vocabulary != 0)
        return writeEntry(ref, vocabulary, tableKind,
                          tableKind != Internal::TableType ? FoundByName : NotFoundByName);
    // All three spaces draw on the one counter; namespace and type ids keep the
    // low 16 bits because they live in 16-bit fields. At the bottom of the
    // range the counter stays put, and the next allotment meets an id in use.
    int allotted = nextId;
    if (nextId > INT_MIN)
        --nextId;
    if (tableKind != Internal::TableElement)
        allotted = static_cast<int>(static_cast<std::uint32_t>(allotted) & 0xFFFFu);
    int const result = writeEntry(ref, allotted, tableKind, NotFoundByName);
    if (result != 0)
        addAlias(name, result, tableKind);
    return result;
}

int KVXProtocolIDMap::allotElement(CharArray const &name) {
    int const allotted = nextId;
    if (nextId > INT_MIN)
        --nextId;
    int const result = writeEntry(NameRef(name.data, name.length), allotted, Internal::TableElement,
                                  NotFoundByName);
    if (result != 0)
        addAlias(name, result, Internal::TableElement);
    return result;
}

void KVXProtocolIDMap::addAlias(CharArray const &name, int id, int tableKind) {
    // The entry just written under a dynamic id is found by its text through
    // this alias from now on; a type's is not, as lookupId searches `names`.
    if (aliases.insert(name, id) && tableKind != Internal::TableType && unexplainedEntries > 0)
        --unexplainedEntries;
}

CharArray KVXProtocolIDMap::lookupName(int id) {
    if (hasNoName(id, Internal::LastAttributeId))
        return emptyName();
    // The vocabulary wins over the document for the ids it knows.
    CharArray const &row = vocabularyName(id);
    if (row.length != 0)
        return row;
    if (load() != 0)
        return emptyName();
    NameRef const *const found = names.find(id);
    return found != nullptr ? found->text() : emptyName();
}

CharArray KVXProtocolIDMap::lookupTypeName(int id) {
    CharArray const &row = KVXDefaultMap::findTypeID(id);
    if (row.length != 0)
        return row;
    if (load() != 0)
        return emptyName();
    NameRef const *const found = types.find(id);
    return found != nullptr ? found->text() : emptyName();
}

CharArray KVXProtocolIDMap::recordName(int id) {
    if (hasNoName(id, Internal::LastAttributeId))
        return emptyName();
    if (load() != 0)
        return emptyName();
    NameRef const *const found = names.find(id);
    if (found != nullptr)
        return found->text();
    // A vocabulary id gets its entry too: the frame describes itself.
    CachedRow const cached =
        isCached(id) ? cachedRows()[id - FirstCachedId] : CachedRow{&vocabularyName(id), false};
    CharArray const &row = *cached.row;
    if (row.length == 0)
        return emptyName();
    int const tableKind = id <= 999 ? Internal::TableNamespace : Internal::TableElement;
    bool const findsItsId = isCached(id) ? cached.findsItsId : rowFindsItsId(id, row);
    Finding const finding = findsItsId ? FoundByName : NotFoundByName;
    // `names` was searched just above: the entry is new. A document with a
    // frame, where a parse records each of its names, writes it straight from
    // the row: writeNewEntry would find the same text through a NameRef.
    if (owner == nullptr || owner->buffer == nullptr || row.data == nullptr ||
        row.length >= UINT32_MAX) {
        writeNewEntry(NameRef(row.data, row.length), id, tableKind, finding);
        return row;
    }
    std::uint32_t const tableBefore = Internal::nameTableSize(owner->buffer);
    std::uint32_t textOffset = 0;
    if (owner->addNameEntry(id, tableKind, row.data, static_cast<std::uint32_t>(row.length),
                            &textOffset) != 0)
        return row;
    ownTableBytes += Internal::nameTableSize(owner->buffer) - tableBefore;
    if (finding != FoundByName)
        ++unexplainedEntries;
    NameRef stored("", row.length);
    stored.owner = owner;
    stored.distance = static_cast<std::uint32_t>(owner->used) - textOffset;
    names.emplace(id, stored);
    markRecorded(id);
    return row;
}

CharArray KVXProtocolIDMap::recordTypeName(int id) {
    if (hasNoName(id, Internal::LastValueKind))
        return emptyName();
    if (load() != 0)
        return emptyName();
    NameRef const *const found = types.find(id);
    if (found != nullptr)
        return found->text();
    CharArray const &row = KVXDefaultMap::findTypeID(id);
    if (row.length == 0)
        return emptyName();
    writeEntry(NameRef(row.data, row.length), id, Internal::TableType, NotFoundByName);
    return row;
}

int KVXProtocolIDMap::addEntry(NameRef const &ref, int id, int tableKind) {
    return writeEntry(ref, id, tableKind, CheckText);
}

int KVXProtocolIDMap::writeEntry(NameRef const &ref, int id, int tableKind, Finding finding) {
    NameRefMap const &map = tableKind == Internal::TableType ? types : names;
    if (map.find(id) != nullptr)
        return 0;
    return writeNewEntry(ref, id, tableKind, finding);
}

int KVXProtocolIDMap::writeNewEntry(NameRef const &ref, int id, int tableKind, Finding finding) {
    NameRefMap &map = tableKind == Internal::TableType ? types : names;
    NameRef stored = ref;
    bool written = false;
    if (owner != nullptr && owner->buffer != nullptr) {
        CharArray const text = ref.text();
        std::uint32_t const tableBefore = Internal::nameTableSize(owner->buffer);
        // The new entry stands at the front of the table, behind the room that
        // a parse may hold open; the node operation says where its name went.
        std::uint32_t textOffset = 0;
        if (text.length >= UINT32_MAX ||
            owner->addNameEntry(id, tableKind, text.data, static_cast<std::uint32_t>(text.length),
                                &textOffset) != 0)
            return 0;
        ownTableBytes += Internal::nameTableSize(owner->buffer) - tableBefore;
        bool const found =
            finding == FoundByName || (finding == CheckText && tableKind != Internal::TableType &&
                                       Internal::vocabularyId(text, tableKind) == id);
        if (!found)
            ++unexplainedEntries;
        stored.data = "";
        stored.length = text.length;
        stored.owner = owner;
        stored.distance = static_cast<std::uint32_t>(owner->used) - textOffset;
        written = text.length != 0;
    }
    map.emplace(id, stored);
    if (written && &map == &names)
        markRecorded(id);
    return id;
}

void KVXProtocolIDMap::markRecorded(int id) {
    unsigned const index = static_cast<unsigned>(id) - static_cast<unsigned>(FirstCachedId);
    if (index < static_cast<unsigned>(CachedIdCount))
        recorded[index / 64] |= std::uint64_t(1) << (index % 64);
}

void KVXProtocolIDMap::reset() {
    names.clear();
    std::memset(recorded, 0, sizeof recorded);
    ownTableBytes = 0;
    unexplainedEntries = 0;
    aliases.clear();
    nextId = -2;
    version = 40500;
    tableCorrupt = false;
    // `types` stays: stale type entries live as long as the document object.
}

} // namespace KVX
