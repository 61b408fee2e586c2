// Tests of KVXBinaryIterator's construction, copies, the static Policy, and
// how validation keeps, repairs or loses a cursor's path after edits.
#include "binary/CursorTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <gtest/gtest.h>

using namespace cursortest;
using KVX::KVXBinary;
using KVX::KVXBinaryIterator;
using KVX::KVXMessageIterator;
using KVX::PathEntry;

namespace {

// Sets KVXBinaryIterator::Policy for one test and puts the old value back.
class PolicyScope {
public:
    explicit PolicyScope(int value) : saved(KVXBinaryIterator::Policy) {
        KVXBinaryIterator::Policy = value;
    }
    ~PolicyScope() { KVXBinaryIterator::Policy = saved; }

private:
    int saved;
};

// Opens the protected parts that a test needs to drive validation directly.
class Probe : public KVXBinaryIterator {
public:
    explicit Probe(KVXBinary *document) : KVXBinaryIterator(document) {}
    using KVXBinaryIterator::invalidate;
    using KVXBinaryIterator::validateInternals;
};

// packet > node(empty) @24, id(int 7) @40, restore(int 5) @56
Message threeChildren() {
    Message message = packet();
    Cursor writer = uncounted(*message);
    EXPECT_EQ(0, writer->newChild(NodeId));
    writer->seekUp();
    EXPECT_EQ(0, writer->newChild(IdId));
    EXPECT_EQ(0, writer->putValue(7, 0));
    writer->seekUp();
    EXPECT_EQ(0, writer->newChild(Restore));
    EXPECT_EQ(0, writer->putValue(5, 0));
    return message;
}

// Hands out two cursors so that validation re-walks paths (cursorCount >= 2).
void countTwoCursors(KVXBinary &message) {
    delete message.newIterator();
    delete message.newIterator();
}

} // namespace

TEST(KVXBinaryIterator, PolicyIsZeroUnlessSet) {
    EXPECT_EQ(0, KVXBinaryIterator::Policy);
}

TEST(KVXBinaryIterator, ConstructorStandsOnRootAtOffset8) {
    Message message = packet();
    KVXBinaryIterator cursor(message.get());
    ASSERT_EQ(1u, depthOf(cursor));
    EXPECT_EQ(Packet, cursor.binaryPath().entries[0].id);
    EXPECT_EQ(8u, cursor.binaryPath().entries[0].offset);
    EXPECT_EQ(Packet, cursor.curID());
    EXPECT_TRUE(cursor.binaryPath().namespaces.empty());
    EXPECT_EQ(message.get(), cursor.getMessage());
    EXPECT_EQ(0u, message->cursors()); // only KVXBinary::newIterator counts
}

TEST(KVXBinaryIterator, ConstructorOnBlankDocumentLeavesPathEmpty) {
    Message message = blankMessage();
    KVXBinaryIterator cursor(message.get());
    EXPECT_TRUE(cursor.binaryPath().entries.empty());
}

TEST(KVXBinaryIterator, CursorWithoutMessageFailsEveryValidation) {
    KVXBinaryIterator cursor(static_cast<KVXBinary *>(nullptr));
    EXPECT_TRUE(cursor.binaryPath().entries.empty());
    EXPECT_EQ(-1, cursor.seek(0));
    EXPECT_EQ(-1, cursor.seekRoot());
}

TEST(KVXBinaryIterator, EachCursorCopiesPolicyWhenMade) {
    // A fragment that cannot be parsed (too short to be a frame or a text
    // message) stands before an element.
    Bytes frame = FrameBuilder().open(Packet).text(0, 51, "<x/>").empty(NodeId).close().finish();
    Message message = loaded(frame);
    Cursor strict;
    {
        PolicyScope scope(3); // expand on the way down; a bad fragment fails
        strict = uncounted(*message);
    }
    Cursor lenient = uncounted(*message);
    EXPECT_EQ(-1, strict->firstChild());
    EXPECT_EQ(1u, depthOf(*strict));
    EXPECT_EQ(0, lenient->firstChild());
    EXPECT_EQ(0, lenient->curID()); // the fragment itself is an element child
    // Copies keep the copied value, whatever the static says now.
    KVXBinaryIterator copy(*strict);
    EXPECT_EQ(-1, copy.firstChild());
}

