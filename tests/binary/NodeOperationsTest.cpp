// Tests of the node operations of KVXBinaryInternals, driven directly with a
// BinaryPath: exact frame bytes after each edit, the moves of the change
// counter, the id map updates they cause, and refusals on damaged input.
#include "InternalsTestSupport.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/WireFormat.h"

#include <kvx/KVXDefaultMap.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int Packet = 1398;
constexpr int NodeElement = 1008; // "node"
constexpr int IdElement = 1010;   // "id"
constexpr int Restore = 1011;
constexpr int Server = 1012;

unsigned char const FortyTwo[4] = {0x2A, 0, 0, 0};

int appendInt(KVXBinaryInternals &doc, BinaryPath &path, int id, unsigned char const *le) {
    return doc.append(path, id, KindInt, le, 4, false);
}

int appendText(KVXBinaryInternals &doc, BinaryPath &path, int id, unsigned short kind,
               std::string const &text) {
    return doc.append(path, id, kind, text.data(), static_cast<std::uint32_t>(text.size()), true);
}

void up(BinaryPath &path) {
    path.entries.pop_back();
}

} // namespace

TEST(NodeOperations, CreatePacketFrameIsFortyEightBytesExactly) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.used, 8 + 16 + 24);
    Bytes const expected{
        0x98, 0xBA, 0xDC, 0xFE, 0x18, 0x00, 0x00, 0x02, // head: table 24, empty flag clear
        0x76, 0x05, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00, // root 1398, KindStructure, ns 0
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // size 0, padding
        0x76, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1398, table kind 0
        0x07, 0x00, 0x00, 0x00, 'p',  'a',  'c',  'k',  // size 7, "packet"
        'e',  't',  0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // NUL, padding
    };
    EXPECT_EQ(frameOf(doc), expected);
    ASSERT_EQ(path.entries.size(), 1u);
    EXPECT_EQ(path.entries[0].id, Packet);
    EXPECT_EQ(path.entries[0].offset, 8u);
}

TEST(NodeOperations, WorkedExampleFrameIsByteForByte) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    EXPECT_EQ(frameOf(doc), workedExampleFrame());
    ASSERT_EQ(path.entries.size(), 2u);
    EXPECT_EQ(path.entries[1].id, IdElement);
    EXPECT_EQ(path.entries[1].offset, 24u);
}

TEST(NodeOperations, EightByteValueHasLongHeaderSevenAndNineDoNot) {
    struct Case {
        std::string text;
        std::uint32_t valueOffset;
    };
    Case const cases[] = {{"abcdef", 36}, {"abcdefg", 40}, {"abcdefgh", 36}};
    for (Case const &c : cases) {
        KVXBinaryInternals doc;
        BinaryPath path;
        ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
        ASSERT_EQ(appendText(doc, path, IdElement, KindString, c.text), 0);
        Bytes const b = frameOf(doc);
        EXPECT_EQ(read32(b, 32), c.text.size() + 1) << c.text;
        EXPECT_EQ(read32(b, 16), 24u) << c.text; // node size 24 in all three
        EXPECT_EQ(std::memcmp(b.data() + c.valueOffset, c.text.c_str(), c.text.size() + 1), 0)
            << c.text;
        if (c.valueOffset == 40) {
            EXPECT_EQ(read32(b, 36), 0u); // long header padding
        }
    }
}

TEST(NodeOperations, SevenOctetsOfBase64AndLongLongTakeLongHeaders) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    unsigned char const octets[7] = {1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(doc.append(path, IdElement, KindBase64, octets, 7, false), 0);
    Bytes b = frameOf(doc);
    EXPECT_EQ(read32(b, 32), 8u); // seven octets and the counted NUL
    EXPECT_EQ(std::memcmp(b.data() + 40, octets, 7), 0);
    EXPECT_EQ(b[47], 0);
    up(path);
    unsigned char const longValue[8] = {8, 7, 6, 5, 4, 3, 2, 1};
    ASSERT_EQ(doc.append(path, IdElement, KindLongLong, longValue, 8, false), 0);
    b = frameOf(doc);
    EXPECT_EQ(read32(b, 16), 48u); // two children of 24 bytes
    EXPECT_EQ(std::memcmp(b.data() + 48 + 16, longValue, 8), 0);
}

