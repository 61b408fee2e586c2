// Tests of structural editing through a cursor: newChild in both forms with
// its conversions of leaves, deleteFromChild, the forwarding operations, and a
// round trip of a large packet built through a cursor.
#include "binary/CursorTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace cursortest;
using KVX::KVXBinary;
using KVX::KVXBinaryIterator;

namespace {

// Frees a malloc'ed result at the end of a test.
struct FreeLater {
    explicit FreeLater(void *owned) : block(owned) {}
    ~FreeLater() { std::free(block); }
    FreeLater(FreeLater const &) = delete;
    FreeLater &operator=(FreeLater const &) = delete;
    void *block;
};

Bytes bytesOf(char const *data, int size) {
    return Bytes(reinterpret_cast<unsigned char const *>(data),
                 reinterpret_cast<unsigned char const *>(data) + size);
}

} // namespace

TEST(CursorEditing, NewChildOnEmptyElementTurnsItIntoAStructureInPlace) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, cursor->newChild(IdId));
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->newChild(Restore));
    EXPECT_EQ(3u, depthOf(*cursor));
    EXPECT_EQ(40u, offsetOf(*cursor));
    EXPECT_EQ(Restore, cursor->curID());
    Bytes frame = frameOf(*message);
    NodeFields node = nodeAt(frame, 24);
    EXPECT_EQ(NodeId, node.id);
    EXPECT_EQ(50u, node.kind);
    EXPECT_EQ(16u, node.size);
    EXPECT_EQ(IdId, nodeAt(frame, 56).id); // still behind node
}

TEST(CursorEditing, NewChildOnTextElementLosesTheTextAndMovesItToTheEnd) {
    // packet(ns 205) { node "hello" @24, id=7 @48, restore=8 @64 }
    Bytes frame = FrameBuilder()
                      .open(Packet, 50, 205)
                      .text(NodeId, 0, "hello")
                      .int32(IdId, 7)
                      .int32(Restore, 8)
                      .close()
                      .finish();
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->newChild(Name));
    ASSERT_EQ(3u, depthOf(*cursor));
    EXPECT_EQ(56u, cursor->binaryPath().entries[1].offset);
    EXPECT_EQ(72u, offsetOf(*cursor));
    Bytes after = frameOf(*message);
    EXPECT_EQ(IdId, nodeAt(after, 24).id);
    EXPECT_EQ(Restore, nodeAt(after, 40).id);
    NodeFields node = nodeAt(after, 56);
    EXPECT_EQ(NodeId, node.id);
    EXPECT_EQ(50u, node.kind);
    EXPECT_EQ(0u, node.ns);    // its own "no namespace", not the parent's 205
    EXPECT_EQ(16u, node.size); // the new child is its only content
    EXPECT_EQ(Name, nodeAt(after, 72).id);
    EXPECT_EQ(0u, nodeAt(after, 72).ns);
    ASSERT_EQ(0, cursor->seekUp());
    std::string text = "unchanged";
    EXPECT_EQ(-1, cursor->getValue(text, 0));
    EXPECT_EQ("unchanged", text);
}

TEST(CursorEditing, NewChildOnTextElementKeepsItsOwnNamespace) {
    Bytes frame =
        FrameBuilder().open(Packet).text(NodeId, 0, "abc", 206).int32(IdId, 7).close().finish();
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->seek(NodeId));
    ASSERT_EQ(0, cursor->newChild(Name));
    Bytes after = frameOf(*message);
    EXPECT_EQ(NodeId, nodeAt(after, 40).id);
    EXPECT_EQ(206u, nodeAt(after, 40).ns);
    EXPECT_EQ(206u, nodeAt(after, 56).ns); // the child inherits it
}