TEST(KVXBinaryIterator, CopyTakesFreshStampSoAStaleCursorCopyLooksCurrent) {
    Message message = threeChildren();
    Cursor writer = counted(*message);
    Cursor reader = counted(*message);
    ASSERT_EQ(0, reader->seek(IdId));
    ASSERT_EQ(40u, offsetOf(*reader));
    // A child inserted inside node @24 lands at 40 and pushes id to 56.
    ASSERT_EQ(0, writer->seek(NodeId));
    ASSERT_EQ(0, writer->newChild(Name));

    int value = 0;
    EXPECT_EQ(-1, reader->getValue(value, 0)); // lost
    KVXBinaryIterator byReference(*reader);
    KVXBinaryIterator byPointer(reader.get());
    // The copies look current and keep the stale offset 40, where the new
    // empty child now stands.
    EXPECT_EQ(40u, offsetOf(byReference));
    std::string text = "unchanged";
    EXPECT_EQ(0, byReference.getValue(text, 0));
    EXPECT_EQ("", text);
    text = "unchanged";
    EXPECT_EQ(0, byPointer.getValue(text, 0));
    EXPECT_EQ("", text);
    EXPECT_EQ(-1, reader->getValue(text, 0));
    EXPECT_EQ(-1, reader->seek(0));
}

TEST(KVXBinaryIterator, AssignmentTakesTheSourceStampToo) {
    Message message = threeChildren();
    Cursor writer = counted(*message);
    Cursor reader = counted(*message);
    ASSERT_EQ(0, reader->seek(Restore));
    ASSERT_EQ(56u, offsetOf(*reader));
    ASSERT_EQ(0, writer->seek(NodeId));
    ASSERT_EQ(0, writer->deleteFromChild()); // everything behind 24 moves down

    KVXBinaryIterator assigned(message.get());
    assigned = *reader;
    EXPECT_EQ(56u, offsetOf(assigned));
    EXPECT_EQ(-1, assigned.seek(0)); // stale stamp, path no longer holds
    EXPECT_EQ(0, assigned.seekRoot());
    EXPECT_EQ(0, assigned.seek(Restore));
    EXPECT_EQ(40u, offsetOf(assigned));
}

TEST(KVXBinaryIterator, TwoCountedCursorsInsertBeforeSecondLosesItUntilSeekRoot) {
    Message message = threeChildren();
    Cursor writer = counted(*message);
    Cursor reader = counted(*message);
    ASSERT_EQ(0, reader->seek(IdId));
    // Insert before id @40: node @24 takes a child.
    ASSERT_EQ(0, writer->seek(NodeId));
    ASSERT_EQ(0, writer->newChild(Name));

    int value = 0;
    EXPECT_EQ(-1, reader->getValue(value, 0));
    EXPECT_EQ(-1, reader->seek(0));
    EXPECT_EQ(-1, reader->firstChild());
    EXPECT_EQ(0, reader->seekRoot());
    EXPECT_EQ(0, reader->seek(IdId));
    EXPECT_EQ(56u, offsetOf(*reader));
    EXPECT_EQ(0, reader->getValue(value, 0));
    EXPECT_EQ(7, value);
}

TEST(KVXBinaryIterator, TwoCountedCursorsAppendBehindSecondLeavesItWorking) {
    Message message = threeChildren();
    Cursor writer = counted(*message);
    Cursor reader = counted(*message);
    ASSERT_EQ(0, reader->seek(IdId));
    // Appends at the very end of the root: nothing behind them moves.
    ASSERT_EQ(0, writer->newChild(Session)); // @72
    ASSERT_EQ(0, writer->seekRoot());
    ASSERT_EQ(0, writer->newChild(Value)); // @88
    ASSERT_EQ(0, writer->seekRoot());
    int value = 0;
    EXPECT_EQ(0, reader->getValue(value, 0));
    EXPECT_EQ(7, value);
    // Insert inside session @72 with value behind it: offsets behind 72
    // change, and the reader's path before them is repaired.
    ASSERT_EQ(0, writer->seek(Session));
    ASSERT_EQ(0, writer->newChild(Name));
    EXPECT_EQ(0, reader->getValue(value, 0));
    EXPECT_EQ(7, value);
    EXPECT_EQ(0, reader->nextSibling());
    EXPECT_EQ(Restore, reader->curID());
}

TEST(KVXBinaryIterator, CursorOnDocumentWithoutRootIsRootedAfterCreate) {
    Message message = blankMessage();
    Cursor first = counted(*message);
    Cursor second = counted(*message);
    EXPECT_TRUE(first->binaryPath().entries.empty());
    EXPECT_TRUE(second->binaryPath().entries.empty());
    ASSERT_EQ(0, message->create(Packet));
    EXPECT_EQ(0, first->seekRoot());
    ASSERT_EQ(1u, depthOf(*first));
    EXPECT_EQ(Packet, first->curID());
    EXPECT_EQ(8u, offsetOf(*first));
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(1u, depthOf(*second));
}

TEST(KVXBinaryIterator, LoneCursorOnBlankDocumentOnlyRefreshesItsBase) {
    Message message = blankMessage();
    Cursor only = counted(*message);
    ASSERT_EQ(0, message->create(Packet));
    // With fewer than two cursors handed out, validation never re-walks.
    EXPECT_EQ(0, only->seekRoot());
    EXPECT_TRUE(only->binaryPath().entries.empty());
}