TEST(NodeOperations, ElementWithoutValueTakesSixteenBytes) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    int const before = doc.used;
    ASSERT_EQ(doc.append(path, IdElement, KindUntyped, nullptr, 0, false), 0);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(doc.used, before + 16 + 16); // the node and the entry "id"
    EXPECT_EQ(read32(b, 16), 16u);
    EXPECT_EQ(read16(b, 28), KindUntyped);
    EXPECT_EQ(read32(b, 32), 0u);
    EXPECT_EQ(doc.node(24).nodeSize(), 16u);
}

TEST(NodeOperations, AppendUnderElementWithoutValueMakesItAContainerInPlace) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindUntyped, nullptr, 0, false), 0);
    ASSERT_EQ(doc.append(path, Restore, KindUntyped, nullptr, 0, false), 0);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read16(b, 28), KindStructure);
    EXPECT_EQ(read32(b, 32), 16u);
    EXPECT_EQ(read32(b, 16), 32u);
    EXPECT_EQ(read32(b, 40), static_cast<std::uint32_t>(Restore));
    EXPECT_EQ(path.entries.back().offset, 40u);
}

TEST(NodeOperations, EmptyContainerTakesSixteenBytes) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindStructure, nullptr, 0, false), 0);
    EXPECT_EQ(doc.node(24).nodeSize(), 16u);
    EXPECT_EQ(doc.node(8).size(), 16u);
}

TEST(NodeOperations, LegacyFormatNodeOfSizeFourTakesTwentyFourBytes) {
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame, 0x00000000u); // format 0, a root, no name table
    put32(frame, NodeElement);
    put16(frame, KindStructure);
    put16(frame, 0);
    put32(frame, 0);
    padTo(frame, 24); // legacy node size of an empty container: 16
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.loadFrame(reinterpret_cast<char const *>(frame.data()), 24), 0);
    BinaryPath path;
    path.entries.push_back(PathEntry{NodeElement, 8});
    EXPECT_EQ(doc.insertNode(4, KindInt, 24), 24u);
    EXPECT_EQ(doc.node(24).nodeSize(), 24u);

    KVXBinaryInternals current;
    BinaryPath currentPath;
    ASSERT_EQ(makeDocument(current, NodeElement, currentPath), 0);
    EXPECT_EQ(current.insertNode(4, KindInt, 24), 16u);
}

TEST(NodeOperations, LegacyFormatAppendGrowsAncestorsByLegacySize) {
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame, 0x00000000u);
    put32(frame, NodeElement);
    put16(frame, KindStructure);
    put16(frame, 0);
    put32(frame, 0);
    padTo(frame, 24);
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.loadFrame(reinterpret_cast<char const *>(frame.data()), 24), 0);
    BinaryPath path;
    path.entries.push_back(PathEntry{NodeElement, 8});
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    EXPECT_EQ(doc.node(8).size(), 24u);
    EXPECT_EQ(doc.rootEnd(), 8u + 16u + 24u);
}

TEST(NodeOperations, AppendAtTheVeryEndLeavesStamp) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    std::uint32_t const stamp = doc.stamp;
    int const capacity = doc.capacity;
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    EXPECT_EQ(doc.capacity, capacity);
    EXPECT_EQ(doc.stamp, stamp);
}

TEST(NodeOperations, AppendElsewhereRaisesStampByOne) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindStructure, nullptr, 0, false), 0);
    BinaryPath first = path;
    up(path);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    std::uint32_t const stamp = doc.stamp;
    int const capacity = doc.capacity;
    ASSERT_EQ(appendInt(doc, first, NodeElement, FortyTwo), 0);
    EXPECT_EQ(doc.capacity, capacity);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(doc.node(8).size(), 16u + 16u + 16u);
    EXPECT_EQ(doc.node(24).size(), 16u);
    EXPECT_EQ(doc.node(56).id(), Restore); // the sibling moved behind the new node
}

TEST(NodeOperations, ReallocationRaisesStampByOneAtTheEnd) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    std::uint32_t const stamp = doc.stamp;
    ASSERT_EQ(doc.capacity, 4096);
    std::string const big(5000, 'x');
    ASSERT_EQ(appendText(doc, path, NodeElement, KindString, big), 0);
    EXPECT_EQ(doc.capacity, 4096 + 8192);
    EXPECT_EQ(doc.stamp, stamp + 1);
}

TEST(NodeOperations, ReallocationRaisesStampByOneInTheMiddle) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, NodeElement, KindStructure, nullptr, 0, false), 0);
    BinaryPath first = path;
    up(path);
    ASSERT_EQ(doc.append(path, NodeElement, KindStructure, nullptr, 0, false), 0);
    std::uint32_t const stamp = doc.stamp;
    std::string const big(5000, 'x');
    ASSERT_EQ(appendText(doc, first, NodeElement, KindString, big), 0);
    EXPECT_EQ(doc.capacity, 4096 + 8192);
    EXPECT_EQ(doc.stamp, stamp + 1);
}

