// Tests of the per-document id map: names that follow a moving frame, the
// lookups by name and by id, interning with dynamic ids, recording of
// vocabulary names into the frame, reset and copy.
#include "InternalsTestSupport.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/WireFormat.h"

#include <kvx/KVXDefaultMap.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int Packet = 1398;
constexpr int NodeElement = 1008;
constexpr int IdElement = 1010;

} // namespace

TEST(KVXProtocolIDMap, NewMapIsEmpty) {
    KVXProtocolIDMap ids(nullptr);
    EXPECT_TRUE(ids.names.empty());
    EXPECT_TRUE(ids.types.empty());
    EXPECT_EQ(ids.nextId, -2);
    EXPECT_EQ(ids.version, 40500);
    EXPECT_EQ(ids.owner, nullptr);
    EXPECT_TRUE(ids.aliases.empty());
    EXPECT_FALSE(ids.tableCorrupt);
    EXPECT_EQ(ids.load(), 0);
}

TEST(KVXProtocolIDMap, NameRefFollowsItsTextThroughReallocation) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    NameRef const before = doc.ids.names.at(Packet);
    std::string const big(10000, 'z');
    ASSERT_EQ(doc.append(path, Packet, KindString, big.data(), 10000, true), 0);
    ASSERT_GT(doc.capacity, 4096);
    NameRef const after = doc.ids.names.at(Packet);
    EXPECT_EQ(after.distance, before.distance);
    EXPECT_EQ(after.text().str(), "packet");
}

TEST(KVXProtocolIDMap, NameRefWithoutOwnerOrTextReadsAsGiven) {
    NameRef empty;
    EXPECT_NE(empty.text().data, nullptr);
    EXPECT_EQ(empty.text().length, 0u);
    NameRef plain("abc", 3);
    EXPECT_EQ(plain.text().str(), "abc");
}

TEST(KVXProtocolIDMap, NameRefThatTheFrameNoLongerReachesIsEmpty) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    NameRef stale("", 6);
    stale.owner = &doc;
    stale.distance = 4000; // further back than the frame is long
    EXPECT_EQ(stale.text().length, 0u);
    stale.distance = 3; // the text would run past the frame's end
    EXPECT_EQ(stale.text().length, 0u);
}

TEST(KVXProtocolIDMap, LookupIdNeverAllots) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    int const used = doc.used;
    EXPECT_EQ(doc.ids.lookupId(CharArray("packet")), Packet);
    EXPECT_EQ(doc.ids.lookupId(CharArray("node")), NodeElement); // vocabulary, not yet used
    EXPECT_EQ(doc.ids.lookupId(CharArray("nosuchname")), 0);
    EXPECT_EQ(doc.ids.lookupId(CharArray(KVXDefaultMap::findNSID(205))), 205);
    EXPECT_EQ(doc.used, used);
    EXPECT_EQ(doc.ids.nextId, -2);
    EXPECT_EQ(doc.ids.names.size(), 1u);
}

TEST(KVXProtocolIDMap, LookupIdFindsATableEntryAndKeepsItsOwnReference) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    // A type name is in `types` only; lookup by name still finds its entry.
    ASSERT_EQ(doc.ids.intern(CharArray("urn:t:zzz"), TableType), 0xFFFE);
    doc.ids.aliases.clear();
    int found = 0;
    {
        std::string segment = "urn:t:zzz";
        found = doc.ids.lookupId(CharArray(segment));
        segment.assign(segment.size(), '#'); // the caller's text dies
    }
    EXPECT_EQ(found, 0xFFFE);
    ASSERT_EQ(doc.ids.names.count(0xFFFE), 1u);
    NameRef const &ref = doc.ids.names.at(0xFFFE);
    EXPECT_EQ(ref.owner, &doc);
    EXPECT_EQ(ref.text().str(), "urn:t:zzz");
    EXPECT_EQ(doc.ids.aliases.find(CharArray("urn:t:zzz")), 0xFFFE);
}

