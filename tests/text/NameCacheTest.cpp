// Tests of the parser's cache of resolved names: the keys of the first sixteen
// characters (from a length and from a masked sixteen-byte window), lookup and
// fill, names longer than sixteen characters that differ only behind them,
// probing past taken slots and the three-quarters bound on its fill.
#include "text/NameCache.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

using KVX::Internal::NameCache;

namespace {

using Key = NameCache::Key;

// The sixteen letters names are cut from.
char const Letters[] = "abcdefghijklmnop";

// A heap copy of `text` of exactly its size: AddressSanitizer reports a read
// behind it.
std::unique_ptr<char[]> exactCopy(std::string const &text) {
    std::unique_ptr<char[]> copy(new char[text.size()]);
    std::memcpy(copy.get(), text.data(), text.size());
    return copy;
}

Key keyOf(std::string const &name) {
    return NameCache::keyOf(name.data(), name.size());
}

std::size_t findIn(NameCache const &cache, std::string const &name) {
    return cache.find(keyOf(name), name.data(), name.size());
}

// Looks `name` up and keeps it with `id` in the slot the lookup gave.
std::size_t add(NameCache &cache, std::string const &name, int id) {
    Key const key = keyOf(name);
    std::size_t const slot = cache.find(key, name.data(), name.size());
    EXPECT_FALSE(cache.filled(slot)) << name;
    cache.fill(slot, NameCache::Entry{key, name.data(), name.size(), id});
    return slot;
}

// Names "c0", "c1", ... grouped by the slot an empty cache gives them.
std::map<std::size_t, std::vector<std::string>> namesByHomeSlot(int count) {
    NameCache const empty{};
    std::map<std::size_t, std::vector<std::string>> bySlot;
    for (int i = 0; i < count; ++i) {
        std::string const name = "c" + std::to_string(i);
        bySlot[findIn(empty, name)].push_back(name);
    }
    return bySlot;
}

} // namespace

// --- Keys ---------------------------------------------------------------------

TEST(NameCache, KeyAtEqualsKeyOfWhateverFollowsTheName) {
    for (std::size_t length = 1; length <= 16; ++length) {
        std::string const name(Letters, length);
        Key const expected = NameCache::keyOf(name.data(), length);
        Key const mask = NameCache::maskOf(length);

        std::string const inDocument = name + "</x>garbage-garbage-garbage";
        EXPECT_EQ(expected, NameCache::keyAt(inDocument.data(), mask)) << length;

        // Exactly sixteen bytes: the name and 0xFF behind it.
        std::string window(16, '\xFF');
        window.replace(0, length, name);
        std::unique_ptr<char[]> const exact = exactCopy(window);
        EXPECT_EQ(expected, NameCache::keyAt(exact.get(), mask)) << length;

        std::string zeros(16, '\0');
        zeros.replace(0, length, name);
        EXPECT_EQ(expected, NameCache::keyAt(zeros.data(), mask)) << length;
    }
}

TEST(NameCache, KeyOfTheEmptyNameIsZeroAndSoIsItsMask) {
    Key const zero{0, 0};
    EXPECT_EQ(zero, NameCache::keyOf("abc", 0));
    EXPECT_EQ(zero, NameCache::maskOf(0));
    std::string const window(16, '\xFF');
    EXPECT_EQ(zero, NameCache::keyAt(window.data(), NameCache::maskOf(0)));
}

TEST(NameCache, KeyOfIsTheNameBytesPaddedWithZeros) {
    std::string const name = "element";
    Key const key = keyOf(name);
    char bytes[16];
    std::memcpy(bytes, &key.low, 8);
    std::memcpy(bytes + 8, &key.high, 8);
    EXPECT_EQ(std::string("element\0\0\0\0\0\0\0\0\0", 16), std::string(bytes, 16));
}

