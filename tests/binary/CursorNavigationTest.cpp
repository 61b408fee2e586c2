// Tests of cursor navigation: seekRoot, seekUp, seek by id and by path with
// its exact syntax, seekPresence, firstChild and nextSibling with their
// settle-then-step rule, curName, and walks over frames with damaged sizes.
#include "binary/CursorTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <gtest/gtest.h>

using namespace cursortest;
using KVX::KVXBinary;
using KVX::KVXBinaryIterator;
using KVX::PathEntry;

namespace {

// packet @8
//   attribute 102 "x1"  @24
//   node @40 { id=1 @56, id=2 @72, restore=3 @88 }
//   id=10 @104, node(empty) @120, node(empty) @136, restore=11 @152
Bytes navigationFrame() {
    return FrameBuilder()
        .open(Packet)
        .text(102, 2, "x1")
        .open(NodeId)
        .int32(IdId, 1)
        .int32(IdId, 2)
        .int32(Restore, 3)
        .close()
        .int32(IdId, 10)
        .empty(NodeId)
        .empty(NodeId)
        .int32(Restore, 11)
        .close()
        .finish();
}

class CursorNavigation : public ::testing::Test {
protected:
    CursorNavigation() : message(loaded(navigationFrame())), cursor(uncounted(*message)) {}

    int valueHere() {
        int value = -12345;
        EXPECT_EQ(0, cursor->getValue(value, 0));
        return value;
    }

    Message message;
    Cursor cursor;
};

} // namespace

TEST_F(CursorNavigation, SeekRootShortensThePathAndKeepsTheNamespaceStack) {
    cursor->saveNamespace(205);
    ASSERT_EQ(0, cursor->seek("node/id"));
    ASSERT_EQ(3u, depthOf(*cursor));
    EXPECT_EQ(0, cursor->seekRoot());
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(8u, offsetOf(*cursor));
    ASSERT_EQ(1u, cursor->binaryPath().namespaces.size());
    EXPECT_EQ(205, cursor->binaryPath().namespaces[0]);
}

TEST_F(CursorNavigation, SeekUpAtRootReturnsZeroAndEmptiesThePath) {
    EXPECT_EQ(0, cursor->seekUp());
    EXPECT_TRUE(cursor->binaryPath().entries.empty());
    EXPECT_EQ(0, cursor->seekUp());
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(1, recorder.fired());
    EXPECT_EQ(-1, cursor->seek(IdId));
    EXPECT_EQ(2, recorder.fired());
}

TEST_F(CursorNavigation, SeekRootAfterSeekUpReRootsOnceTheDocumentChanged) {
    Cursor first = counted(*message);
    Cursor second = counted(*message);
    EXPECT_EQ(0, first->seekUp());
    EXPECT_EQ(0, first->seekRoot()); // nothing changed: validation is one comparison
    EXPECT_TRUE(first->binaryPath().entries.empty());
    ASSERT_EQ(0, second->seek(Restore));
    ASSERT_EQ(0, second->deleteFromChild());
    EXPECT_EQ(0, first->seekRoot());
    ASSERT_EQ(1u, depthOf(*first));
    EXPECT_EQ(Packet, first->curID());
}

TEST_F(CursorNavigation, SeekZeroSucceedsWithoutMoving) {
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->seek(0));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, FirstChildZeroBehavesAsSeekZeroNotAsFirstChild) {
    EXPECT_EQ(0, cursor->firstChild(0));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(0, cursor->firstChild());
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekEmptyStringBehavesAsSeekZero) {
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->seek(std::string()));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekSlashGoesToTheRoot) {
    ASSERT_EQ(0, cursor->seek("node/restore"));
    EXPECT_EQ(88u, offsetOf(*cursor));
    EXPECT_EQ(0, cursor->seek("/"));
    EXPECT_EQ(1u, depthOf(*cursor));
}

TEST_F(CursorNavigation, SeekDoubleSlashGoesToTheRootAndIgnoresTheRest) {
    ASSERT_EQ(0, cursor->seek("node/id"));
    EXPECT_EQ(0, cursor->seek("//node"));
    EXPECT_EQ(1u, depthOf(*cursor));
}