TEST(KVXProtocolIDMap, InternOfVocabularyNameWritesOneEntry) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    int const used = doc.used;
    EXPECT_EQ(doc.ids.intern(CharArray("node"), TableElement), NodeElement);
    EXPECT_EQ(doc.used, used + 24);
    EXPECT_EQ(doc.ids.intern(CharArray("node"), TableElement), NodeElement);
    EXPECT_EQ(doc.used, used + 24);
    EXPECT_EQ(doc.ids.nextId, -2);
    EXPECT_TRUE(doc.ids.aliases.empty());
}

TEST(KVXProtocolIDMap, InternOfUnknownNamesAllotsFromOneCounter) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    EXPECT_EQ(doc.ids.intern(CharArray("urn:a"), TableNamespace), 0xFFFD);
    EXPECT_EQ(doc.ids.intern(CharArray("t"), TableType), 0xFFFC);
    EXPECT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    EXPECT_EQ(doc.ids.intern(CharArray("urn:a"), TableNamespace), 0xFFFD);
    EXPECT_EQ(doc.ids.intern(CharArray("t"), TableType), 0xFFFC);
    EXPECT_EQ(doc.ids.nextId, -5);
    EXPECT_EQ(doc.ids.types.count(0xFFFC), 1u);
    EXPECT_EQ(doc.ids.names.count(0xFFFC), 0u);
    EXPECT_EQ(doc.ids.lookupName(-2).str(), "x");
    EXPECT_EQ(doc.ids.lookupName(0xFFFD).str(), "urn:a");
    EXPECT_EQ(doc.ids.lookupTypeName(0xFFFC).str(), "t");
}

TEST(KVXProtocolIDMap, EmptyNameFindsTheFirstReservedRow) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.ids.lookupId(CharArray("")), 2180);
    EXPECT_EQ(doc.ids.intern(CharArray(""), TableElement), 2180);
}

TEST(KVXProtocolIDMap, InternWithoutBufferKeepsTheCallersText) {
    KVXBinaryInternals doc;
    static char const text[] = "kept";
    EXPECT_EQ(doc.ids.intern(CharArray(text), TableElement), -2);
    ASSERT_EQ(doc.ids.names.count(-2), 1u);
    EXPECT_EQ(doc.ids.names.at(-2).data, text);
    EXPECT_EQ(doc.ids.names.at(-2).owner, nullptr);
}

TEST(KVXProtocolIDMap, LookupNameLetsTheVocabularyWin) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.ids.lookupName(0).length, 0u);
    EXPECT_EQ(doc.ids.lookupName(101).length, 0u);
    EXPECT_EQ(doc.ids.lookupName(200).length, 0u);
    EXPECT_EQ(doc.ids.lookupName(NodeElement).str(), "node");
    EXPECT_EQ(doc.ids.lookupName(205).str(), KVXDefaultMap::findNSID(205).str());
    EXPECT_EQ(doc.ids.lookupName(-9).length, 0u);
    EXPECT_EQ(doc.ids.names.count(NodeElement), 0u); // nothing recorded
    EXPECT_EQ(doc.ids.lookupTypeName(101).str(), "alertmType");
    EXPECT_EQ(doc.ids.lookupTypeName(-9).length, 0u);
    EXPECT_EQ(doc.ids.types.count(101), 0u);
}

TEST(KVXProtocolIDMap, RecordNameWritesVocabularyEntriesOfTheRightKind) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.ids.recordName(IdElement).str(), "id");
    EXPECT_EQ(loadInt32(doc.buffer + 24), IdElement);
    EXPECT_EQ(loadInt32(doc.buffer + 28), TableElement);
    EXPECT_EQ(doc.ids.recordName(205).length, KVXDefaultMap::findNSID(205).length);
    EXPECT_EQ(loadInt32(doc.buffer + 24), 205);
    EXPECT_EQ(loadInt32(doc.buffer + 28), TableNamespace);
    int const used = doc.used;
    EXPECT_EQ(doc.ids.recordName(IdElement).str(), "id"); // present: nothing added
    EXPECT_EQ(doc.ids.recordName(150).length, 0u);
    EXPECT_EQ(doc.ids.recordName(-30).length, 0u);
    EXPECT_EQ(doc.used, used);
}