TEST(NodeOperations, ResizeWithDeltaZeroNotLastRaisesStamp) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    BinaryPath first = path;
    up(path);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    BinaryPath second = path;
    unsigned char const seven[4] = {7, 0, 0, 0};

    std::uint32_t stamp = doc.stamp;
    ASSERT_EQ(doc.replaceValue(first, KindInt, seven, 4, false), 0);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(doc.node(24).size(), 4u);
    EXPECT_EQ(static_cast<unsigned char>(doc.buffer[36]), 7);

    stamp = doc.stamp;
    ASSERT_EQ(doc.replaceValue(second, KindInt, seven, 4, false), 0);
    EXPECT_EQ(doc.stamp, stamp); // the last node, no reallocation
}

TEST(NodeOperations, ResizeNodeReportsDeltaAndMovesTail) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    up(path);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    int const used = doc.used;
    std::int64_t delta = 99;
    EXPECT_FALSE(doc.resizeNode(8, KindLongLong, 24, delta));
    EXPECT_EQ(delta, 8);
    EXPECT_EQ(doc.used, used + 8);
    EXPECT_EQ(doc.node(24).kind(), KindLongLong);
    EXPECT_EQ(doc.node(48).id(), Restore); // behind the grown node
    EXPECT_FALSE(doc.resizeNode(0, KindUntyped, 24, delta));
    EXPECT_EQ(delta, -8);
    EXPECT_EQ(doc.node(40).id(), Restore);
}

TEST(NodeOperations, RemoveRaisesStampAndKeepsTheName) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    std::uint32_t const stamp = doc.stamp;
    doc.remove(path);
    EXPECT_EQ(doc.stamp, stamp + 1);
    ASSERT_EQ(path.entries.size(), 1u);
    EXPECT_EQ(doc.used, 80 - 16);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 4), 0x02000028u); // the table keeps both entries
    EXPECT_EQ(read32(b, 16), 0u);
    EXPECT_EQ(read32(b, 24), static_cast<std::uint32_t>(IdElement));
    EXPECT_EQ(std::memcmp(b.data() + 36, "id", 3), 0);
    EXPECT_EQ(doc.ids.names.count(IdElement), 1u);
    EXPECT_EQ(doc.ids.lookupId(CharArray("id")), IdElement);
}

TEST(NodeOperations, RemoveOfTheRootLeavesTheEmptyFlagClear) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    doc.remove(path);
    EXPECT_TRUE(path.entries.empty());
    EXPECT_EQ(doc.used, 32);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 4), 0x02000018u);
    EXPECT_EQ(read32(b, 8), static_cast<std::uint32_t>(Packet)); // the entry moved down
}

TEST(NodeOperations, RemoveOfANestedNodeShrinksEveryAncestor) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindStructure, nullptr, 0, false), 0);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    EXPECT_EQ(doc.node(8).size(), 32u);
    doc.remove(path);
    EXPECT_EQ(doc.node(8).size(), 16u);
    EXPECT_EQ(doc.node(24).size(), 0u);
    EXPECT_EQ(doc.frameEnd(), static_cast<std::uint32_t>(doc.used));
}

TEST(NodeOperations, ReplaceValueOfContainerWithValueIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    up(path);
    Bytes const before = frameOf(doc);
    std::uint32_t const stamp = doc.stamp;
    EXPECT_EQ(doc.replaceValue(path, KindString, "x", 1, true), -1);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(doc.stamp, stamp);
}

TEST(NodeOperations, ContainerGivenAnEmptyValueBecomesALeaf) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindStructure, nullptr, 0, false), 0);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    up(path);
    int const used = doc.used;
    ASSERT_EQ(doc.replaceValue(path, KindString, "", 0, true), 0);
    EXPECT_EQ(doc.node(24).kind(), KindString);
    EXPECT_EQ(doc.node(24).size(), 1u);
    EXPECT_EQ(doc.node(24).nodeSize(), 16u);
    EXPECT_EQ(doc.node(8).size(), 16u);
    EXPECT_EQ(doc.used, used - 16);
    EXPECT_EQ(doc.buffer[36], '\0');
    EXPECT_EQ(doc.frameEnd(), static_cast<std::uint32_t>(doc.used));
}

