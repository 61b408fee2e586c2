// AliasTable: the aliases of one id map, from a name to the id that the frame's
// name table or an allotment gave it where the vocabulary gives another id or
// none. Owns copies of its keys. Belongs to one id map: not thread-safe.
#ifndef KVX_BINARY_ALIASTABLE_H
#define KVX_BINARY_ALIASTABLE_H

#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KVX {
namespace Internal {

// Open addressing over a power-of-two array of indexes into a dense list of
// entries, whose keys lie in one block of bytes. A document parsed into again
// and again holds an alias or two (a namespace outside the vocabulary) and
// clears them at every reset: clearing touches only the slots in use and keeps
// the blocks, so the steady state allocates nothing. Keys compare as the
// vocabulary's do: a key ends at its first NUL, and a null `data` reads as the
// empty key whatever its length.
class AliasTable {
public:
    // The id stored under `key`, or 0 when there is none.
    int find(CharArray const &key) const {
        if (entries.empty())
            return 0;
        // Most names miss on their first character, which costs no hashing.
        unsigned const first =
            key.data != nullptr && key.length != 0 ? static_cast<unsigned char>(key.data[0]) : 0u;
        if (((firstChars[first / 64] >> (first % 64)) & 1u) == 0)
            return 0;
        return findKey(key);
    }
    // Stores `id` under the key of `length` characters at `data`. False, with
    // nothing changed, when the key is present already: the first id stays.
    // Throws std::bad_alloc when memory runs out; the table stays as it was.
    bool insert(char const *data, unsigned long long length, int id);
    bool insert(CharArray const &key, int id) { return insert(key.data, key.length, id); }
    // Empty, keeping the blocks unless they grew large.
    void clear();
    bool empty() const { return entries.empty(); }
    std::size_t size() const { return entries.size(); }
    void swap(AliasTable &other) noexcept;

private:
    struct Entry {
        std::size_t offset; // of the key in `bytes`
        std::size_t length; // of the key, up to its first NUL
        std::uint64_t hash;
        std::uint32_t slot; // where `slots` points at this entry
        int id;
    };
    int findKey(CharArray const &key) const;
    // The slot of `key`'s entry, or of the empty slot that ends its probe.
    std::size_t probe(char const *key, std::size_t length, std::uint64_t hash) const;
    void rehash(std::size_t slotCount);

    std::vector<std::uint32_t> slots; // entry index + 1; 0 for an empty slot
    std::vector<Entry> entries;
    std::vector<char> bytes;
    std::size_t mask = 0;
    // Bit c is set when some key starts with the byte c (0 for the empty key).
    std::uint64_t firstChars[4] = {};
};

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_ALIASTABLE_H