TEST_F(CursorNavigation, SeekTrailingSlashStopsOnTheSegment) {
    EXPECT_EQ(0, cursor->seek("node/"));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekDoubledSlashInsideStopsOnTheFirstSegment) {
    EXPECT_EQ(0, cursor->seek("node//id"));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekWithMissingSegmentRestoresThePosition) {
    EXPECT_EQ(-1, cursor->seek("node/value"));
    EXPECT_EQ(1u, depthOf(*cursor));
    ASSERT_EQ(0, cursor->seek("node/id"));
    cursor->saveNamespace(205);
    EXPECT_EQ(-1, cursor->seek("/node/value"));
    EXPECT_EQ(3u, depthOf(*cursor));
    EXPECT_EQ(56u, offsetOf(*cursor));
    EXPECT_EQ(1u, cursor->binaryPath().namespaces.size());
}

TEST_F(CursorNavigation, SeekAbsolutePathStartsAtTheRoot) {
    ASSERT_EQ(0, cursor->seek("node/id"));
    EXPECT_EQ(0, cursor->seek("/id"));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(104u, offsetOf(*cursor));
    EXPECT_EQ(10, valueHere());
}

TEST_F(CursorNavigation, SeekUnknownNameFailsAndAddsNothingToTheTable) {
    Bytes before = frameOf(*message);
    EXPECT_EQ(-1, cursor->seek("nosuchelementanywhere"));
    EXPECT_EQ(-1, cursor->seek("value")); // in the vocabulary, not in the document
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(before, frameOf(*message));
}

TEST_F(CursorNavigation, SeekFindsTheFirstChildOfTheId) {
    EXPECT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(104u, offsetOf(*cursor));
    EXPECT_EQ(IdId, cursor->curID());
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(56u, offsetOf(*cursor));
    EXPECT_EQ(1, valueHere());
}

TEST_F(CursorNavigation, SeekAttributeIdFindsTheAttributeButFirstChildSkipsIt) {
    EXPECT_EQ(0, cursor->seek(102));
    EXPECT_EQ(24u, offsetOf(*cursor));
    EXPECT_EQ(102, cursor->curID());
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(0, cursor->firstChild());
    EXPECT_EQ(40u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->seek(102)); // node has no attributes
}

TEST(CursorNavigationShapes, FirstChildFailsOnOnlyAttributesAndOnALeaf) {
    Bytes frame = FrameBuilder()
                      .open(Packet)
                      .open(Server)
                      .int32(103, 4)
                      .text(109, 2, "u")
                      .close()
                      .int32(IdId, 5)
                      .close()
                      .finish();
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->seek(Server));
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(0, cursor->seek(103)); // reachable by id
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(IdId, cursor->curID());
}

TEST_F(CursorNavigation, NextSiblingWalksElementsAndFailsOnTheLast) {
    ASSERT_EQ(0, cursor->firstChild());
    std::vector<std::uint32_t> seen{offsetOf(*cursor)};
    while (cursor->nextSibling() == 0)
        seen.push_back(offsetOf(*cursor));
    EXPECT_EQ((std::vector<std::uint32_t>{40, 104, 120, 136, 152}), seen);
    EXPECT_EQ(152u, offsetOf(*cursor)); // the failed call left it on the last
    EXPECT_EQ(Restore, cursor->curID());
}

TEST_F(CursorNavigation, NextSiblingByIdFromAnotherIdLandsOnTheSecondFollowing) {
    ASSERT_EQ(0, cursor->seek(IdId)); // @104; node follows @120 and @136
    EXPECT_EQ(0, cursor->nextSibling(NodeId));
    EXPECT_EQ(136u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling(NodeId));
    EXPECT_EQ(136u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, NextSiblingByIdWalksARunFromFirstChildById) {
    ASSERT_EQ(0, cursor->seek(NodeId));
    ASSERT_EQ(0, cursor->firstChild(IdId));
    EXPECT_EQ(1, valueHere());
    EXPECT_EQ(0, cursor->nextSibling(IdId));
    EXPECT_EQ(2, valueHere());
    EXPECT_EQ(-1, cursor->nextSibling(IdId));
}

TEST_F(CursorNavigation, NextSiblingFromAnAttributeSkipsTheFirstFollowingElement) {
    ASSERT_EQ(0, cursor->seek(102));
    EXPECT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(104u, offsetOf(*cursor)); // node @40 was stepped over
}

TEST_F(CursorNavigation, NextSiblingZeroStaysAndAttributeIdsNeverMatch) {
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->nextSibling(0));
    EXPECT_EQ(40u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling(102));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, NextSiblingAtTheRootAssertsAndFails) {
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor->nextSibling());
    EXPECT_EQ(1, recorder.fired());
    EXPECT_EQ(-1, cursor->nextSibling(NodeId));
    EXPECT_EQ(2, recorder.fired());
    EXPECT_EQ(1u, depthOf(*cursor));
}