TEST(NodeOperations, ValueGrowingFromSevenToEightBytesTakesLongHeader) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendText(doc, path, IdElement, KindString, "abcdef"), 0);
    Bytes b = frameOf(doc);
    EXPECT_EQ(std::memcmp(b.data() + 36, "abcdef", 7), 0);
    ASSERT_EQ(doc.replaceValue(path, KindString, "abcdefg", 7, true), 0);
    b = frameOf(doc);
    EXPECT_EQ(read32(b, 32), 8u);
    EXPECT_EQ(read32(b, 36), 0u);
    EXPECT_EQ(std::memcmp(b.data() + 40, "abcdefg", 8), 0);
    EXPECT_EQ(read32(b, 16), 24u); // node size unchanged
}

TEST(NodeOperations, VersionAttributeWriteSetsDocumentVersion) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    std::uint32_t const table = nameTableSize(doc.buffer);
    doc.ids.version = 1;
    ASSERT_EQ(appendText(doc, path, 101, KindString, "4.5.0"), 0);
    EXPECT_EQ(doc.ids.version, 40500);
    EXPECT_EQ(nameTableSize(doc.buffer), table); // attributes have no entry
    ASSERT_EQ(doc.replaceValue(path, KindString, "4.5", 3, true), 0);
    EXPECT_EQ(doc.ids.version, 405);
    ASSERT_EQ(doc.replaceValue(path, KindString, "", 0, true), 0);
    EXPECT_EQ(doc.ids.version, 0);
    up(path);
    ASSERT_EQ(appendText(doc, path, 102, KindString, "4.0.0"), 0);
    EXPECT_EQ(doc.ids.version, 0); // other attributes leave it alone
}

TEST(NodeOperations, AppendOfANamelessElementKeepsTheNodeAndFails) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    int const used = doc.used;
    EXPECT_EQ(doc.append(path, -7, KindUntyped, nullptr, 0, false), -1);
    EXPECT_EQ(doc.used, used + 16);
    ASSERT_EQ(path.entries.size(), 2u);
    EXPECT_EQ(path.entries[1].id, -7);
}

TEST(NodeOperations, DynamicIdsAreListedNewestFirst) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    EXPECT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    EXPECT_EQ(doc.ids.intern(CharArray("y"), TableElement), -3);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 24), 0xFFFFFFFDu);
    EXPECT_EQ(std::memcmp(b.data() + 36, "y", 2), 0);
    EXPECT_EQ(read32(b, 40), 0xFFFFFFFEu);
    EXPECT_EQ(std::memcmp(b.data() + 52, "x", 2), 0);
    EXPECT_EQ(read32(b, 56), static_cast<std::uint32_t>(NodeElement));
    EXPECT_EQ(read32(b, 4), 0x02000000u | (16 + 16 + 24));
}

TEST(NodeOperations, NamespaceAndElementDrawOnOneCounter) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    EXPECT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    EXPECT_EQ(doc.ids.intern(CharArray("urn:b"), TableNamespace), 0xFFFD);
    EXPECT_EQ(doc.ids.intern(CharArray("t"), TableType), 0xFFFC);
}

TEST(NodeOperations, DynamicNamespaceIsFFFEInNodeAnd65534InEntry) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    int const ns = doc.ids.intern(CharArray("urn:a"), TableNamespace);
    ASSERT_EQ(ns, 65534);
    EXPECT_EQ(doc.setNamespace(path, ns), 0);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read16(b, 14), 0xFFFE);
    EXPECT_EQ(read32(b, 24), 65534u); // the entry's id
    EXPECT_EQ(read32(b, 28), static_cast<std::uint32_t>(TableNamespace));
    EXPECT_EQ(std::memcmp(b.data() + 36, "urn:a", 6), 0);
    EXPECT_EQ(doc.currentNamespace(path), 0xFFFE);
}

TEST(NodeOperations, SevenCharacterNameEntryHasItsTextAtSixteen) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.addNameEntry(-2, TableElement, "restore", 7), 0);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 24 + 8), 8u);
    EXPECT_EQ(read32(b, 24 + 12), 0u);
    EXPECT_EQ(std::memcmp(b.data() + 24 + 16, "restore", 8), 0);
    EXPECT_EQ(read32(b, 48), static_cast<std::uint32_t>(NodeElement)); // older entry behind
}

