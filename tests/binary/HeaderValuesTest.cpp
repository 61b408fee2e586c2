// Tests of the packet header values: the stored form and default of each
// accessor, the version text, the pending id, session and uid, and what
// saveChanges writes.
#include "binary/DocumentTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <string>

using namespace doctests;

namespace {

enum : int {
    VersionAttr = 101,
    IdAttr = 102,
    PriorityAttr = 103,
    TimeAttr = 104,
    TypeAttr = 105,
    ProgressAttr = 106,
    TimeoutAttr = 107,
    TimeoutLimitAttr = 108,
    UidAttr = 109,
    LogAttr = 110,
};

// The text of a root attribute, or "<missing>".
std::string attribute(KVX::KVXBinary &message, int id) {
    Cursor cursor = cursorOn(message);
    std::string value;
    if (cursor->seek(id) != 0)
        return "<missing>";
    cursor->seekUp();
    cursor->getAttr(value, id);
    return value;
}

// A message loaded from `message`'s frame, to see what went out.
Message sent(KVX::KVXBinary const &message) {
    Bytes const frame = frameOf(message);
    Message copy = blank();
    EXPECT_EQ(0, copy->init(frame.data(), static_cast<int>(frame.size())));
    return copy;
}

} // namespace

TEST(HeaderValues, SetLocalIdIsNotSerialized) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setID("x", true));
    std::string value;
    EXPECT_EQ(0, message->getID(value));
    EXPECT_EQ("x", value);
    Message out = sent(*message);
    EXPECT_EQ(-1, out->getID(value));
    EXPECT_EQ("<missing>", attribute(*message, IdAttr));
    // The flag stays raised: a second write leaves the id out again, and getID
    // still answers from the pending value.
    EXPECT_EQ(48u, frameOf(*message).size());
    EXPECT_EQ(0, message->getID(value));
    EXPECT_EQ("x", value);
}

TEST(HeaderValues, SetIdIsWrittenOnlyBySaveChanges) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setID("message-1"));
    EXPECT_EQ("<missing>", attribute(*message, IdAttr));
    Message out = sent(*message);
    std::string value;
    EXPECT_EQ(0, out->getID(value));
    EXPECT_EQ("message-1", value);
    EXPECT_EQ("message-1", attribute(*message, IdAttr));
}

TEST(HeaderValues, SetIdWithSameValueLeavesFlagDown) {
    Message message = created(PacketElement);
    message->setID("first");
    frameOf(*message); // written, flag down
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(0, cursor->putAttr(std::string("changed"), IdAttr));
    std::string value;
    message->setID("first"); // equal to the pending value: nothing changes
    EXPECT_EQ(0, message->getID(value));
    EXPECT_EQ("changed", value);
    message->setID("second"); // differs: pending and dirty
    EXPECT_EQ(0, message->getID(value));
    EXPECT_EQ("second", value);
}

TEST(HeaderValues, SetProgressFiveStoresOn) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setProgress(5));
    EXPECT_EQ("on", attribute(*message, ProgressAttr));
    int progress = -7;
    EXPECT_EQ(0, message->getProgress(progress));
    EXPECT_EQ(1, progress);
    EXPECT_EQ(0, message->setProgress(0));
    EXPECT_EQ("off", attribute(*message, ProgressAttr));
    EXPECT_EQ(0, message->getProgress(progress));
    EXPECT_EQ(0, progress);
}

TEST(HeaderValues, GetProgressRefusesOtherText) {
    Message message = created(PacketElement);
    int progress = 9;
    EXPECT_EQ(-1, message->getProgress(progress));
    EXPECT_EQ(9, progress);
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(0, cursor->putAttr(std::string("On"), ProgressAttr));
    EXPECT_EQ(-1, message->getProgress(progress));
    EXPECT_EQ(9, progress);
}

TEST(HeaderValues, LogIsOnOrOff) {
    Message message = created(PacketElement);
    int log = 9;
    EXPECT_EQ(-1, message->getLog(log));
    EXPECT_EQ(9, log);
    EXPECT_EQ(0, message->setLog(-1));
    EXPECT_EQ("on", attribute(*message, LogAttr));
    EXPECT_EQ(0, message->getLog(log));
    EXPECT_EQ(1, log);
    EXPECT_EQ(0, message->setLog(0));
    EXPECT_EQ(0, message->getLog(log));
    EXPECT_EQ(0, log);
}

