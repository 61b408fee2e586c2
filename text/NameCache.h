// NameCache: the names that one parse has resolved and that keep their id for
// the rest of it, found by their text without the id map. Open addressing over
// 64 slots, filled up to three quarters; a slot counts only when its bit is
// set, so a new cache costs no clearing. Owned by one TextParser; header only,
// as the parser's loop looks a name up at every element.
#ifndef KVX_TEXT_NAMECACHE_H
#define KVX_TEXT_NAMECACHE_H

#include "text/TextScan.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KVX {
namespace Internal {

class NameCache {
public:
    // The first sixteen characters of a name, zeros behind its end: names of
    // up to sixteen characters, nearly all of them, compare as two words.
    struct Key {
        std::uint64_t low;
        std::uint64_t high;
        bool operator==(Key const &other) const { return low == other.low && high == other.high; }
    };
    // A name with its key and id, as the cache keeps it.
    struct Entry {
        Key key;
        char const *data;
        std::size_t length;
        int id;
    };

    static Key keyOf(char const *name, std::size_t length) {
        char padded[16] = {};
        std::memcpy(padded, name, length < sizeof padded ? length : sizeof padded);
        Key key;
        std::memcpy(&key.low, padded, 8);
        std::memcpy(&key.high, padded + 8, 8);
        return key;
    }
    // keyOf for a name of at most sixteen characters at `text`, of which
    // sixteen bytes are readable: two loads and the mask of its length.
    static Key maskOf(std::size_t length) {
        return Key{FirstBytes.masks[length < 8 ? length : 8],
                   FirstBytes.masks[length > 8 ? length - 8 : 0]};
    }
    static Key keyAt(char const *text, Key const &mask) {
        Key key;
        std::memcpy(&key.low, text, 8);
        std::memcpy(&key.high, text + 8, 8);
        key.low &= mask.low;
        key.high &= mask.high;
        return key;
    }

    // The slot that holds the name, or the empty one where it would go: the
    // probe meets an empty slot at the latest, as the cache is never full.
    std::size_t find(Key const &key, char const *name, std::size_t length) const {
        std::size_t slot = static_cast<std::size_t>(
            ((key.low ^ (key.high * 0x9E3779B97F4A7C15u) ^ length) * 0xC2B2AE3D27D4EB4Fu) >> 58);
        for (;; slot = (slot + 1) % Size) {
            if (!filled(slot))
                return slot;
            Entry const &entry = entries[slot];
            if (entry.length == length && entry.key == key &&
                (length <= 16 || sameText(entry.data + 16, name + 16, length - 16)))
                return slot;
        }
    }
    bool filled(std::size_t slot) const { return ((filledSlots >> slot) & 1u) != 0; }
    int idAt(std::size_t slot) const { return entries[slot].id; }
    // The id of a name of up to sixteen characters, 0 when it is not cached.
    int idOf(Key const &key, std::size_t length) const {
        std::size_t const slot = find(key, nullptr, length);
        return filled(slot) ? entries[slot].id : 0;
    }
    // Whether another name may enter.
    bool hasRoom() const { return count < Size * 3 / 4; }
    // Keeps `entry` in `slot`, an empty slot that find() gave for its name.
    void fill(std::size_t slot, Entry const &entry) {
        entries[slot] = entry;
        filledSlots |= std::uint64_t(1) << slot;
        ++count;
    }

private:
    static constexpr std::size_t Size = 64;
    static_assert(Size == 64, "one bit of filledSlots per slot");
    Entry entries[Size];
    std::uint64_t filledSlots = 0;
    std::size_t count = 0;
};

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_NAMECACHE_H