TEST(NodeOperations, AddNameEntryRaisesStampOnlyThroughReallocation) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    std::uint32_t const stamp = doc.stamp;
    ASSERT_EQ(doc.addNameEntry(-2, TableElement, "abc", 3), 0);
    EXPECT_EQ(doc.stamp, stamp);
    std::string const big(5000, 'n');
    ASSERT_EQ(doc.addNameEntry(-3, TableElement, big.data(), 5000), 0);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(doc.frameEnd(), static_cast<std::uint32_t>(doc.used));
}

TEST(NodeOperations, SetNamespaceZeroClearsAndReportsFailure) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.setNamespace(path, 205), 0);
    EXPECT_EQ(doc.node(8).ns(), 205);
    EXPECT_EQ(doc.setNamespace(path, 0), -1);
    EXPECT_EQ(doc.node(8).ns(), 0);
    BinaryPath empty;
    EXPECT_EQ(doc.setNamespace(empty, 205), -1);
}

TEST(NodeOperations, SetNamespaceOfVocabularyIdWritesNamespaceEntry) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.setNamespace(path, 205), 0);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 24), 205u);
    EXPECT_EQ(read32(b, 28), static_cast<std::uint32_t>(TableNamespace));
    CharArray const uri = KVXDefaultMap::findNSID(205);
    EXPECT_EQ(read32(b, 32), uri.length + 1);
}

TEST(NodeOperations, NewNodeTakesParentNamespaceUnlessOneIsSaved) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.setNamespace(path, 205), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    EXPECT_EQ(doc.currentNamespace(path), 205);
    up(path);
    path.namespaces.push_back(206);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    EXPECT_EQ(doc.currentNamespace(path), 206);
    BinaryPath empty;
    EXPECT_EQ(doc.currentNamespace(empty), 0);
}

TEST(NodeOperations, SetKindOnPlainContainerRecordsTheType) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    EXPECT_EQ(doc.setKind(path, 101), 0);
    EXPECT_EQ(doc.node(8).kind(), 101);
    Bytes const b = frameOf(doc);
    EXPECT_EQ(read32(b, 24), 101u);
    EXPECT_EQ(read32(b, 28), static_cast<std::uint32_t>(TableType));
    EXPECT_EQ(doc.ids.types.count(101), 1u);
}

TEST(NodeOperations, SetKindOnContainerWithNamespaceChangesNothing) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.setNamespace(path, 205), 0);
    Bytes const before = frameOf(doc);
    EXPECT_EQ(doc.setKind(path, 101), 0);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(doc.node(8).kind(), KindStructure);
}

TEST(NodeOperations, SetKindOnTypedContainerKeepsTheFirstType) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.setKind(path, 101), 0);
    Bytes const before = frameOf(doc);
    EXPECT_EQ(doc.setKind(path, 102), 0);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(doc.node(8).kind(), 101);
}

TEST(NodeOperations, SetKindOfValueKindIdsFails) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    for (int id : {0, 1, 50, 100})
        EXPECT_EQ(doc.setKind(path, id), -1) << id;
    EXPECT_EQ(frameOf(doc), before);
    BinaryPath empty;
    EXPECT_EQ(doc.setKind(empty, 101), -1);
}

TEST(NodeOperations, SetKindOfUnnamedTypeWritesKindAndFails) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    EXPECT_EQ(doc.setKind(path, -2), -1);
    EXPECT_EQ(doc.node(8).kind(), 0xFFFE);
}

TEST(NodeOperations, SetKindTurnsElementWithoutValueIntoTypedContainer) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.append(path, IdElement, KindUntyped, nullptr, 0, false), 0);
    EXPECT_EQ(doc.setKind(path, 101), 0);
    EXPECT_EQ(doc.node(24).kind(), 101);
    EXPECT_EQ(doc.node(24).nodeSize(), 16u);
    EXPECT_EQ(doc.node(8).size(), 16u);
}

// Safe results on input outside the contract.

TEST(NodeOperations, AppendUnderTypedLeafIsRefusedAndFrameKept) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    Bytes const before = frameOf(doc);
    std::uint32_t const stamp = doc.stamp;
    EXPECT_EQ(appendInt(doc, path, Restore, FortyTwo), -1);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(doc.stamp, stamp);
    EXPECT_EQ(path.entries.size(), 2u);
}

TEST(NodeOperations, AppendUnderElementWithTextIsRefusedAndFrameKept) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendText(doc, path, IdElement, KindUntyped, "text"), 0);
    Bytes const before = frameOf(doc);
    EXPECT_EQ(appendInt(doc, path, Restore, FortyTwo), -1);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(path.entries.size(), 2u);
}