TEST(KVXProtocolIDMap, RecordTypeNameWritesATypeEntry) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.ids.recordTypeName(100).length, 0u);
    EXPECT_EQ(doc.ids.recordTypeName(0).length, 0u);
    EXPECT_EQ(doc.ids.recordTypeName(101).str(), "alertmType");
    EXPECT_EQ(loadInt32(doc.buffer + 24), 101);
    EXPECT_EQ(loadInt32(doc.buffer + 28), TableType);
    EXPECT_EQ(doc.ids.types.at(101).text().str(), "alertmType");
}

TEST(KVXProtocolIDMap, AddEntryOfAKnownIdGivesZero) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    int const used = doc.used;
    EXPECT_EQ(doc.ids.addEntry(NameRef("other", 5), Packet, TableElement), 0);
    EXPECT_EQ(doc.used, used);
    EXPECT_EQ(doc.ids.addEntry(NameRef("other", 5), -40, TableElement), -40);
    EXPECT_EQ(doc.ids.names.at(-40).owner, &doc);
    EXPECT_EQ(doc.ids.names.at(-40).data, std::string());
    EXPECT_EQ(doc.ids.lookupName(-40).str(), "other");
}

TEST(KVXProtocolIDMap, ResetKeepsTypesOnly) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    ASSERT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    ASSERT_EQ(doc.ids.intern(CharArray("alertmType"), TableType), 101);
    doc.ids.version = 1;
    doc.ids.tableCorrupt = true;
    doc.ids.reset();
    EXPECT_TRUE(doc.ids.names.empty());
    EXPECT_TRUE(doc.ids.aliases.empty());
    EXPECT_EQ(doc.ids.nextId, -2);
    EXPECT_EQ(doc.ids.version, 40500);
    EXPECT_FALSE(doc.ids.tableCorrupt);
    EXPECT_EQ(doc.ids.types.size(), 1u);
}

TEST(KVXProtocolIDMap, CopyFromTakesEverythingAndRepointsNames) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    ASSERT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    KVXBinaryInternals other;
    other.ids.copyFrom(doc.ids);
    EXPECT_EQ(other.ids.names.size(), 2u);
    EXPECT_EQ(other.ids.names.at(-2).owner, &other);
    EXPECT_EQ(other.ids.nextId, -3);
    ASSERT_FALSE(other.ids.aliases.empty());
    doc.ids.reset(); // the copy's aliases are its own
    EXPECT_EQ(other.ids.aliases.find(CharArray("x")), -2);
}

TEST(KVXProtocolIDMap, CounterAtTheBottomOfItsRangeStopsAllotting) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    doc.ids.nextId = INT_MIN;
    EXPECT_EQ(doc.ids.intern(CharArray("last"), TableElement), INT_MIN);
    EXPECT_EQ(doc.ids.nextId, INT_MIN);
    int const used = doc.used;
    EXPECT_EQ(doc.ids.intern(CharArray("more"), TableElement), 0); // meets the id in use
    EXPECT_EQ(doc.used, used);
}

TEST(NameRefMap, KeepsEveryIdThroughGrowth) {
    NameRefMap map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.find(5), nullptr);
    // Dynamic element ids, 16-bit ids and vocabulary ids side by side.
    static char const texts[] = "abcdefghij";
    for (int i = 0; i < 3000; ++i) {
        int const id = i % 3 == 0 ? -2 - i : i % 3 == 1 ? 0xFFFF - i : 201 + i;
        EXPECT_TRUE(map.emplace(id, NameRef(texts + i % 10, 1)));
    }
    EXPECT_EQ(map.size(), 3000u);
    for (int i = 0; i < 3000; ++i) {
        int const id = i % 3 == 0 ? -2 - i : i % 3 == 1 ? 0xFFFF - i : 201 + i;
        ASSERT_EQ(map.count(id), 1u) << id;
        EXPECT_EQ(map.at(id).data, texts + i % 10);
    }
    EXPECT_EQ(map.count(0), 0u);
    EXPECT_EQ(map.count(INT_MIN), 0u);
}

