// Tests of the KVXBinary document: statics, the create forms, cursors handed
// out, the magic test, and sharing of storage and pending header values
// between copies.
#include "binary/DocumentTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace doctests;

namespace {

// Makes the protected header operations reachable from a test.
class ExposedBinary : public KVX::KVXBinary {
public:
    using KVX::KVXBinary::copyHeaderData;
    using KVX::KVXBinary::resetHeaderData;
    using KVX::KVXBinary::saveChanges;

protected:
    ~ExposedBinary() override {}
};

typedef std::unique_ptr<ExposedBinary, MessageRelease> Exposed;

} // namespace

TEST(KVXBinary, MessageTypeIsKVXBinary) {
    EXPECT_STREQ("KVXBinary", KVX::KVXBinary::MessageType);
    Message message = blank();
    EXPECT_EQ(KVX::KVXBinary::MessageType, message->messageType());
}

TEST(KVXBinary, PolicyStartsAtZero) {
    EXPECT_EQ(0, KVX::KVXBinary::Policy);
}

TEST(KVXBinary, CreateWithoutNameMakesPacketRoot) {
    Message message = blank();
    ASSERT_EQ(0, message->create());
    Bytes const frame = frameOf(*message);
    ASSERT_EQ(48u, frame.size()); // head, empty root, entry "packet"
    EXPECT_EQ(0x02000018u, flagsOf(frame));
    EXPECT_EQ(static_cast<std::uint32_t>(PacketElement), load32(frame, 8));
    EXPECT_EQ(50u, load16(frame, 12));
    EXPECT_EQ(0u, load32(frame, 16));
    EXPECT_EQ(static_cast<std::uint32_t>(PacketElement), load32(frame, 24));
    EXPECT_EQ(7u, load32(frame, 32));
    EXPECT_STREQ("packet", frame.data() + 36);
}

TEST(KVXBinary, CreateByNameTakesVocabularyId) {
    Message message = blank();
    ASSERT_EQ(0, message->create("node"));
    Cursor cursor = cursorOn(*message);
    EXPECT_EQ(NodeElement, cursor->curID());
    EXPECT_EQ("node", cursor->curName());
}

TEST(KVXBinary, CreateWithUnknownNameFailsAndKeepsContent) {
    Message message = workedExample();
    Bytes const before = frameOf(*message);
    EXPECT_EQ(-1, message->create("no-such-element-name"));
    EXPECT_EQ(before, frameOf(*message));
}

TEST(KVXBinary, CreateWithUnknownNameLeavesBlankMessageBlank) {
    Message message = blank();
    EXPECT_EQ(-1, message->create("no-such-element-name"));
    unsigned long long size = 0;
    EXPECT_EQ(-1, message->serialize(nullptr, &size, nullptr));
}

TEST(KVXBinary, CreateReplacesWholeContent) {
    Message message = workedExample();
    ASSERT_EQ(0, message->create(PacketElement));
    Bytes const frame = frameOf(*message);
    EXPECT_EQ(48u, frame.size());
    EXPECT_EQ(static_cast<std::uint32_t>(PacketElement), load32(frame, 8));
    EXPECT_EQ(0u, load32(frame, 16));
}

TEST(KVXBinary, NewMessageIsBlankKVXBinary) {
    Message message = workedExample();
    AnyMessage fresh(message->newMessage());
    ASSERT_NE(nullptr, fresh);
    EXPECT_STREQ("KVXBinary", fresh->messageType());
    unsigned long long size = 0;
    EXPECT_EQ(-1, fresh->serialize(nullptr, &size, nullptr));
    std::unique_ptr<KVX::KVXMessageIterator> cursor(fresh->newIterator());
    ASSERT_NE(nullptr, cursor);
    EXPECT_TRUE(static_cast<KVX::KVXBinaryIterator *>(cursor.get())->binaryPath().entries.empty());
}

TEST(KVXBinary, NewIteratorCountsEveryCursorHandedOut) {
    Message message = created(NodeElement);
    EXPECT_EQ(0u, message->cursors());
    KVX::KVXBinary const &reader = *message;
    std::unique_ptr<KVX::KVXMessageIterator const> first(reader.newIterator());
    EXPECT_EQ(1u, message->cursors());
    std::unique_ptr<KVX::KVXMessageIterator> second(message->newIterator());
    EXPECT_EQ(2u, message->cursors());
    // Copies made by the cursor itself, or directly, are not counted.
    std::unique_ptr<KVX::KVXMessageIterator> third(second->newIterator(false));
    KVX::KVXBinaryIterator direct(message.get());
    EXPECT_EQ(2u, message->cursors());
}

TEST(KVXBinary, NewIteratorStandsOnRoot) {
    Message message = workedExample();
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(1u, cursor->binaryPath().entries.size());
    EXPECT_EQ(NodeElement, cursor->curID());
    EXPECT_EQ(8u, cursor->binaryPath().entries.back().offset);
}