TEST(NodeOperations, AppendUnderElementWithEmptyTextMakesItAContainerInPlace) {
    // "<cookie></cookie>" reads as KindUntyped with only its NUL: its node size
    // is that of an empty container, so it takes a child where it stands.
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendText(doc, path, IdElement, KindUntyped, ""), 0);
    std::uint32_t const element = path.entries.back().offset;
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    Bytes const frame = frameOf(doc);
    EXPECT_EQ(read16(frame, element + 4), KindStructure);
    EXPECT_EQ(read32(frame, element + 8), 16u);
    EXPECT_EQ(path.entries.back().offset, element + 16);
    EXPECT_EQ(read32(frame, element + 16), static_cast<std::uint32_t>(Restore));
    EXPECT_EQ(read32(frame, 16), 32u); // the root holds the container of node size 32
}

TEST(NodeOperations, AppendAtEmptyPathOfFrameWithRootIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    BinaryPath empty;
    EXPECT_EQ(doc.append(empty, IdElement, KindStructure, nullptr, 0, false), -1);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_TRUE(empty.entries.empty());
}

TEST(NodeOperations, TypedLeafIntoEmptyFrameIsRefused) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    std::uint32_t const stamp = doc.stamp;
    BinaryPath empty;
    EXPECT_EQ(appendInt(doc, empty, IdElement, FortyTwo), -1);
    EXPECT_EQ(doc.used, 8);
    EXPECT_EQ(frameFlags(doc.buffer), FreshFlags);
    EXPECT_EQ(doc.stamp, stamp);
    EXPECT_TRUE(empty.entries.empty());
}

TEST(NodeOperations, ElementIntoEmptyFrameOpensTheRoot) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    BinaryPath empty;
    ASSERT_EQ(doc.append(empty, IdElement, KindUntyped, nullptr, 0, false), 0);
    EXPECT_FALSE(frameIsEmpty(doc.buffer));
    EXPECT_EQ(doc.rootEnd(), 24u);
}

TEST(NodeOperations, InsertNodeIntoTheNameTableIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    EXPECT_EQ(doc.insertNode(4, KindInt, 32), 0u);
    EXPECT_EQ(doc.insertNode(4, KindInt, 4), 0u);
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, NameTablePastItsFieldWidthIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    // 24 bytes of table ("node") + 16,777,168 = 16,777,192.
    std::string const huge(16777155, 'h');
    ASSERT_EQ(doc.addNameEntry(-2, TableElement, huge.data(), 16777155u), 0);
    EXPECT_EQ(nameTableSize(doc.buffer), 16777192u);
    ASSERT_EQ(doc.addNameEntry(-3, TableElement, "ab", 2), 0); // exactly 16,777,208
    EXPECT_EQ(nameTableSize(doc.buffer), 16777208u);
    EXPECT_EQ(frameFormat(doc.buffer), FormatCurrent);
    Bytes const before = frameOf(doc);
    EXPECT_EQ(doc.addNameEntry(-4, TableElement, "cd", 2), -1);
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, GrowthPastIntMaxIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    int const capacity = doc.capacity;
    char const dummy[1] = {0};
    EXPECT_EQ(doc.append(path, IdElement, KindString, dummy, 0x7FFFF000u, false), -1);
    EXPECT_EQ(doc.append(path, IdElement, KindString, dummy, 0xFFFFFFF0u, false), -1);
    EXPECT_EQ(doc.append(path, IdElement, KindString, dummy, 0xFFFFFFFFu, true), -1);
    EXPECT_EQ(doc.insertNode(0xFFFFFFFFu, KindString, 24), 0u);
    std::int64_t delta = 0;
    EXPECT_TRUE(doc.resizeNode(0x7FFFFFF0u, KindString, 8, delta));
    EXPECT_EQ(doc.capacity, capacity);
    EXPECT_EQ(frameOf(doc), before);
    EXPECT_EQ(path.entries.size(), 1u);
}