TEST(CursorEditing, NewChildOnRootWithTextTurnsItIntoAnEmptyContainer) {
    Bytes frame = FrameBuilder().text(Packet, 0, "txt").finish();
    Message message = loaded(frame);
    Cursor cursor = uncounted(*message);
    AssertRecorder recorder;
    EXPECT_EQ(0, cursor->newChild(NodeId));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(24u, offsetOf(*cursor));
    Bytes after = frameOf(*message);
    NodeFields root = nodeAt(after, 8);
    EXPECT_EQ(Packet, root.id);
    EXPECT_EQ(50u, root.kind);
    EXPECT_EQ(16u, root.size);
    EXPECT_EQ(NodeId, nodeAt(after, 24).id);
    EXPECT_EQ(rootEndOf(after) + tableSizeOf(after), after.size());
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorEditing, NewChildOnTypedLeafFailsAndChangesNothing) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->putValue(5, IdId));
    ASSERT_EQ(0, cursor->seek(IdId));
    Bytes before = frameOf(*message);
    EXPECT_EQ(-1, cursor->newChild(NodeId));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(IdId, cursor->curID());
    EXPECT_EQ(before, frameOf(*message));
}

TEST(CursorEditing, NewChildAtAnOffsetOutsideTheRootSectionIsRefused) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->seekUp());
    Bytes before = frameOf(*message);
    cursor->binaryPath().entries.push_back(KVX::PathEntry{NodeId, 100000});
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor->newChild(IdId));
    cursor->binaryPath().entries.back().offset = 40; // the name table, not a node
    EXPECT_EQ(-1, cursor->newChild(IdId));
    EXPECT_EQ(before, frameOf(*message));
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorEditing, NewChildTwiceWithOneIdGivesTwoChildrenInOrder) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->putValue(1, 0));
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->putValue(2, 0));
    ASSERT_EQ(0, cursor->seekUp());
    int value = 0;
    ASSERT_EQ(0, cursor->firstChild(NodeId));
    EXPECT_EQ(24u, offsetOf(*cursor));
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(1, value);
    ASSERT_EQ(0, cursor->nextSibling(NodeId));
    EXPECT_EQ(40u, offsetOf(*cursor));
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(2, value);
}

TEST(CursorEditing, NewChildGrowsEveryAncestorAndTheTableStillFollowsTheRoot) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->newChild(IdId));
    Bytes frame = frameOf(*message);
    EXPECT_EQ(32u, nodeAt(frame, 8).size);  // packet
    EXPECT_EQ(16u, nodeAt(frame, 24).size); // node
    EXPECT_EQ(0u, nodeAt(frame, 40).size);  // id
    ASSERT_EQ(0, cursor->newChild(Restore));
    frame = frameOf(*message);
    EXPECT_EQ(48u, nodeAt(frame, 8).size);
    EXPECT_EQ(32u, nodeAt(frame, 24).size);
    EXPECT_EQ(16u, nodeAt(frame, 40).size);
    EXPECT_EQ(72u, rootEndOf(frame));
    EXPECT_EQ(rootEndOf(frame) + tableSizeOf(frame), frame.size());
    // Newest name first, directly behind the root.
    NodeFields newest = nodeAt(frame, 72);
    EXPECT_EQ(Restore, newest.id);
    EXPECT_EQ(0u, newest.kind);
    EXPECT_EQ("restore", valueText(frame, 72));
}

TEST(CursorEditing, NewChildByNameOutsideTheVocabularyAllotsDynamicIds) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild("first-own"));
    EXPECT_EQ(-2, cursor->curID());
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, cursor->newChild("second-own"));
    EXPECT_EQ(-3, cursor->curID());
    Bytes frame = frameOf(*message);
    std::uint32_t table = rootEndOf(frame);
    EXPECT_EQ(-3, nodeAt(frame, table).id);
    EXPECT_EQ("second-own", valueText(frame, table));
    std::uint32_t next = table + nodeSizeOf(nodeAt(frame, table));
    EXPECT_EQ(-2, nodeAt(frame, next).id);
    EXPECT_EQ("first-own", valueText(frame, next));
}

