// Tests of reading a frame's name table: into the document's own id map on the
// first lookup and into a map without owner; aliases and the dynamic id
// counter; and every kind of corrupt table, which must be refused without a
// read outside the frame.
#include "InternalsTestSupport.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/KVXProtocolIDMap.h"
#include "binary/NameTable.h"
#include "binary/WireFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int NodeElement = 1008; // "node"
constexpr int IdElement = 1010;   // "id"

struct Entry {
    int id;
    std::uint32_t kindWord; // kind and ns read as one 32-bit word
    std::string name;
    std::uint32_t size; // the size field; 0 means name length + 1
};

// A format-2 frame with an empty KindStructure root of `rootId` and the given
// table entries, laid out by the node size rule.
Bytes frameWithTable(int rootId, std::initializer_list<Entry> entries, unsigned format = 2) {
    Bytes table;
    for (Entry const &e : entries) {
        std::size_t const start = table.size();
        std::uint32_t const size =
            e.size != 0 ? e.size : static_cast<std::uint32_t>(e.name.size() + 1);
        put32(table, static_cast<std::uint32_t>(e.id));
        put32(table, e.kindWord);
        put32(table, size);
        if (size == 8)
            put32(table, 0);
        putText(table, e.name);
        padTo(table, start + static_cast<std::size_t>(nodeSize(size, e.kindWord & 0xFFFF, format)));
    }
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame,
          (static_cast<std::uint32_t>(format) << 24) | static_cast<std::uint32_t>(table.size()));
    put32(frame, static_cast<std::uint32_t>(rootId));
    put16(frame, KindStructure);
    put16(frame, 0);
    put32(frame, 0);
    padTo(frame, 24);
    frame.insert(frame.end(), table.begin(), table.end());
    return frame;
}

char const *chars(Bytes const &bytes) {
    return reinterpret_cast<char const *>(bytes.data());
}

std::uint32_t length(Bytes const &bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

// A document loaded from `frame`, its table not read yet.
std::unique_ptr<KVXBinaryInternals> loaded(Bytes const &frame) {
    std::unique_ptr<KVXBinaryInternals> doc(new KVXBinaryInternals());
    EXPECT_EQ(doc->loadFrame(chars(frame), length(frame)), 0);
    return doc;
}

} // namespace

TEST(NameTable, OwnFrameIsReadOnTheFirstLookup) {
    Bytes const frame = workedExampleFrame();
    auto doc = loaded(frame);
    ASSERT_TRUE(doc->ids.names.empty());
    EXPECT_EQ(doc->ids.load(), 0);
    ASSERT_EQ(doc->ids.names.size(), 2u);
    NameRef const &id = doc->ids.names.at(IdElement);
    EXPECT_EQ(id.owner, doc.get());
    EXPECT_EQ(id.distance, 80u - 52u);
    EXPECT_EQ(id.text().str(), "id");
    EXPECT_EQ(doc->ids.names.at(NodeElement).text().str(), "node");
    EXPECT_TRUE(doc->ids.aliases.empty()); // both agree with the vocabulary
    EXPECT_EQ(doc->ids.nextId, -2);
}

TEST(NameTable, MapWithoutOwnerPointsIntoTheFrame) {
    Bytes const frame = workedExampleFrame();
    KVXProtocolIDMap ids(nullptr);
    ASSERT_EQ(ids.readNameTable(chars(frame), 80), 0);
    ASSERT_EQ(ids.names.count(IdElement), 1u);
    NameRef const &id = ids.names.at(IdElement);
    EXPECT_EQ(id.owner, nullptr);
    EXPECT_EQ(id.data, chars(frame) + 52);
    EXPECT_EQ(id.length, 2u);
    EXPECT_EQ(ids.lookupName(-2).length, 0u);
}

TEST(NameTable, FrameIdOtherThanVocabularyGoesThroughAliases) {
    Bytes const frame = frameWithTable(-5, {{-5, 0, "node", 0}});
    auto doc = loaded(frame);
    EXPECT_EQ(doc->ids.lookupId(CharArray("node")), -5);
    EXPECT_EQ(doc->ids.aliases.find(CharArray("node")), -5);
    EXPECT_EQ(doc->ids.lookupName(NodeElement).str(), "node");
    EXPECT_EQ(doc->ids.lookupName(-5).str(), "node");
    EXPECT_EQ(doc->ids.nextId, -6);
    EXPECT_EQ(doc->ids.intern(CharArray("fresh"), TableElement), -6);
}