TEST(HeaderValues, GetTypeWritesZeroFirst) {
    Message message = created(PacketElement);
    int type = 7;
    EXPECT_EQ(-1, message->getType(type));
    EXPECT_EQ(0, type);
    EXPECT_EQ(0, message->setType(3));
    EXPECT_EQ(0, message->getType(type));
    EXPECT_EQ(3, type);
}

TEST(HeaderValues, GetTimeoutLeavesArgumentWhenMissing) {
    Message message = created(PacketElement);
    int value = 7;
    EXPECT_EQ(-1, message->getTimeout(value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(-1, message->getTimeoutLimit(value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(-1, message->getPriority(value));
    EXPECT_EQ(7, value);
    long long time = 7;
    EXPECT_EQ(-1, message->getTime(time));
    EXPECT_EQ(7, time);
}

TEST(HeaderValues, IntegerValuesAreIntAttributes) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setPriority(3));
    EXPECT_EQ(0, message->setTimeout(30));
    EXPECT_EQ(0, message->setTimeoutLimit(300));
    int value = 0;
    EXPECT_EQ(0, message->getPriority(value));
    EXPECT_EQ(3, value);
    EXPECT_EQ(0, message->getTimeout(value));
    EXPECT_EQ(30, value);
    EXPECT_EQ(0, message->getTimeoutLimit(value));
    EXPECT_EQ(300, value);
    // Stored as KindInt, which the loose string read of an attribute refuses.
    Cursor cursor = cursorOn(*message);
    std::string text;
    EXPECT_EQ(-1, cursor->getAttr(text, PriorityAttr));
}

TEST(HeaderValues, TimeRoundTrips) {
    Message message = created(PacketElement);
    long long const when = 1234567890;
    EXPECT_EQ(0, message->setTime(when));
    long long time = 0;
    EXPECT_EQ(0, message->getTime(time));
    EXPECT_EQ(when, time);
    Cursor cursor = cursorOn(*message);
    long long viaAttr = 0;
    EXPECT_EQ(0, cursor->getAttrTime(viaAttr, TimeAttr));
    EXPECT_EQ(when, viaAttr);
}

TEST(HeaderValues, SetVersion40000WritesTextAndStaysBinary) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setVersion(40000));
    EXPECT_EQ("4.0.0", attribute(*message, VersionAttr));
    int version = 0;
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(40000, version);
    EXPECT_TRUE(isBinary(allocated(*message, 40500)));
}

TEST(HeaderValues, SetVersionBelow40000SendsText) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setVersion(30102));
    EXPECT_EQ("3.1.2", attribute(*message, VersionAttr));
    bool ok = false;
    Bytes const out = allocated(*message, 40500, nullptr, &ok);
    ASSERT_TRUE(ok);
    EXPECT_FALSE(isBinary(out));
}

TEST(HeaderValues, GetVersionAfterCreateIsMinusOne) {
    Message message = created(PacketElement);
    int version = 12;
    EXPECT_EQ(-1, message->getVersion(version));
    EXPECT_EQ(12, version);
}

TEST(HeaderValues, VersionTextIsReadGroupByGroup) {
    Message message = created(PacketElement);
    Cursor cursor = cursorOn(*message);
    int version = -1;
    ASSERT_EQ(0, cursor->putAttr(std::string("4.5"), VersionAttr));
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(405, version);
    ASSERT_EQ(0, cursor->putAttr(std::string(""), VersionAttr));
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(0, version);
    ASSERT_EQ(0, cursor->putAttr(std::string("4.5.0"), VersionAttr));
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(40500, version);
}

TEST(HeaderValues, UidIsPendingUntilSaved) {
    Message message = created(PacketElement);
    std::string value;
    EXPECT_EQ(-1, message->getUid(value));
    EXPECT_EQ(0, message->setUid("user-1"));
    EXPECT_EQ(0, message->getUid(value));
    EXPECT_EQ("user-1", value);
    EXPECT_EQ("<missing>", attribute(*message, UidAttr));
    frameOf(*message);
    EXPECT_EQ("user-1", attribute(*message, UidAttr));
    Message out = sent(*message);
    EXPECT_EQ(0, out->getUid(value));
    EXPECT_EQ("user-1", value);
}