TEST(CursorEditing, NewChildByNameTakesSlashesAsCharactersOfTheName) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild("node/id"));
    EXPECT_EQ(-2, cursor->curID());
    EXPECT_EQ("node/id", cursor->curName());
    EXPECT_EQ(2u, depthOf(*cursor));
}

TEST(CursorEditing, NewChildWithAnAttributeIdMakesAnAttribute) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(102));
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(-1, cursor->firstChild());
    EXPECT_EQ(0, cursor->seek(102));
    EXPECT_EQ(24u, offsetOf(*cursor));
}

TEST(CursorEditing, DeleteFromChildOfTheLastChildLeavesAnEmptyStructure) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->newChild(IdId));
    EXPECT_EQ(0, cursor->deleteFromChild());
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(NodeId, cursor->curID());
    Bytes frame = frameOf(*message);
    EXPECT_EQ(50u, nodeAt(frame, 24).kind);
    EXPECT_EQ(0u, nodeAt(frame, 24).size);
    EXPECT_EQ(16u, nodeAt(frame, 8).size);
    EXPECT_EQ(-1, cursor->firstChild());
}

TEST(CursorEditing, DeleteFromChildOnTheRootLeavesAnEmptyPath) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->deleteFromChild());
    EXPECT_TRUE(cursor->binaryPath().entries.empty());
}

TEST(CursorEditing, DeleteFromChildRefusesANodeReachingPastItsParent) {
    FrameBuilder builder;
    builder.open(Packet);
    std::size_t damaged = builder.here();
    builder.int32(IdId, 1).int32(Restore, 2).close();
    builder.patchSize(damaged, 400);
    Message message = loaded(builder.finish());
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->seek(IdId));
    Bytes before = frameOf(*message);
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor->deleteFromChild());
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(before, frameOf(*message));
    EXPECT_EQ(0, recorder.fired());
}

TEST(CursorEditing, PutChildTwiceGivesOneChildAndKeepsTheCursor) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->putChild(NodeId));
    EXPECT_EQ(0, cursor->putChild(NodeId));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(16u, nodeAt(frameOf(*message), 8).size);
}

TEST(CursorEditing, DeleteChildRemovesAllOfTheIdOrReportsZeroForNone) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->deleteChild(NodeId));
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, cursor->newChild(NodeId));
        ASSERT_EQ(0, cursor->seekUp());
    }
    ASSERT_EQ(0, cursor->newChild(IdId));
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(0, cursor->deleteChild(NodeId));
    EXPECT_EQ(1u, depthOf(*cursor));
    EXPECT_EQ(-1, cursor->seek(NodeId));
    EXPECT_EQ(16u, nodeAt(frameOf(*message), 8).size);
    EXPECT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(24u, offsetOf(*cursor));
}

TEST(CursorEditing, EmptyTextOnAContainerMakesAStringLeafAndOtherTextFails) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->newChild(IdId));
    ASSERT_EQ(0, cursor->seekUp());
    Bytes before = frameOf(*message);
    EXPECT_EQ(1, cursor->putValue(std::string("x"), 0));
    EXPECT_EQ(2u, depthOf(*cursor));
    EXPECT_EQ(before, frameOf(*message));
    EXPECT_EQ(0, cursor->putValue(std::string(), 0));
    Bytes after = frameOf(*message);
    NodeFields node = nodeAt(after, 24);
    EXPECT_EQ(2u, node.kind);
    EXPECT_EQ(1u, node.size);
    EXPECT_EQ(16u, nodeAt(after, 8).size);
    EXPECT_EQ(-1, cursor->firstChild());
}

TEST(CursorEditing, ValueGrowingFromSevenToEightBytesTakesALongHeader) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->putValue(std::string("abcdef"), NodeId)); // 7 bytes with NUL
    Bytes frame = frameOf(*message);
    EXPECT_EQ(7u, nodeAt(frame, 24).size);
    EXPECT_EQ('a', frame[24 + 12]);
    EXPECT_EQ(24u, nodeSizeOf(nodeAt(frame, 24)));
    ASSERT_EQ(0, cursor->putValue(std::string("abcdefg"), NodeId)); // 8 bytes
    frame = frameOf(*message);
    EXPECT_EQ(8u, nodeAt(frame, 24).size);
    EXPECT_EQ('a', frame[24 + 16]);
    EXPECT_EQ("abcdefg", valueText(frame, 24));
    EXPECT_EQ(24u, nodeAt(frame, 8).size);
}