TEST(NameCache, DifferentNamesOfOneLengthHaveDifferentKeys) {
    for (std::size_t length = 1; length <= 16; ++length) {
        std::string const name(Letters, length);
        Key const key = keyOf(name);
        for (std::size_t at = 0; at < length; ++at) {
            std::string other = name;
            other[at] = 'z';
            EXPECT_FALSE(key == keyOf(other)) << length << " " << at;
            EXPECT_FALSE(key == NameCache::keyAt((other + "0123456789abcdef").data(),
                                                 NameCache::maskOf(length)))
                << length << " " << at;
        }
    }
}

TEST(NameCache, KeyOfALongNameKeepsItsFirstSixteenBytes) {
    std::string const first = "abcdefghijklmnop-first";
    std::string const second = "abcdefghijklmnop+second-and-longer";
    EXPECT_EQ(NameCache::keyOf(first.data(), 16), keyOf(first));
    EXPECT_EQ(keyOf(first), keyOf(second));
    EXPECT_EQ(keyOf(std::string(Letters, 16)), NameCache::keyOf(first.data(), 17));
    EXPECT_FALSE(keyOf(first) == keyOf("abcdefghijklmnoX-first"));
}

// --- Lookup and fill ----------------------------------------------------------

TEST(NameCache, EmptyCacheFindsAnUnfilledSlot) {
    NameCache const cache{};
    std::size_t const slot = findIn(cache, "element");
    EXPECT_LT(slot, 64u);
    EXPECT_FALSE(cache.filled(slot));
    EXPECT_EQ(0, cache.idOf(keyOf("element"), 7));
    EXPECT_TRUE(cache.hasRoom());
    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_FALSE(cache.filled(i)) << i;
}

TEST(NameCache, FilledNameIsFoundWithItsId) {
    NameCache cache;
    std::string const name = "element";
    std::size_t const slot = findIn(cache, name);
    cache.fill(slot, NameCache::Entry{keyOf(name), name.data(), name.size(), 1234});

    EXPECT_EQ(slot, findIn(cache, name));
    EXPECT_TRUE(cache.filled(slot));
    EXPECT_EQ(1234, cache.idAt(slot));
    EXPECT_EQ(1234, cache.idOf(keyOf(name), name.size()));

    // Found by its text, not by the pointer it was kept with.
    std::string const copy = "<element>";
    Key const key =
        NameCache::keyAt((copy + "0123456789abcdef").data() + 1, NameCache::maskOf(name.size()));
    EXPECT_EQ(slot, cache.find(key, copy.data() + 1, name.size()));
    EXPECT_EQ(1234, cache.idOf(key, name.size()));

    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_EQ(i == slot, cache.filled(i)) << i;
}

TEST(NameCache, AbsentNameHasIdZero) {
    NameCache cache;
    std::string const name = "element";
    add(cache, name, 5);
    EXPECT_EQ(0, cache.idOf(keyOf("elemenT"), 7));
    EXPECT_EQ(0, cache.idOf(keyOf("elemen"), 6));
    EXPECT_EQ(0, cache.idOf(keyOf("element2"), 8));
    // The same first bytes with another length: the length is part of the match.
    EXPECT_EQ(0, cache.idOf(keyOf(name), 8));
    std::size_t const slot = findIn(cache, "other");
    EXPECT_FALSE(cache.filled(slot));
}