TEST(NameRefMap, EmplaceOfAKnownIdKeepsTheFirstReference) {
    NameRefMap map;
    EXPECT_TRUE(map.emplace(-2, NameRef("first", 5)));
    EXPECT_FALSE(map.emplace(-2, NameRef("second", 6)));
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(map.at(-2).text().str(), "first");
}

TEST(NameRefMap, AtOfAMissingIdThrows) {
    NameRefMap map;
    EXPECT_THROW(map.at(201), std::out_of_range);
    map.emplace(201, NameRef("x", 1));
    EXPECT_THROW(map.at(202), std::out_of_range);
}

TEST(NameRefMap, ClearForgetsEveryIdAndTakesNewOnes) {
    for (int count : {10, 2000}) { // slots kept, and slots given back
        NameRefMap map;
        for (int id = 0; id < count; ++id)
            map.emplace(-2 - id, NameRef("n", 1));
        map.clear();
        EXPECT_TRUE(map.empty());
        for (int id = 0; id < count; ++id)
            ASSERT_EQ(map.find(-2 - id), nullptr);
        EXPECT_TRUE(map.emplace(-3, NameRef("m", 1)));
        EXPECT_EQ(map.size(), 1u);
        EXPECT_EQ(map.at(-3).text().str(), "m");
    }
}

TEST(NameRefMap, VocabularyRangeAnswersByItsBitsAtBothEnds) {
    // Ids 101 to 2304 are found by a bit per id, the ids around them by a
    // probe: both must give the same answers, through clear, growth and copy.
    for (int count : {10, 2000}) { // slots kept, and slots given back
        NameRefMap map;
        int const edges[] = {100, 101, 102, 2303, 2304, 2305};
        for (int id : edges)
            ASSERT_EQ(map.find(id), nullptr) << id;
        for (int id : edges)
            EXPECT_TRUE(map.emplace(id, NameRef("a", 1))) << id;
        for (int id : edges)
            EXPECT_FALSE(map.emplace(id, NameRef("b", 1))) << id;
        for (int id = 0; id < count; ++id)
            map.emplace(-2 - id, NameRef("n", 1));
        EXPECT_EQ(map.size(), 6u + static_cast<std::size_t>(count));
        for (int id : edges)
            EXPECT_EQ(map.at(id).text().str(), "a") << id;
        NameRefMap const copy = map;
        map.clear();
        for (int id : edges) {
            EXPECT_EQ(map.find(id), nullptr) << id;
            EXPECT_EQ(copy.at(id).text().str(), "a") << id;
        }
        EXPECT_TRUE(map.emplace(2304, NameRef("c", 1)));
        EXPECT_FALSE(map.emplace(2304, NameRef("d", 1)));
        EXPECT_EQ(map.find(101), nullptr);
        EXPECT_EQ(map.size(), 1u);
        EXPECT_EQ(map.at(2304).text().str(), "c");
    }
}

TEST(KVXProtocolIDMap, CopyFromRepointsEveryNameOfALargeMap) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    for (int i = 0; i < 100; ++i) {
        std::string const name = "name" + std::to_string(i);
        ASSERT_EQ(doc.ids.intern(CharArray(name.data(), name.size()), TableElement), -2 - i);
    }
    KVXBinaryInternals *copy = doc.deepCopy();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->ids.names.size(), doc.ids.names.size());
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(copy->ids.names.at(-2 - i).owner, copy);
        EXPECT_EQ(copy->ids.lookupName(-2 - i).str(), "name" + std::to_string(i));
    }
    EXPECT_EQ(copy->ids.names.at(Packet).owner, copy);
    delete copy;
}