TEST(KVXBinaryIterator, ShallowNewIteratorSharesMessageAndPosition) {
    Message message = threeChildren();
    Cursor cursor = counted(*message);
    ASSERT_EQ(0, cursor->seek(IdId));
    std::unique_ptr<KVXMessageIterator> copy(cursor->newIterator(false));
    ASSERT_NE(nullptr, copy.get());
    EXPECT_EQ(message.get(), copy->getMessage());
    KVXBinaryIterator *binary = dynamic_cast<KVXBinaryIterator *>(copy.get());
    ASSERT_NE(nullptr, binary);
    EXPECT_EQ(40u, offsetOf(*binary));
    EXPECT_EQ(1u, message->cursors()); // copies are not counted
    int value = 0;
    EXPECT_EQ(0, copy->getValue(value, 0));
    EXPECT_EQ(7, value);
}

TEST(KVXBinaryIterator, DeepNewIteratorWalksACopyOfTheMessage) {
    Message message = threeChildren();
    Cursor cursor = counted(*message);
    ASSERT_EQ(0, cursor->seek(IdId));
    KVXMessageIterator *deep = cursor->newIterator(true);
    ASSERT_NE(nullptr, deep);
    KVX::KVXMessage *other = deep->getMessage();
    ASSERT_NE(nullptr, other);
    EXPECT_NE(static_cast<KVX::KVXMessage *>(message.get()), other);
    EXPECT_EQ(0, deep->putValue(99, 0));
    int value = 0;
    EXPECT_EQ(0, deep->getValue(value, 0));
    EXPECT_EQ(99, value);
    EXPECT_EQ(0, cursor->getValue(value, 0));
    EXPECT_EQ(7, value);
    delete deep;
    other->destroy(); // the cursor does not own the copy it made
}

TEST(KVXBinaryIterator, InvalidateMakesTheNextValidationCheckThePath) {
    Message message = threeChildren();
    countTwoCursors(*message);
    Probe probe(message.get());
    ASSERT_EQ(0, probe.seek(IdId));
    // Point the last entry at restore @56 while keeping the id of "id".
    probe.binaryPath().entries.back() = PathEntry{IdId, 56};
    int value = 0;
    EXPECT_EQ(0, probe.getValue(value, 0)); // current stamp: read blindly
    EXPECT_EQ(5, value);
    probe.invalidate();
    EXPECT_EQ(-1, probe.getValue(value, 0));
    EXPECT_EQ(-1, probe.seek(0)); // stays lost
    EXPECT_EQ(0, probe.seekRoot());
}

TEST(KVXBinaryIterator, ResolvingStopsWithSuccessAtALeafWhateverFollows) {
    Message message = threeChildren();
    countTwoCursors(*message);
    Probe probe(message.get());
    probe.binaryPath().entries.push_back(PathEntry{IdId, 40});
    probe.binaryPath().entries.push_back(PathEntry{12345, 4000});
    probe.invalidate();
    EXPECT_EQ(0, probe.seek(0));
    // An entry whose offset holds another node fails the walk.
    probe.binaryPath().entries.resize(1);
    probe.binaryPath().entries.push_back(PathEntry{NodeId, 40});
    probe.invalidate();
    EXPECT_EQ(-1, probe.seek(0));
}

TEST(KVXBinaryIterator, ValidateInternalsSeparatesSharedDataBeforeAWrite) {
    Message message = threeChildren();
    Message sharing(static_cast<KVXBinary *>(message->copy(false)));
    ASSERT_NE(nullptr, sharing.get());
    Probe probe(sharing.get());
    EXPECT_EQ(0, probe.validateInternals());
    ASSERT_EQ(0, probe.putValue(1, "id"));
    int value = 0;
    Cursor original = uncounted(*message);
    EXPECT_EQ(0, original->getValue(value, "id"));
    EXPECT_EQ(7, value);
    EXPECT_EQ(0, probe.getValue(value, "id"));
    EXPECT_EQ(1, value);
}

TEST(KVXBinaryIterator, CurIdReadsThePathWithoutTheFrame) {
    Message message = threeChildren();
    KVXBinaryIterator cursor(message.get());
    cursor.binaryPath().entries.push_back(PathEntry{-77, 99999});
    EXPECT_EQ(-77, cursor.curID());
}

TEST(KVXBinaryIterator, CurIdOnEmptyPathAssertsAndGivesMinusOne) {
    Message message = packet();
    KVXBinaryIterator cursor(message.get());
    EXPECT_EQ(0, cursor.seekUp());
    AssertRecorder recorder;
    EXPECT_EQ(-1, cursor.curID());
    EXPECT_EQ(1, recorder.fired());
}