TEST(NodeOperations, DamagedNodeSizeStopsEveryMove) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    BinaryPath first = path;
    up(path);
    ASSERT_EQ(appendInt(doc, path, Restore, FortyTwo), 0);
    store32(doc.buffer + 24 + 8, 0x00FFFFFFu); // the first child now claims 16 MiB
    Bytes const before = frameOf(doc);
    unsigned char const seven[4] = {7, 0, 0, 0};
    EXPECT_EQ(doc.replaceValue(first, KindInt, seven, 4, false), -1);
    EXPECT_EQ(appendInt(doc, first, Server, seven), -1);
    std::int64_t delta = 5;
    EXPECT_TRUE(doc.resizeNode(4, KindInt, 24, delta));
    EXPECT_EQ(delta, 0);
    EXPECT_EQ(doc.setNamespace(first, 205), -1);
    EXPECT_EQ(doc.setKind(first, 101), -1);
    EXPECT_EQ(frameOf(doc), before);
    std::uint32_t const stamp = doc.stamp;
    doc.remove(first);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(first.entries.size(), 1u);
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, TableSizePastUsedStopsEveryMove) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    store32(doc.buffer + 4, 0x02001000u); // the head claims a 4 KiB table
    Bytes const before = frameOf(doc);
    EXPECT_EQ(doc.replaceValue(path, KindInt, FortyTwo, 4, false), -1);
    EXPECT_EQ(doc.addNameEntry(-2, TableElement, "x", 1), -1);
    up(path);
    EXPECT_EQ(appendInt(doc, path, Restore, FortyTwo), -1);
    EXPECT_EQ(doc.insertNode(4, KindInt, 24), 0u);
    BinaryPath child = path;
    child.entries.push_back(PathEntry{IdElement, 24});
    doc.remove(child);
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, PathOffsetOutsideTheRootIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    BinaryPath stray;
    stray.entries.push_back(PathEntry{NodeElement, 4000});
    EXPECT_EQ(appendInt(doc, stray, IdElement, FortyTwo), -1);
    EXPECT_EQ(doc.replaceValue(stray, KindInt, FortyTwo, 4, false), -1);
    EXPECT_EQ(doc.setNamespace(stray, 205), -1);
    EXPECT_EQ(doc.currentNamespace(stray), 0);
    doc.remove(stray);
    EXPECT_TRUE(stray.entries.empty());
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, ValueFromTheDocumentItselfSurvivesReallocation) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    std::string const big(3000, 'q');
    ASSERT_EQ(appendText(doc, path, NodeElement, KindString, big), 0);
    up(path);
    // A value that lies in the frame being edited, copied to a new child with a
    // reallocation on the way.
    char const *const own = doc.buffer + 24 + 12;
    ASSERT_EQ(doc.append(path, NodeElement, KindString, own, 3000, true), 0);
    binary::Node const copy = doc.node(path.entries.back().offset);
    EXPECT_EQ(copy.size(), 3001u);
    EXPECT_EQ(std::string(copy.value(), 3000), big);
}

TEST(NodeOperations, SetKindThatWouldChangeTheNodeSizeIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(appendInt(doc, path, IdElement, FortyTwo), 0);
    Bytes const before = frameOf(doc);
    // A 4-byte value takes 16 bytes as a leaf but would take 24 under a type id.
    EXPECT_EQ(doc.setKind(path, 101), -1);
    EXPECT_EQ(frameOf(doc), before);
}

TEST(NodeOperations, RemoveWithEmptyPathOnlyRaisesStamp) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    Bytes const before = frameOf(doc);
    std::uint32_t const stamp = doc.stamp;
    BinaryPath empty;
    doc.remove(empty);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(frameOf(doc), before);
}

namespace {

// One record as the text parser builds it: an element that gets children, a
// leaf with text under it, and an element closed with its own text. Ids walk
// the vocabulary so that new name table entries keep coming.
struct Builder {
    KVXBinaryInternals doc;
    BinaryPath path;
};

void buildByAppend(Builder &b, int record) {
    int const container = 1001 + record % 150;
    int const leaf = 1151 + record % 200;
    std::string const text = "value-" + std::to_string(record * 7919 % 100000);
    // The two steps of the format: appended empty, then given the value.
    ASSERT_EQ(b.doc.append(b.path, container, KindUntyped, nullptr, 0, false), 0);
    ASSERT_EQ(b.doc.append(b.path, leaf, KindUntyped, nullptr, 0, false), 0);
    ASSERT_EQ(b.doc.replaceValue(b.path, KindUntyped, text.data(),
                                 static_cast<std::uint32_t>(text.size()), true),
              0);
    up(b.path);
    up(b.path);
}

void buildAtEnd(Builder &b, int record) {
    int const container = 1001 + record % 150;
    int const leaf = 1151 + record % 200;
    std::string const text = "value-" + std::to_string(record * 7919 % 100000);
    ASSERT_EQ(b.doc.appendAtEnd(b.path, container, KindUntyped, nullptr, 0, false), 0);
    // The name first, as the parser records it before a one-step leaf.
    ASSERT_TRUE(b.doc.ids.recordsName(leaf));
    ASSERT_EQ(
        b.doc.appendTextAtEnd(b.path, leaf, text.data(), static_cast<std::uint32_t>(text.size())),
        0);
    b.doc.settleAtEnd(b.path.entries.back().offset);
    up(b.path);
}

} // namespace