TEST(CursorEditing, VersionAttributeSetsTheProtocolVersionAndReplacingResetsIt) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->putAttr(std::string("4.5.0"), 101));
    int version = 0;
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(40500, version);
    ASSERT_EQ(0, cursor->putAttr(std::string("3.9.0"), 101));
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(30900, version);
    // The document's own version number follows: below 40000 it is text.
    char *out = nullptr;
    int length = 0;
    ASSERT_EQ(0, message->serialize(&out, &length, nullptr, 40500));
    FreeLater release(out);
    ASSERT_GE(length, 4);
    EXPECT_NE(0, std::memcmp(out, "\x98\xBA\xDC\xFE", 4));
}

TEST(CursorEditing, SerializeFromChildOfALeafGivesAFrameRootedAtThatLeaf) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->putValue(7, IdId));
    ASSERT_EQ(0, cursor->seek(IdId));
    char *out = nullptr;
    int length = 0;
    ASSERT_EQ(0, cursor->serializeFromChild(&out, &length));
    FreeLater release(out);
    Bytes frame = bytesOf(out, length);
    Bytes whole = frameOf(*message);
    EXPECT_EQ(0u, load32(frame, 4) & 1); // root present
    EXPECT_EQ(0x02000000u, load32(frame, 4) & 0xFF000000u);
    NodeFields root = nodeAt(frame, 8);
    EXPECT_EQ(IdId, root.id);
    EXPECT_EQ(1u, root.kind);
    EXPECT_EQ(4u, root.size);
    EXPECT_EQ(7u, load32(frame, 20));
    EXPECT_EQ(8u + 16u + tableSizeOf(whole), frame.size());
    EXPECT_EQ(tableSizeOf(whole), tableSizeOf(frame));
    EXPECT_EQ(2u, depthOf(*cursor));
}

TEST(CursorEditing, CopyToChildGraftsTheSourceSubtreeAndKeepsTheCursor) {
    Message source = packet();
    Cursor from = uncounted(*source);
    ASSERT_EQ(0, from->newChild(NodeId));
    ASSERT_EQ(0, from->putValue(42, IdId));
    Message target = packet();
    Cursor to = uncounted(*target);
    ASSERT_EQ(0, to->newChild(Restore));
    ASSERT_EQ(0, to->seekUp());
    EXPECT_EQ(0, to->copyToChild(from.get()));
    EXPECT_EQ(1u, depthOf(*to));
    ASSERT_EQ(0, to->firstChild());
    EXPECT_EQ(Restore, to->curID());
    ASSERT_EQ(0, to->nextSibling());
    EXPECT_EQ(NodeId, to->curID());
    int value = 0;
    EXPECT_EQ(0, to->getValue(value, IdId));
    EXPECT_EQ(42, value);
}

TEST(CursorEditing, DeserializeToChildGraftsAFrameAndKeepsTheCursor) {
    Message source = packet(NodeId);
    Cursor from = uncounted(*source);
    ASSERT_EQ(0, from->putValue(std::string("v"), IdId));
    char *out = nullptr;
    int length = 0;
    ASSERT_EQ(0, source->serialize(&out, &length, nullptr, 40500));
    FreeLater release(out);
    Message target = packet();
    Cursor to = uncounted(*target);
    EXPECT_EQ(0, to->deserializeToChild(out, length));
    EXPECT_EQ(1u, depthOf(*to));
    std::string text;
    EXPECT_EQ(0, to->getValue(text, "node/id"));
    EXPECT_EQ("v", text);
}