TEST(NameCache, LongNamesThatDifferBehindSixteenBytesAreToldApart) {
    // Equal lengths and keys; the texts differ in the 17th, a middle and the
    // last byte.
    std::vector<std::pair<std::string, std::string>> const pairs = {
        {"abcdefghijklmnopQ", "abcdefghijklmnopR"},
        {"abcdefghijklmnop-first", "abcdefghijklmnop-firsT"},
        {"abcdefghijklmnop-0123456789-abcdefghij", "abcdefghijklmnop-0123456789+abcdefghij"},
        {"abcdefghijklmnopX0123456789-abcdefghij", "abcdefghijklmnopY0123456789-abcdefghij"},
    };
    for (auto const &pair : pairs) {
        ASSERT_EQ(pair.first.size(), pair.second.size());
        ASSERT_EQ(keyOf(pair.first), keyOf(pair.second));
        std::unique_ptr<char[]> const first = exactCopy(pair.first);
        std::unique_ptr<char[]> const second = exactCopy(pair.second);
        std::size_t const length = pair.first.size();
        Key const key = keyOf(pair.first);

        NameCache cache;
        std::size_t const firstSlot = cache.find(key, first.get(), length);
        cache.fill(firstSlot, NameCache::Entry{key, first.get(), length, 1});

        std::size_t const secondSlot = cache.find(key, second.get(), length);
        EXPECT_FALSE(cache.filled(secondSlot)) << pair.second;
        EXPECT_EQ((firstSlot + 1) % 64, secondSlot) << pair.second;
        cache.fill(secondSlot, NameCache::Entry{key, second.get(), length, 2});

        // Looked up from other copies of the texts.
        std::unique_ptr<char[]> const firstAgain = exactCopy(pair.first);
        std::unique_ptr<char[]> const secondAgain = exactCopy(pair.second);
        EXPECT_EQ(firstSlot, cache.find(key, firstAgain.get(), length));
        EXPECT_EQ(secondSlot, cache.find(key, secondAgain.get(), length));
        EXPECT_EQ(1, cache.idAt(cache.find(key, firstAgain.get(), length)));
        EXPECT_EQ(2, cache.idAt(cache.find(key, secondAgain.get(), length)));

        std::string third = pair.first;
        third[length - 1] = '#';
        std::unique_ptr<char[]> const thirdCopy = exactCopy(third);
        EXPECT_FALSE(cache.filled(cache.find(key, thirdCopy.get(), length))) << third;
    }
}

TEST(NameCache, LongNamesWithTheSameFirstSixteenBytesAndOtherLengths) {
    std::string const shorter = "abcdefghijklmnop-ab";
    std::string const longer = "abcdefghijklmnop-abc";
    std::string const sixteen(Letters, 16);
    NameCache cache;
    add(cache, shorter, 1);
    add(cache, longer, 2);
    add(cache, sixteen, 3);
    EXPECT_EQ(1, cache.idAt(findIn(cache, shorter)));
    EXPECT_EQ(2, cache.idAt(findIn(cache, longer)));
    EXPECT_EQ(3, cache.idAt(findIn(cache, sixteen)));
    EXPECT_EQ(3, cache.idOf(keyOf(sixteen), 16));
    EXPECT_FALSE(cache.filled(findIn(cache, "abcdefghijklmnop-a")));
}

// --- Probing and fill bound ---------------------------------------------------

TEST(NameCache, NamesOfOneSlotProbeToTheNextSlots) {
    std::map<std::size_t, std::vector<std::string>> const bySlot = namesByHomeSlot(4096);
    // The first slot below 59 that four names share: the run of five stays
    // before the last slot.
    std::size_t home = 64;
    for (auto const &entry : bySlot) {
        if (entry.first < 59 && entry.second.size() >= 4) {
            home = entry.first;
            break;
        }
    }
    ASSERT_LT(home, 59u);
    std::vector<std::string> const &names = bySlot.at(home);
    ASSERT_EQ(1u, bySlot.count(home + 1));
    std::string const ofNextSlot = bySlot.at(home + 1).front();

    NameCache cache;
    EXPECT_EQ(home, add(cache, names[0], 10));
    EXPECT_EQ(home + 1, add(cache, names[1], 11));
    EXPECT_EQ(home + 2, add(cache, names[2], 12));
    // A name whose own slot a collision took goes behind the run.
    EXPECT_EQ(home + 3, add(cache, ofNextSlot, 13));
    EXPECT_EQ(home + 4, add(cache, names[3], 14));

    EXPECT_EQ(home, findIn(cache, names[0]));
    EXPECT_EQ(home + 1, findIn(cache, names[1]));
    EXPECT_EQ(home + 2, findIn(cache, names[2]));
    EXPECT_EQ(home + 3, findIn(cache, ofNextSlot));
    EXPECT_EQ(home + 4, findIn(cache, names[3]));
    EXPECT_EQ(10, cache.idOf(keyOf(names[0]), names[0].size()));
    EXPECT_EQ(11, cache.idOf(keyOf(names[1]), names[1].size()));
    EXPECT_EQ(12, cache.idOf(keyOf(names[2]), names[2].size()));
    EXPECT_EQ(13, cache.idOf(keyOf(ofNextSlot), ofNextSlot.size()));
    EXPECT_EQ(14, cache.idOf(keyOf(names[3]), names[3].size()));
    if (names.size() > 4) {
        EXPECT_EQ(home + 5, findIn(cache, names[4]));
    }
}

