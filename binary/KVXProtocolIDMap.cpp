// KVXProtocolIDMap: the per-document map between ids and names. The fixed
// vocabulary answers first; the document's own names live in its frame's name
// table and are referred to by their distance from the frame's end, so that no
// edit or reallocation in front of the table ever needs a fix-up. Not guarded:
// even the lookups may load the table, so one thread at a time per document.
#include "binary/KVXProtocolIDMap.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/NameTable.h"
#include "binary/WireFormat.h"
#include "vocabulary/VocabularyTrie.h"

#include <kvx/KVXDefaultMap.h>

#include <climits>

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

KVXProtocolIDMap::KVXProtocolIDMap(KVXBinaryInternals *mapOwner)
    : names(), types(), nextId(-2), version(40500), owner(mapOwner), aliases(nullptr),
      tableCorrupt(false) {}

KVXProtocolIDMap::~KVXProtocolIDMap() {
    Internal::trieFree(aliases);
}

void KVXProtocolIDMap::copyFrom(KVXProtocolIDMap const &other) {
    Internal::TrieNode *const copiedAliases = Internal::trieCopy(other.aliases);
    names = other.names;
    types = other.types;
    // A reference holds a distance from the frame's end, which the copy keeps;
    // only the frame it measures from changes.
    for (auto &entry : names) {
        if (entry.second.owner != nullptr)
            entry.second.owner = owner;
    }
    for (auto &entry : types) {
        if (entry.second.owner != nullptr)
            entry.second.owner = owner;
    }
    nextId = other.nextId;
    version = other.version;
    tableCorrupt = other.tableCorrupt;
    Internal::trieFree(aliases);
    aliases = copiedAliases;
}

int KVXProtocolIDMap::load() {
    if (tableCorrupt)
        return -1;
    if (!names.empty() || owner == nullptr || owner->buffer == nullptr ||
        owner->used < static_cast<int>(Internal::FrameHeadSize) ||
        Internal::frameFlags(owner->buffer) == 0)
        return 0;
    if (Internal::fillFromNameTable(*this, owner->buffer, static_cast<std::uint32_t>(owner->used),
                                    owner) != 0) {
        tableCorrupt = true;
        return -1;
    }
    return 0;
}

int KVXProtocolIDMap::lookupId(CharArray const &name) {
    if (load() != 0)
        return 0;
    int const vocabulary = Internal::vocabularyId(name, Internal::TableElement);
    if (vocabulary != 0 && names.count(vocabulary) != 0)
        return vocabulary;
    int const alias = Internal::trieLookup(aliases, name);
    if (alias != 0 && names.count(alias) != 0)
        return alias;
    if (owner == nullptr || owner->buffer == nullptr ||
        owner->used < static_cast<int>(Internal::FrameHeadSize))
        return vocabulary;
    // Last resort: the frame's own table, which may name this text under an id
    // that neither the vocabulary nor the aliases know.
    Internal::NameTableEntry entry;
    std::uint32_t const used = static_cast<std::uint32_t>(owner->used);
    if (!Internal::findNameTableEntry(owner->buffer, used, name, entry) || entry.id == 0)
        return vocabulary;
    if (entry.id != vocabulary)
        Internal::trieInsert(&aliases, name.data, name.length, entry.id);
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
    std::map<int, NameRef> &map = tableKind == Internal::TableType ? types : names;
    int const vocabulary = Internal::vocabularyId(name, tableKind);
    if (vocabulary != 0 && map.count(vocabulary) != 0)
        return vocabulary;
    int const alias = Internal::trieLookup(aliases, name);
    if (alias != 0 && map.count(alias) != 0)
        return alias;
    NameRef const ref(name.data, name.length);
    if (vocabulary != 0)
        return addEntry(ref, vocabulary, tableKind);
    // All three spaces draw on the one counter; namespace and type ids keep the
    // low 16 bits because they live in 16-bit fields. At the bottom of the
    // range the counter stays put, and the next allotment meets an id in use.
    int allotted = nextId;
    if (nextId > INT_MIN)
        --nextId;
    if (tableKind != Internal::TableElement)
        allotted = static_cast<int>(static_cast<std::uint32_t>(allotted) & 0xFFFFu);
    int const result = addEntry(ref, allotted, tableKind);
    if (result != 0)
        Internal::trieInsert(&aliases, name.data, name.length, result);
    return result;
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
    auto const found = names.find(id);
    return found != names.end() ? found->second.text() : emptyName();
}

CharArray KVXProtocolIDMap::lookupTypeName(int id) {
    CharArray const &row = KVXDefaultMap::findTypeID(id);
    if (row.length != 0)
        return row;
    if (load() != 0)
        return emptyName();
    auto const found = types.find(id);
    return found != types.end() ? found->second.text() : emptyName();
}

CharArray KVXProtocolIDMap::recordName(int id) {
    if (hasNoName(id, Internal::LastAttributeId))
        return emptyName();
    if (load() != 0)
        return emptyName();
    auto const found = names.find(id);
    if (found != names.end())
        return found->second.text();
    // A vocabulary id gets its entry too: the frame describes itself.
    CharArray const &row = vocabularyName(id);
    if (row.length == 0)
        return emptyName();
    addEntry(NameRef(row.data, row.length), id,
             id <= 999 ? Internal::TableNamespace : Internal::TableElement);
    return row;
}

CharArray KVXProtocolIDMap::recordTypeName(int id) {
    if (hasNoName(id, Internal::LastValueKind))
        return emptyName();
    if (load() != 0)
        return emptyName();
    auto const found = types.find(id);
    if (found != types.end())
        return found->second.text();
    CharArray const &row = KVXDefaultMap::findTypeID(id);
    if (row.length == 0)
        return emptyName();
    addEntry(NameRef(row.data, row.length), id, Internal::TableType);
    return row;
}

int KVXProtocolIDMap::addEntry(NameRef const &ref, int id, int tableKind) {
    std::map<int, NameRef> &map = tableKind == Internal::TableType ? types : names;
    if (map.count(id) != 0)
        return 0;
    NameRef stored = ref;
    if (owner != nullptr && owner->buffer != nullptr) {
        CharArray const text = ref.text();
        if (text.length >= UINT32_MAX ||
            owner->addNameEntry(id, tableKind, text.data,
                                static_cast<std::uint32_t>(text.length)) != 0)
            return 0;
        // The new entry stands at the front of the table.
        std::uint32_t const textOffset =
            owner->rootEnd() + Internal::headerSize(static_cast<std::uint32_t>(text.length) + 1u,
                                                    static_cast<unsigned>(tableKind));
        stored.data = "";
        stored.length = text.length;
        stored.owner = owner;
        stored.distance = static_cast<std::uint32_t>(owner->used) - textOffset;
    }
    map.emplace(id, stored);
    return id;
}

void KVXProtocolIDMap::reset() {
    names.clear();
    Internal::trieFree(aliases);
    aliases = nullptr;
    nextId = -2;
    version = 40500;
    tableCorrupt = false;
    // `types` stays: stale type entries live as long as the document object.
}

} // namespace KVX