TEST_F(CursorNavigation, ByNameFormsLookTheNameUp) {
    EXPECT_EQ(0, cursor->firstChild("node"));
    EXPECT_EQ(40u, offsetOf(*cursor));
    EXPECT_EQ(0, cursor->nextSibling("node"));
    EXPECT_EQ(120u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling("nosuchname"));
    EXPECT_EQ(120u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->firstChild("nosuchname"));
    EXPECT_EQ(120u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekPresenceOfTwoSegmentsLeavesTheCursorOnTheFirst) {
    EXPECT_EQ(0, cursor->seekPresence("node/id"));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(40u, offsetOf(*cursor));
}

TEST_F(CursorNavigation, SeekPresenceOfOneSegmentOrIdLeavesTheCursorInPlace) {
    EXPECT_EQ(0, cursor->seekPresence("node"));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(0, cursor->seekPresence(IdId));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(0, cursor->seekPresence(0));
    EXPECT_EQ(0, cursor->seekPresence(std::string()));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(-1, cursor->seekPresence("value"));
    EXPECT_EQ(-1, cursor->seekPresence(Name));
    EXPECT_EQ(1u, depthOf(*cursor));
}

TEST_F(CursorNavigation, CurNameGivesTheNameOfTheIdOrEmpty) {
    EXPECT_EQ("packet", cursor->curName());
    ASSERT_EQ(0, cursor->seek("node/restore"));
    EXPECT_EQ("restore", cursor->curName());
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->seek(102));
    EXPECT_EQ("", cursor->curName());
}

TEST(CursorNavigationNames, CurNameOfADynamicIdGivesItsName) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild("my-own-element"));
    EXPECT_EQ(-2, cursor->curID());
    EXPECT_EQ("my-own-element", cursor->curName());
}

TEST(CursorNavigationNames, PathSegmentLongerThan255CharactersIsRefused) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    std::string longest(255, 'q');
    ASSERT_EQ(0, cursor->newChild(longest));
    ASSERT_EQ(0, cursor->seekRoot());
    EXPECT_EQ(0, cursor->seek(longest));
    ASSERT_EQ(0, cursor->seekRoot());
    // 256 characters: refused, not cut to the 255 that would match.
    EXPECT_EQ(-1, cursor->seek(longest + "q"));
    EXPECT_EQ(1u, depthOf(*cursor));
    ASSERT_EQ(0, cursor->seek(longest));
    EXPECT_EQ(-1, cursor->seek("/" + longest + "/" + std::string(300, 'r')));
    EXPECT_EQ(2u, depthOf(*cursor)); // unchanged, not shortened to the root
}