TEST(CursorEditing, FromTextToChildGraftsParsedText) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->fromTextToChild("<node><id>5</id></node>"));
    EXPECT_EQ(1u, depthOf(*cursor));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, "node/id"));
    EXPECT_EQ(5, value);
}

TEST(CursorEditing, ToTextFromChildWritesTheSubtreeAtVersion40500) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->putValue(5, IdId));
    char *text = cursor->toTextFromChild();
    ASSERT_NE(nullptr, text);
    FreeLater release(text);
    EXPECT_STREQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                 "<node xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
                 "<id>5</id>\n"
                 "</node>\n",
                 text);
    EXPECT_EQ(2u, depthOf(*cursor));
}

TEST(CursorEditing, EditsThroughALostCursorAreRefusedBeforeAnyChange) {
    Message message = packet();
    Cursor writer = counted(*message);
    Cursor lost = counted(*message);
    ASSERT_EQ(0, writer->newChild(NodeId));
    ASSERT_EQ(0, writer->seekUp());
    ASSERT_EQ(0, writer->newChild(IdId));
    ASSERT_EQ(0, writer->seekUp());
    ASSERT_EQ(0, lost->seek(IdId));
    ASSERT_EQ(0, writer->seek(NodeId));
    ASSERT_EQ(0, writer->deleteFromChild());
    Bytes before = frameOf(*message);
    EXPECT_EQ(-1, lost->newChild(Name));
    EXPECT_EQ(-1, lost->deleteFromChild());
    EXPECT_EQ(1, lost->putValue(3, 0));
    EXPECT_EQ(before, frameOf(*message));
}

TEST(CursorEditing, EditingASharedMessageLeavesTheOtherUnchanged) {
    Message message = packet();
    Cursor original = uncounted(*message);
    ASSERT_EQ(0, original->newChild(NodeId));
    Message sharing(static_cast<KVXBinary *>(message->copy(false)));
    ASSERT_NE(nullptr, sharing.get());
    Bytes before = frameOf(*message);
    Cursor editor = uncounted(*sharing);
    ASSERT_EQ(0, editor->seek(NodeId));
    EXPECT_EQ(0, editor->newChild(IdId));
    EXPECT_EQ(before, frameOf(*message));
    EXPECT_NE(before, frameOf(*sharing));
}

TEST(CursorEditing, TenThousandChildrenRoundTripThroughAFrame) {
    static int const Ids[] = {NodeId, IdId, Restore, Server, Client};
    int const count = 10000;
    Message message = packet();
    Cursor cursor = uncounted(*message);
    std::vector<std::uint32_t> offsets;
    offsets.reserve(count);
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(0, cursor->newChild(Ids[i % 5]));
        offsets.push_back(offsetOf(*cursor));
        ASSERT_EQ(0, cursor->putValue(i, 0));
        ASSERT_EQ(0, cursor->seekUp());
    }
    char *out = nullptr;
    int length = 0;
    ASSERT_EQ(0, message->serialize(&out, &length, nullptr, 40500));
    FreeLater release(out);
    EXPECT_EQ(8 + 16 + 16 * count + static_cast<int>(tableSizeOf(bytesOf(out, length))), length);

    Message copy = blankMessage();
    ASSERT_EQ(0, copy->init(out, length));
    Cursor walker = uncounted(*copy);
    ASSERT_EQ(0, walker->firstChild());
    int seen = 0;
    do {
        ASSERT_LT(seen, count);
        EXPECT_EQ(Ids[seen % 5], walker->curID());
        EXPECT_EQ(offsets[seen], offsetOf(*walker));
        EXPECT_EQ(24u + 16u * static_cast<unsigned>(seen), offsetOf(*walker));
        int value = -1;
        EXPECT_EQ(0, walker->getValue(value, 0));
        EXPECT_EQ(seen, value);
        ++seen;
    } while (walker->nextSibling() == 0);
    EXPECT_EQ(count, seen);
    EXPECT_EQ("client", walker->curName());
}