TEST(NameTable, DynamicIdsOfEachSpaceKeepTheCounterBelowThem) {
    Bytes const frame = frameWithTable(NodeElement, {{NodeElement, 0, "node", 0},
                                                     {65533, 1, "urn:x", 0},
                                                     {-3, 0, "e", 0},
                                                     {300, 1, "urn:low", 0}});
    auto doc = loaded(frame);
    ASSERT_EQ(doc->ids.load(), 0);
    EXPECT_EQ(doc->ids.nextId, -4);
    Bytes const typed = frameWithTable(NodeElement, {{40000, 2, "t", 0}});
    auto second = loaded(typed);
    ASSERT_EQ(second->ids.load(), 0);
    EXPECT_EQ(second->ids.nextId, -25537); // 40000 with the high bits set, less one
    EXPECT_EQ(second->ids.types.count(40000), 1u);
    EXPECT_TRUE(second->ids.names.empty());
}

TEST(NameTable, FirstEntryOfAnIdWins) {
    Bytes const frame = frameWithTable(NodeElement, {{-2, 0, "newer", 0}, {-2, 0, "older", 0}});
    KVXProtocolIDMap ids(nullptr);
    ASSERT_EQ(ids.readNameTable(chars(frame), length(frame)), 0);
    EXPECT_EQ(ids.names.at(-2).text().str(), "newer");
    EXPECT_EQ(ids.aliases.find(CharArray("older")), -2);
}

TEST(NameTable, EmptyTableAndEmptyFrameReadAsNothing) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    EXPECT_EQ(doc.ids.load(), 0);
    EXPECT_TRUE(doc.ids.names.empty());
    Bytes const frame = frameWithTable(NodeElement, {});
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), 0);
}

TEST(NameTable, SizeZeroEntryIsCorruptAndLaterLookupsAreEmpty) {
    Bytes const frame = frameWithTable(NodeElement, {{NodeElement, 0, "node", 0}});
    Bytes broken = frame;
    store32(reinterpret_cast<char *>(broken.data()) + 24 + 8, 0);
    auto doc = loaded(broken);
    EXPECT_EQ(doc->ids.load(), -1);
    EXPECT_EQ(doc->ids.lookupId(CharArray("node")), 0);
    EXPECT_EQ(doc->ids.lookupId(CharArray("node")), 0);
    EXPECT_EQ(doc->ids.intern(CharArray("other"), TableElement), 0);
    EXPECT_EQ(doc->ids.recordName(IdElement).length, 0u);
    EXPECT_EQ(doc->ids.lookupTypeName(-2).length, 0u);
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(broken), length(broken)), -1);
}

TEST(NameTable, TableKindThreeIsCorrupt) {
    Bytes const frame = frameWithTable(NodeElement, {{NodeElement, 3, "node", 0}});
    auto doc = loaded(frame);
    EXPECT_EQ(doc->ids.lookupId(CharArray("node")), 0);
    EXPECT_EQ(doc->ids.load(), -1);
    Bytes const nsBytes = frameWithTable(NodeElement, {{NodeElement, 0x00010000u, "node", 0}});
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(nsBytes), length(nsBytes)), -1); // ns bytes not 0
}

TEST(NameTable, SumMismatchKeepsWhatWasReadButLookupsAreEmpty) {
    // In the legacy layout a 4-byte value ends at 16 but its node takes 24: the
    // sizes pass a 16-byte table without meeting its end.
    Bytes table;
    put32(table, static_cast<std::uint32_t>(-7));
    put32(table, 0);
    put32(table, 4);
    putText(table, "abc");
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame, 0x00000010u); // format 0, a root, table of 16 bytes
    put32(frame, NodeElement);
    put16(frame, KindStructure);
    put16(frame, 0);
    put32(frame, 0);
    padTo(frame, 24);
    frame.insert(frame.end(), table.begin(), table.end());
    ASSERT_EQ(frame.size(), 40u);
    auto doc = loaded(frame);
    EXPECT_EQ(doc->ids.lookupName(-7).length, 0u);
    EXPECT_EQ(doc->ids.names.count(-7), 1u); // read before the fault, and kept
    EXPECT_EQ(doc->ids.lookupName(-7).length, 0u);
    EXPECT_EQ(doc->ids.lookupId(CharArray("abc")), 0);
    EXPECT_EQ(doc->ids.lookupName(NodeElement).str(), "node"); // vocabulary needs no table
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), -1);
    EXPECT_EQ(ids.names.count(-7), 1u);
}