TEST(HeaderValues, SessionIsPendingUntilSaved) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setSession("session-1"));
    std::string value;
    EXPECT_EQ(0, message->getSession(value));
    EXPECT_EQ("session-1", value);
    // The element is written only by saveChanges.
    EXPECT_EQ(-1, message->getSessionID(value));
    frameOf(*message);
    EXPECT_EQ(0, message->getSessionID(value));
    EXPECT_EQ("session-1", value);
    Cursor cursor = cursorOn(*message);
    EXPECT_EQ(0, cursor->getValue(value, SessionElement));
    EXPECT_EQ("session-1", value);
}

TEST(HeaderValues, SetSessionIdWritesElementAtOnce) {
    Message message = created(PacketElement);
    EXPECT_EQ(0, message->setSessionID("session-2"));
    std::string value;
    EXPECT_EQ(0, message->getSessionID(value));
    EXPECT_EQ("session-2", value);
    EXPECT_EQ(0, message->getSession(value));
    EXPECT_EQ("session-2", value);
}

TEST(HeaderValues, EmptySessionElementCountsAsMissing) {
    Message message = created(PacketElement);
    std::string value = "untouched";
    EXPECT_EQ(-1, message->getSession(value));
    EXPECT_EQ(0, message->setSessionID(""));
    EXPECT_EQ(0, message->getSessionID(value));
    EXPECT_EQ("", value);
    EXPECT_EQ(-1, message->getSession(value));
}

TEST(HeaderValues, DroppedSessionReadsEmpty) {
    Message message = created(PacketElement);
    message->setSession("session-1");
    ASSERT_EQ(0, message->create(PacketElement));
    std::string value = "untouched";
    EXPECT_EQ(0, message->getSession(value));
    EXPECT_EQ("", value);
}

TEST(HeaderValues, AttributesKeepOrderOfFirstWrite) {
    Message message = created(PacketElement);
    ASSERT_EQ(0, message->setPriority(1));
    ASSERT_EQ(0, message->setType(2));
    ASSERT_EQ(0, message->setPriority(3));
    Bytes const frame = frameOf(*message);
    // Root at 8, first child at 24, second at 40.
    EXPECT_EQ(static_cast<std::uint32_t>(PriorityAttr), load32(frame, 24));
    EXPECT_EQ(3u, load32(frame, 36));
    EXPECT_EQ(static_cast<std::uint32_t>(TypeAttr), load32(frame, 40));
}

TEST(HeaderValues, SaveChangesOnSharedMessageSeparatesIt) {
    Message original = created(PacketElement);
    AnyMessage copy(original->copy());
    copy->setID("only-the-copy");
    Bytes const copied = frameOf(*static_cast<KVX::KVXBinary *>(copy.get()));
    EXPECT_EQ(48u, frameOf(*original).size());
    EXPECT_GT(copied.size(), 48u);
    std::string value;
    EXPECT_EQ(-1, original->getID(value));
}

TEST(HeaderValues, DocumentWithoutRootFailsWithoutAssert) {
    AssertRecorder recorder;
    Message message = blank();
    int value = 5;
    std::string text = "untouched";
    EXPECT_EQ(-1, message->getPriority(value));
    EXPECT_NE(0, message->setPriority(1));
    EXPECT_EQ(-1, message->getVersion(value));
    EXPECT_NE(0, message->setVersion(40000));
    EXPECT_EQ(-1, message->getSessionID(text));
    EXPECT_NE(0, message->setSessionID("s"));
    EXPECT_EQ(5, value);
    // A pending value with nowhere to go fails the write.
    message->setID("x");
    unsigned long long size = 0;
    EXPECT_EQ(-1, message->serialize(nullptr, &size, nullptr));
    // A frame with the empty flag has no root either.
    Bytes const empty = FrameMaker().name(NodeElement, 0, "node").finish(true);
    ASSERT_EQ(0, message->init(empty.data(), static_cast<int>(empty.size())));
    EXPECT_EQ(-1, message->getType(value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(-1, message->serialize(nullptr, &size, nullptr));
    EXPECT_EQ(0, recorder.fired());
}