TEST(CursorNavigationFormats, LegacyFrameWalksWithLegacyNodeSizes) {
    // Format byte 0: a 4-byte value takes 24 bytes.
    Bytes frame(72, 0);
    auto put32 = [&frame](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i)
            frame[at + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    put32(0, 0xFEDCBA98u);
    put32(4, 0x00000000u);
    put32(8, Packet);
    put32(12, 50);
    put32(16, 48);
    put32(24, IdId);
    put32(28, 1);
    put32(32, 4);
    put32(36, 5);
    put32(48, Restore);
    put32(52, 1);
    put32(56, 4);
    put32(60, 6);
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(24u, offsetOf(*cursor));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(5, value);
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(48u, offsetOf(*cursor));
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(6, value);
    EXPECT_EQ(-1, cursor->nextSibling());
}

// --- frames with damaged inner sizes ---------------------------------------

TEST(CursorNavigationDamaged, NodeWithHugeSizeEndsItsSpan) {
    FrameBuilder builder;
    builder.open(Packet);
    std::size_t damaged = builder.here();
    builder.open(NodeId).close().int32(IdId, 7).int32(Restore, 8).close();
    builder.patchSize(damaged, 0xFFFFFFF0u);
    Message message = loaded(builder.finish());
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(24u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling()); // its end lies past the parent's
    EXPECT_EQ(24u, offsetOf(*cursor));
    // Its own children are clamped to the root: id and restore show up there.
    EXPECT_EQ(0, cursor->firstChild());
    EXPECT_EQ(40u, offsetOf(*cursor));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(7, value);
    ASSERT_EQ(0, cursor->seekRoot());
    EXPECT_EQ(-1, cursor->seek(Restore)); // hidden behind the damaged node
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorNavigationDamaged, ChildHeaderStraddlingTheRootEndIsNoNode) {
    // Root of size 4: its section ends at 32, and a header at 24 would need 36.
    Bytes frame(32, 0);
    auto put32 = [&frame](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i)
            frame[at + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    put32(0, 0xFEDCBA98u);
    put32(4, 0x02000000u);
    put32(8, Packet);
    put32(12, 50);
    put32(16, 4);
    put32(24, IdId);
    put32(28, 1);
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(-1, cursor->seek(IdId));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorNavigationDamaged, ContainerRunningPastItsParentIsClampedToIt) {
    // The root says 32 bytes of children and ends at 56; node @24 claims 48
    // bytes, which would take in a fake node @56 inside the name table area.
    Bytes frame(88, 0);
    auto put32 = [&frame](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i)
            frame[at + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    put32(0, 0xFEDCBA98u);
    put32(4, 0x02000000u | 32u); // 32 bytes of name table behind the root
    put32(8, Packet);
    put32(12, 50);
    put32(16, 32);
    put32(24, NodeId);
    put32(28, 50);
    put32(32, 48);
    put32(40, IdId);
    put32(44, 1);
    put32(48, 4);
    put32(52, 1);
    put32(56, Restore); // not part of the root section
    put32(60, 1);
    put32(64, 4);
    put32(68, 99);
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(-1, cursor->seek(Restore));
    EXPECT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(-1, cursor->nextSibling());
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(-1, cursor->nextSibling());
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorNavigationDamaged, ChildrenAreBoundByTheirNodeAndItsParentOnly) {
    // packet @8 > node @24 > server @40 > client @56 > id=7 @72, then restore=9
    // @88 under packet. node's size is cut so that it ends at 72: server and
    // client, which it holds, both run past it, and id lies behind its end.
    FrameBuilder builder;
    builder.open(Packet);
    std::size_t node = builder.here();
    builder.open(NodeId).open(Server).open(Client).int32(IdId, 7).close().close().close();
    builder.int32(Restore, 9).close();
    builder.patchSize(node, 32);
    Message message = loaded(builder.finish());
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    ASSERT_EQ(0, cursor->firstChild());
    ASSERT_EQ(24u, offsetOf(*cursor));
    ASSERT_EQ(0, cursor->firstChild());
    ASSERT_EQ(40u, offsetOf(*cursor));
    // server's children end where node does: its parent bounds them.
    ASSERT_EQ(0, cursor->firstChild());
    ASSERT_EQ(56u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling());
    // client's children are bound by client and server, not by node further up:
    // id is found, inside the root section, and read in place.
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(72u, offsetOf(*cursor));
    EXPECT_EQ(5u, depthOf(*cursor));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(7, value);
    EXPECT_EQ(-1, cursor->nextSibling()); // client ends at 88
    // At the top, node's cut size puts id @72 next in line, and restore after it.
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->firstChild());
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(72u, offsetOf(*cursor));
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(88u, offsetOf(*cursor));
    EXPECT_EQ(-1, cursor->nextSibling());
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorNavigationDamaged, PathOffsetOutsideTheFrameReadsNothing) {
    Message message = loaded(navigationFrame());
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    cursor->binaryPath().entries.push_back(PathEntry{IdId, 100000});
    int value = 17;
    EXPECT_EQ(-1, cursor->getValue(value, 0));
    EXPECT_EQ(17, value);
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(-1, cursor->seek(IdId));
    EXPECT_EQ(-1, cursor->nextSibling());
    EXPECT_EQ("", cursor->curType());
    EXPECT_EQ(0, recorder.fired());
}