TEST(NameTable, CorruptStateEndsWithReset) {
    Bytes const frame = frameWithTable(NodeElement, {{NodeElement, 3, "node", 0}});
    auto doc = loaded(frame);
    EXPECT_EQ(doc->ids.load(), -1);
    EXPECT_TRUE(doc->ids.tableCorrupt);
    BinaryPath path;
    ASSERT_EQ(makeDocument(*doc, NodeElement, path), 0);
    EXPECT_FALSE(doc->ids.tableCorrupt);
    EXPECT_EQ(doc->ids.lookupId(CharArray("node")), NodeElement);
}

// Safety: a damaged table never makes the reader leave the frame. The frames
// are exactly as long as their bytes, so a sanitizer build sees any overrun.

TEST(NameTable, EntryHeaderPastTableEndIsCorrupt) {
    Bytes frame = frameWithTable(NodeElement, {{IdElement, 0, "id", 0}});
    // Claim 8 more table bytes than one entry: a second header would start there.
    frame.resize(frame.size() + 8, 0);
    store32(reinterpret_cast<char *>(frame.data()) + 4, 0x02000018u);
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), -1);
}

TEST(NameTable, NamePastTableEndIsCorrupt) {
    Bytes frame = frameWithTable(NodeElement, {{IdElement, 0, "id", 0}});
    store32(reinterpret_cast<char *>(frame.data()) + 24 + 8, 200); // size far past the end
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), -1);
    store32(reinterpret_cast<char *>(frame.data()) + 24 + 8, 0xFFFFFFFFu);
    KVXProtocolIDMap again(nullptr);
    EXPECT_EQ(again.readNameTable(chars(frame), length(frame)), -1);
}

TEST(NameTable, NameWithoutNulIsCorrupt) {
    Bytes frame = frameWithTable(NodeElement, {{IdElement, 0, "id", 0}});
    frame[24 + 12 + 2] = 'x'; // the terminator
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), -1);
    EXPECT_TRUE(ids.names.empty());
}

TEST(NameTable, TableSizedPastTheFrameIsCorrupt) {
    Bytes frame = frameWithTable(NodeElement, {{IdElement, 0, "id", 0}});
    store32(reinterpret_cast<char *>(frame.data()) + 4, 0x02000400u); // 1 KiB table
    KVXProtocolIDMap ids(nullptr);
    EXPECT_EQ(ids.readNameTable(chars(frame), length(frame)), -1);
    EXPECT_TRUE(ids.names.empty());
    EXPECT_EQ(ids.readNameTable(nullptr, 80), -1);
    EXPECT_EQ(ids.readNameTable(chars(frame), 4), -1);
}

TEST(NameTable, OwnFrameWithDamagedRootSizeIsCorrupt) {
    Bytes const frame = workedExampleFrame();
    auto doc = loaded(frame);
    store32(doc->buffer + 16, 0x00100000u); // the root now runs past the frame
    EXPECT_EQ(doc->ids.load(), -1);
    EXPECT_EQ(doc->ids.lookupId(CharArray("id")), 0);
}

TEST(NameTable, WalkReportsEntriesNewestFirst) {
    Bytes const frame = workedExampleFrame();
    NameTableWalk walk(chars(frame), 80);
    NameTableEntry entry;
    ASSERT_TRUE(walk.next(entry));
    EXPECT_EQ(entry.id, IdElement);
    EXPECT_EQ(entry.offset, 40u);
    EXPECT_EQ(entry.text, 52u);
    EXPECT_EQ(entry.textLength, 2u);
    ASSERT_TRUE(walk.next(entry));
    EXPECT_EQ(entry.id, NodeElement);
    EXPECT_EQ(entry.text, 68u);
    EXPECT_FALSE(walk.next(entry));
    EXPECT_FALSE(walk.corrupt());
}

TEST(NameTable, FindEntryMatchesWholeTextOnly) {
    Bytes const frame = workedExampleFrame();
    NameTableEntry found;
    EXPECT_TRUE(findNameTableEntry(chars(frame), 80, CharArray("node"), found));
    EXPECT_EQ(found.id, NodeElement);
    EXPECT_FALSE(findNameTableEntry(chars(frame), 80, CharArray("nod"), found));
    EXPECT_FALSE(findNameTableEntry(chars(frame), 80, CharArray("nodes"), found));
}