TEST(KVXBinary, IsOfTheKindChecksMagic) {
    char const frame[] = {'\x98', '\xBA', '\xDC', '\xFE'};
    char const reversed[] = {'\xFE', '\xDC', '\xBA', '\x98'};
    char const text[] = "<packet/>";
    EXPECT_EQ(1, KVX::KVXBinary::isOfTheKind(frame));
    EXPECT_EQ(0, KVX::KVXBinary::isOfTheKind(reversed));
    EXPECT_EQ(0, KVX::KVXBinary::isOfTheKind(text));
}

TEST(KVXBinary, IsOfTheKindAssertsOnNullBuffer) {
    AssertRecorder recorder;
    EXPECT_EQ(0, KVX::KVXBinary::isOfTheKind(nullptr));
    EXPECT_EQ(1, recorder.fired());
}

TEST(KVXBinary, CopySharesUntilWrite) {
    Message original = workedExample();
    AnyMessage copy(original->copy());
    ASSERT_NE(nullptr, copy);
    KVX::KVXBinary *shared = static_cast<KVX::KVXBinary *>(copy.get());
    Bytes const before = frameOf(*original);
    EXPECT_EQ(before, frameOf(*shared));

    Cursor cursor = cursorOn(*shared);
    ASSERT_EQ(0, cursor->putValue(7, IdElement));
    EXPECT_EQ(before, frameOf(*original));
    Bytes const after = frameOf(*shared);
    ASSERT_EQ(before.size(), after.size());
    EXPECT_EQ(7u, load32(after, 36));
    EXPECT_EQ(42u, load32(before, 36));
}

TEST(KVXBinary, DestroyOfOneSharerLeavesTheOther) {
    Message original = workedExample();
    Bytes const before = frameOf(*original);
    KVX::KVXMessage *copy = original->copy();
    ASSERT_NE(nullptr, copy);
    copy->destroy();
    EXPECT_EQ(before, frameOf(*original));
    Cursor cursor = cursorOn(*original);
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(KVXBinary, CopyTakesPendingHeaderValues) {
    Message original = created(PacketElement);
    original->setID("message-1");
    original->setUid("user-1");
    original->setSession("session-1");
    AnyMessage copy(original->copy());
    std::string value;
    EXPECT_EQ(0, copy->getID(value));
    EXPECT_EQ("message-1", value);
    EXPECT_EQ(0, copy->getUid(value));
    EXPECT_EQ("user-1", value);
    EXPECT_EQ(0, copy->getSession(value));
    EXPECT_EQ("session-1", value);
}

TEST(KVXBinary, CopyClearsLocalIdFlag) {
    Message original = created(PacketElement);
    original->setID("local", true);
    AnyMessage copy(original->copy());
    // The copy writes the id that the original keeps to itself.
    Message reloaded = blank();
    Bytes const copied = frameOf(*static_cast<KVX::KVXBinary *>(copy.get()));
    ASSERT_EQ(0, reloaded->init(copied.data(), static_cast<int>(copied.size())));
    std::string value;
    EXPECT_EQ(0, reloaded->getID(value));
    EXPECT_EQ("local", value);

    Message plain = blank();
    Bytes const kept = frameOf(*original);
    ASSERT_EQ(0, plain->init(kept.data(), static_cast<int>(kept.size())));
    EXPECT_EQ(-1, plain->getID(value));
}

TEST(KVXBinary, CreateDropsPendingValues) {
    Message message = created(PacketElement);
    message->setUid("user-1");
    ASSERT_EQ(0, message->create(PacketElement));
    std::string value = "untouched";
    // Dirty with no string: the value was dropped.
    EXPECT_EQ(-1, message->getUid(value));
    Bytes const frame = frameOf(*message);
    EXPECT_EQ(48u, frame.size()); // nothing written for the dropped value
    EXPECT_EQ(-1, message->getUid(value));
}

TEST(KVXBinary, ResetHeaderDataDropsLocalIdAndItsFlag) {
    Exposed message(new ExposedBinary());
    ASSERT_EQ(0, message->create(PacketElement));
    message->setID("local", true);
    message->resetHeaderData();
    std::string value;
    EXPECT_EQ(-1, message->getID(value));
    // The local flag went with the value, so saveChanges clears the dirty flag
    // and getID then reads the (missing) attribute.
    EXPECT_EQ(0, message->saveChanges());
    EXPECT_EQ(-1, message->getID(value));
    EXPECT_EQ(48u, frameOf(*message).size());
}

TEST(KVXBinary, CopyHeaderDataTakesValuesAndFlags) {
    Exposed source(new ExposedBinary());
    Exposed target(new ExposedBinary());
    ASSERT_EQ(0, source->create(PacketElement));
    ASSERT_EQ(0, target->create(PacketElement));
    source->setUid("user-1");
    ASSERT_EQ(0, source->saveChanges()); // uid written, its flag down
    source->setID("message-1");
    target->setSession("session-1");

    target->copyHeaderData(*source);
    std::string value;
    EXPECT_EQ(0, target->getID(value));
    EXPECT_EQ("message-1", value);
    // The uid came across with its flag down, so the target reads its own
    // document, which has no uid.
    EXPECT_EQ(-1, target->getUid(value));
    // The source had no session: the target's is gone, its flag copied (down).
    value = "untouched";
    EXPECT_EQ(-1, target->getSession(value));
}