TEST(NameCache, ProbingWrapsFromTheLastSlotToTheFirst) {
    std::map<std::size_t, std::vector<std::string>> const bySlot = namesByHomeSlot(4096);
    ASSERT_EQ(1u, bySlot.count(63));
    std::vector<std::string> const &names = bySlot.at(63);
    ASSERT_GE(names.size(), 3u);

    NameCache cache;
    EXPECT_EQ(63u, add(cache, names[0], 1));
    EXPECT_EQ(0u, add(cache, names[1], 2));
    EXPECT_EQ(1u, add(cache, names[2], 3));
    EXPECT_EQ(63u, findIn(cache, names[0]));
    EXPECT_EQ(0u, findIn(cache, names[1]));
    EXPECT_EQ(1u, findIn(cache, names[2]));
    EXPECT_EQ(2, cache.idOf(keyOf(names[1]), names[1].size()));
    EXPECT_EQ(3, cache.idOf(keyOf(names[2]), names[2].size()));
}

TEST(NameCache, FortyEightNamesAreAllFoundAgain) {
    std::vector<std::string> names;
    for (int i = 0; i < 48; ++i) {
        if (i % 3 == 0)
            names.push_back("n" + std::to_string(i));
        else if (i % 3 == 1)
            names.push_back("element-" + std::to_string(i) + "-x");
        else
            names.push_back("a-long-element-name-" + std::to_string(i));
    }
    NameCache cache;
    std::set<std::size_t> slots;
    for (int i = 0; i < 48; ++i) {
        EXPECT_TRUE(cache.hasRoom()) << i;
        slots.insert(add(cache, names[i], 100 + i));
    }
    EXPECT_EQ(48u, slots.size());
    EXPECT_FALSE(cache.hasRoom());

    std::size_t filled = 0;
    for (std::size_t i = 0; i < 64; ++i)
        filled += cache.filled(i) ? 1 : 0;
    EXPECT_EQ(48u, filled);

    for (int i = 0; i < 48; ++i) {
        std::string const &name = names[i];
        std::size_t const slot = findIn(cache, name);
        EXPECT_TRUE(cache.filled(slot)) << name;
        EXPECT_EQ(100 + i, cache.idAt(slot)) << name;
        if (name.size() <= 16) {
            EXPECT_EQ(100 + i, cache.idOf(keyOf(name), name.size())) << name;
        }
    }
    EXPECT_FALSE(cache.filled(findIn(cache, "absent")));
    EXPECT_FALSE(cache.filled(findIn(cache, "a-long-element-name-99")));
    EXPECT_EQ(0, cache.idOf(keyOf("n99"), 3));
}

TEST(NameCache, HasRoomUpToThreeQuartersOfItsSlots) {
    std::vector<std::string> names;
    for (int i = 0; i < 48; ++i)
        names.push_back("name" + std::to_string(i));
    NameCache cache;
    EXPECT_TRUE(cache.hasRoom());
    for (int i = 0; i < 47; ++i)
        add(cache, names[i], i + 1);
    EXPECT_TRUE(cache.hasRoom());
    add(cache, names[47], 48);
    EXPECT_FALSE(cache.hasRoom());
}
