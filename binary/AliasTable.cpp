// AliasTable: lookup, insertion and clearing of an id map's aliases. The keys
// are copied into the table's own byte block; nothing points into a frame.
// Not thread-safe: one id map, one thread at a time.
#include "binary/AliasTable.h"

#include "vocabulary/NameBytes.h"

#include <cstring>
#include <utility>

namespace KVX {
namespace Internal {

namespace {

// The length of a key as the vocabulary reads it: up to its first NUL, and 0
// for a null `data`.
std::size_t keyLength(char const *data, unsigned long long length) {
    if (data == nullptr || length == 0)
        return 0;
    void const *const nul = std::memchr(data, 0, static_cast<std::size_t>(length));
    return nul != nullptr ? static_cast<std::size_t>(static_cast<char const *>(nul) - data)
                          : static_cast<std::size_t>(length);
}

// Tables past this many slots are given back by clear() rather than kept for
// the next document.
constexpr std::size_t KeptSlots = 1024;
constexpr std::size_t KeptBytes = 64 * 1024;

} // namespace

std::size_t AliasTable::probe(char const *key, std::size_t length, std::uint64_t hash) const {
    for (std::size_t slot = static_cast<std::size_t>(hash) & mask;; slot = (slot + 1) & mask) {
        std::uint32_t const taken = slots[slot];
        if (taken == 0)
            return slot;
        Entry const &entry = entries[taken - 1];
        if (entry.hash == hash && entry.length == length &&
            (length == 0 || std::memcmp(bytes.data() + entry.offset, key, length) == 0))
            return slot;
    }
}

int AliasTable::findKey(CharArray const &key) const {
    std::size_t const length = keyLength(key.data, key.length);
    std::uint32_t const taken = slots[probe(key.data, length, hashName(key.data, length))];
    return taken != 0 ? entries[taken - 1].id : 0;
}

bool AliasTable::insert(char const *data, unsigned long long rawLength, int id) {
    std::size_t const length = keyLength(data, rawLength);
    std::uint64_t const hash = hashName(data, length);
    if (!entries.empty() && slots[probe(data, length, hash)] != 0)
        return false;
    // Room first, so that a failed allocation leaves the table as it was.
    // At most half full, so that a probe meets an empty slot soon.
    if ((entries.size() + 1) * 2 > slots.size())
        rehash(slots.empty() ? 16 : slots.size() * 2);
    entries.reserve(entries.size() + 1);
    bytes.reserve(bytes.size() + length);
    std::size_t const slot = probe(data, length, hash);
    std::size_t const offset = bytes.size();
    bytes.insert(bytes.end(), data, data + length);
    entries.push_back(Entry{offset, length, hash, static_cast<std::uint32_t>(slot), id});
    slots[slot] = static_cast<std::uint32_t>(entries.size());
    unsigned const first = length != 0 ? static_cast<unsigned char>(data[0]) : 0u;
    firstChars[first / 64] |= std::uint64_t(1) << (first % 64);
    return true;
}

void AliasTable::rehash(std::size_t slotCount) {
    std::vector<std::uint32_t> grown(slotCount, 0);
    slots.swap(grown);
    mask = slotCount - 1;
    for (std::size_t index = 0; index < entries.size(); ++index) {
        Entry &entry = entries[index];
        std::size_t slot = static_cast<std::size_t>(entry.hash) & mask;
        while (slots[slot] != 0)
            slot = (slot + 1) & mask;
        slots[slot] = static_cast<std::uint32_t>(index + 1);
        entry.slot = static_cast<std::uint32_t>(slot);
    }
}

void AliasTable::clear() {
    if (slots.size() > KeptSlots || bytes.capacity() > KeptBytes) {
        AliasTable().swap(*this);
        return;
    }
    for (Entry const &entry : entries)
        slots[entry.slot] = 0;
    entries.clear();
    bytes.clear();
    std::memset(firstChars, 0, sizeof firstChars);
}

void AliasTable::swap(AliasTable &other) noexcept {
    slots.swap(other.slots);
    entries.swap(other.entries);
    bytes.swap(other.bytes);
    std::swap(mask, other.mask);
    for (std::size_t word = 0; word < 4; ++word)
        std::swap(firstChars[word], other.firstChars[word]);
}

} // namespace Internal
} // namespace KVX