TEST(NodeOperations, BuildingAtTheEndGivesTheBytesGrowthAndStampOfAppend) {
    Builder general;
    Builder atEnd;
    ASSERT_EQ(makeDocument(general.doc, Packet, general.path), 0);
    ASSERT_EQ(makeDocument(atEnd.doc, Packet, atEnd.path), 0);
    // Enough records for several reallocations and some 350 name entries, all
    // taken into the room that appendAtEnd opens behind the root section.
    for (int record = 0; record < 900; ++record) {
        buildByAppend(general, record);
        buildAtEnd(atEnd, record);
        if (record % 150 == 149) {
            EXPECT_EQ(atEnd.doc.frameLength(), general.doc.used) << record;
            EXPECT_EQ(atEnd.doc.capacity, general.doc.capacity) << record;
            EXPECT_EQ(atEnd.doc.stamp, general.doc.stamp) << record;
        }
    }
    EXPECT_GT(atEnd.doc.room, 0u);
    atEnd.doc.settleAtEnd(RootOffset);
    atEnd.doc.closeRoom();
    EXPECT_EQ(atEnd.doc.room, 0u);
    EXPECT_EQ(frameOf(atEnd.doc), frameOf(general.doc));
    EXPECT_EQ(atEnd.doc.capacity, general.doc.capacity);
    EXPECT_EQ(atEnd.doc.stamp, general.doc.stamp);
    EXPECT_EQ(atEnd.doc.ids.names.size(), general.doc.ids.names.size());
    EXPECT_EQ(atEnd.doc.ids.lookupName(1151).str(), "recursively");
}

TEST(NodeOperations, OpenRoomClosesBeforeAMoveAndNamesStayFound) {
    Builder general;
    Builder atEnd;
    ASSERT_EQ(makeDocument(general.doc, Packet, general.path), 0);
    ASSERT_EQ(makeDocument(atEnd.doc, Packet, atEnd.path), 0);
    for (int record = 0; record < 20; ++record) {
        buildByAppend(general, record);
        buildAtEnd(atEnd, record);
    }
    ASSERT_GT(atEnd.doc.room, 0u);
    // A name recorded while the room was open reads from the table at the top.
    EXPECT_EQ(atEnd.doc.ids.lookupName(-2).length, 0u);
    EXPECT_EQ(atEnd.doc.ids.intern(CharArray("restore_dynamic"), TableElement), -2);
    EXPECT_EQ(general.doc.ids.intern(CharArray("restore_dynamic"), TableElement), -2);
    EXPECT_EQ(atEnd.doc.ids.lookupName(-2).str(), "restore_dynamic");
    // A removal moves bytes: it closes the room first.
    BinaryPath first = atEnd.path;
    first.entries.push_back(PathEntry{1001, 24});
    BinaryPath firstGeneral = general.path;
    firstGeneral.entries.push_back(PathEntry{1001, 24});
    atEnd.doc.remove(first);
    general.doc.remove(firstGeneral);
    EXPECT_EQ(atEnd.doc.room, 0u);
    EXPECT_EQ(frameOf(atEnd.doc), frameOf(general.doc));
    EXPECT_EQ(atEnd.doc.ids.lookupName(-2).str(), "restore_dynamic");
}

TEST(NodeOperations, SettleAtEndGivesAnOpenContainerTheSizeToTheRootEnd) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    ASSERT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, nullptr, 0, false), 0);
    std::uint32_t const node = path.entries.back().offset;
    ASSERT_EQ(doc.appendAtEnd(path, IdElement, KindInt, FortyTwo, 4, false), 0);
    up(path);
    // Only the root is kept current while the node is open.
    EXPECT_EQ(doc.node(node).size(), 0u);
    EXPECT_EQ(doc.node(8).size(), 32u);
    doc.settleAtEnd(node);
    EXPECT_EQ(doc.node(node).size(), 16u);
    EXPECT_EQ(doc.node(node).kind(), KindStructure);
    // A leaf is left as it is.
    doc.settleAtEnd(node + 16);
    EXPECT_EQ(doc.node(node + 16).size(), 4u);
    doc.closeRoom();
}
