// Tests of framing: the frame length rule of isComplete, both serialize forms
// with their size query, capacity and version rules, whole-frame deserialize
// and init, the worked example against its golden file, and the safe answers
// to lengths and offsets that lie.
#include "binary/DocumentTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

using namespace doctests;

namespace {

int isComplete(Bytes const &bytes) {
    return KVX::KVXBinary::isComplete(bytes.data(), static_cast<int>(bytes.size()));
}

// A head and a root header of kind `kind` whose size field is `size`.
Bytes headWithRootSize(std::uint32_t size, unsigned kind, std::size_t length) {
    Bytes bytes(length, 0);
    store32(bytes, 0, 0xFEDCBA98u);
    store32(bytes, 4, 0x02000000u);
    store32(bytes, 8, NodeElement);
    bytes[12] = static_cast<char>(kind);
    store32(bytes, 16, size);
    return bytes;
}

} // namespace

// --- isComplete ---------------------------------------------------------------

TEST(Framing, IsCompleteOnSevenBytesIsZero) {
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 7));
    Bytes const garbage(7, 'x');
    EXPECT_EQ(0, isComplete(garbage));
}

TEST(Framing, IsCompleteOnEightHeadBytesIsZero) {
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 8));
}

TEST(Framing, IsCompleteOnSevenTextBytesWithNulAtTwoIsZero) {
    Bytes const text = {'a', 'b', '\0', 'c', 'd', 'e', 'f'};
    EXPECT_EQ(0, isComplete(text));
}

TEST(Framing, IsCompleteWrongMagicWithNulAtTwoGivesThree) {
    Bytes const text = {'a', 'b', '\0', 'c', 'd', 'e', 'f', 'g'};
    EXPECT_EQ(3, isComplete(text));
    Bytes longer = text;
    longer.resize(64, 'z');
    EXPECT_EQ(3, isComplete(longer));
}

TEST(Framing, IsCompleteTextWithoutNulIsZero) {
    Bytes const text(100, 'x');
    EXPECT_EQ(0, isComplete(text));
}

TEST(Framing, IsCompleteGivesFrameLength) {
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(80, isComplete(golden));
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 79));
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 19));
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 39));
}

TEST(Framing, IsCompleteIgnoresNextFrame) {
    Bytes stream = readDataFile("worked_example.bin");
    Bytes const second = stream;
    stream.insert(stream.end(), second.begin(), second.end());
    EXPECT_EQ(80, isComplete(stream));
}

TEST(Framing, IsCompleteEmptyFrameWithNameTableNeedsTwentyBytes) {
    Bytes const frame = FrameMaker().name(NodeElement, 0, "node").finish(true);
    ASSERT_EQ(32u, frame.size()); // head and one 24-byte entry
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(frame.data(), 19));
    EXPECT_EQ(32, isComplete(frame));
}

TEST(Framing, IsCompleteNegativeLengthIsZero) {
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), -1));
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), INT_MIN));
}

TEST(Framing, IsCompleteReadsOnlyTheHeadOfAnOverstatedLength) {
    // The buffer holds 20 bytes; the length claims far more. Only the head and
    // the root header are read, and the frame they describe is what counts.
    Bytes const frame = headWithRootSize(0, 50, 20);
    EXPECT_EQ(24, KVX::KVXBinary::isComplete(frame.data(), INT_MAX));
}

TEST(Framing, RootSizeNearFourGigabytesIsIncomplete) {
    // In 32 bits, 12 + 0xFFFFFFFF + 7 wraps to 18 and 16 + 0xFFFFFFF8 + 7 to 15,
    // which would make these heads look like complete frames of 24 and 16 bytes.
    Bytes const leaf = headWithRootSize(0xFFFFFFFFu, 1, 24);
    EXPECT_EQ(0, isComplete(leaf));
    Bytes const container = headWithRootSize(0xFFFFFFF8u, 50, 24);
    EXPECT_EQ(0, isComplete(container));
}

TEST(Framing, DeserializeRefusesRootSizeNearFourGigabytes) {
    Bytes const container = headWithRootSize(0xFFFFFFF8u, 50, 24);
    Message message = blank();
    EXPECT_EQ(-1, message->init(container.data(), static_cast<int>(container.size())));
}

TEST(Framing, MessageIsCompleteUsesBinaryRule) {
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(80, KVX::KVXMessage::isComplete(golden.data(), static_cast<int>(golden.size())));
}

// --- the worked example ---------------------------------------------------------

TEST(Framing, WorkedExampleMatchesGoldenFile) {
    Bytes const golden = readDataFile("worked_example.bin");
    ASSERT_EQ(80u, golden.size());
    Message message = workedExample();
    EXPECT_EQ(golden, frameOf(*message));
    EXPECT_EQ(golden, allocated(*message, 40500));
}

TEST(Framing, WorkedExampleLoadsAndWritesBackUnchanged) {
    Bytes const golden = readDataFile("worked_example.bin");
    Message message = blank();
    ASSERT_EQ(0, message->init(golden.data(), static_cast<int>(golden.size())));
    EXPECT_EQ(golden, frameOf(*message));
    Cursor cursor = cursorOn(*message);
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

// --- serialize into a caller's buffer -------------------------------------------

TEST(Framing, SizeQueryGivesMinusTwoAndUsedLength) {
    Message message = workedExample();
    unsigned long long size = 0;
    EXPECT_EQ(-2, message->serialize(nullptr, &size, nullptr));
    EXPECT_EQ(80u, size);
}

TEST(Framing, ExactCapacitySucceedsOneShortFails) {
    Message message = workedExample();
    unsigned long long size = 0;
    ASSERT_EQ(-2, message->serialize(nullptr, &size, nullptr));

    Bytes shortBuffer(static_cast<std::size_t>(size), '\xAA');
    unsigned long long shortSize = size - 1;
    EXPECT_EQ(-1, message->serialize(shortBuffer.data(), &shortSize, nullptr));
    EXPECT_EQ(size - 1, shortSize);
    EXPECT_EQ(Bytes(static_cast<std::size_t>(size), '\xAA'), shortBuffer);

    Bytes exact(static_cast<std::size_t>(size));
    unsigned long long exactSize = size;
    EXPECT_EQ(0, message->serialize(exact.data(), &exactSize, nullptr));
    EXPECT_EQ(size, exactSize);
    EXPECT_EQ(readDataFile("worked_example.bin"), exact);
}

TEST(Framing, FixedBufferCapacityIsLowThirtyTwoBitsOfSize) {
    Message message = workedExample();
    Bytes buffer(80);
    unsigned long long size = (1ull << 32) + 79;
    EXPECT_EQ(-1, message->serialize(buffer.data(), &size, nullptr));
    size = (1ull << 32) + 80;
    EXPECT_EQ(0, message->serialize(buffer.data(), &size, nullptr));
    EXPECT_EQ(80u, size);
}

TEST(Framing, FixedBufferIsBinaryWhateverTheVersion) {
    Message message = workedExample();
    ASSERT_EQ(0, message->setVersion(30000));
    Bytes const frame = frameOf(*message);
    ASSERT_TRUE(isBinary(frame));
    EXPECT_EQ(0x02u, flagsOf(frame) >> 24);
}

TEST(Framing, FixedBufferRefusesDocumentWithoutRoot) {
    Message message = blank();
    unsigned long long size = 0;
    EXPECT_EQ(-1, message->serialize(nullptr, &size, nullptr));
    Bytes const empty = FrameMaker().name(NodeElement, 0, "node").finish(true);
    ASSERT_EQ(0, message->init(empty.data(), static_cast<int>(empty.size())));
    EXPECT_EQ(-1, message->serialize(nullptr, &size, nullptr));
    char buffer[64];
    size = sizeof buffer;
    EXPECT_EQ(-1, message->serialize(buffer, &size, nullptr));
}

TEST(Framing, FixedBufferOfLegacyDocumentKeepsLegacySizesUnderFormatTwo) {
    Bytes const legacy = legacyWorkedExample();
    Message message = blank();
    ASSERT_EQ(0, message->init(legacy.data(), static_cast<int>(legacy.size())));
    Bytes const frame = frameOf(*message);
    ASSERT_EQ(legacy.size(), frame.size());
    EXPECT_EQ(0x02u, flagsOf(frame) >> 24);
    // Everything but the format byte is the legacy frame, node sizes included.
    Bytes expected = legacy;
    expected[7] = 0x02;
    EXPECT_EQ(expected, frame);
}

TEST(Framing, FixedBufferForeignFromAssertsAndFails) {
    Message message = workedExample();
    ForeignCursor foreign;
    AssertRecorder recorder;
    unsigned long long size = 0;
    EXPECT_EQ(-1, message->serialize(nullptr, &size, &foreign));
    EXPECT_EQ(1, recorder.fired());
}

TEST(Framing, SerializeFromOffsetBehindRootSectionFails) {
    Message message = workedExample();
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(0, cursor->seek(IdElement));
    // Offsets at the name table, beyond the frame, and one whose node would
    // reach past the root section.
    for (unsigned offset : {40u, 56u, 4000u, 0xFFFFFFF0u, 36u}) {
        cursor->binaryPath().entries.back().offset = offset;
        unsigned long long size = 0;
        EXPECT_EQ(-1, message->serialize(nullptr, &size, cursor.get())) << offset;
        Bytes buffer(256);
        size = buffer.size();
        EXPECT_EQ(-1, message->serialize(buffer.data(), &size, cursor.get())) << offset;
        bool ok = true;
        allocated(*message, 40500, cursor.get(), &ok);
        EXPECT_FALSE(ok) << offset;
    }
}

// --- the allocating form --------------------------------------------------------

TEST(Framing, Versions40000And40500GiveSameBytes) {
    Message message = workedExample();
    Bytes const at40500 = allocated(*message, 40500);
    Bytes const at40000 = allocated(*message, 40000);
    ASSERT_TRUE(isBinary(at40500));
    EXPECT_EQ(at40500, at40000);
    EXPECT_EQ(frameOf(*message), at40500);
}

TEST(Framing, Version39999GivesText) {
    Message message = workedExample();
    bool ok = false;
    Bytes const text = allocated(*message, 39999, nullptr, &ok);
    ASSERT_TRUE(ok);
    ASSERT_FALSE(text.empty());
    EXPECT_FALSE(isBinary(text));
    EXPECT_EQ('<', text.front());
    EXPECT_EQ(std::string::npos, std::string(text.begin(), text.end()).find('\0'));
}

TEST(Framing, DocumentVersion40000IsWrittenAt40000WithSameBytes) {
    Message message = workedExample();
    ASSERT_EQ(0, message->setVersion(40000));
    Bytes const asked40500 = allocated(*message, 40500);
    ASSERT_TRUE(isBinary(asked40500));
    EXPECT_EQ(allocated(*message, 40000), asked40500);
    EXPECT_EQ(frameOf(*message), asked40500);
}

TEST(Framing, SubtreeCarriesWholeNameTable) {
    Message message = created(PacketElement);
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(0, cursor->newChild(NodeElement));
    ASSERT_EQ(0, cursor->putValue(42, IdElement));
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, cursor->putValue(std::string("elsewhere"), OriginElement));
    ASSERT_EQ(0, cursor->seek(NodeElement));

    Bytes const whole = frameOf(*message);
    Bytes const subtree = allocated(*message, 40500, cursor.get());
    ASSERT_TRUE(isBinary(subtree));
    // Root "node" (16 + 16 bytes), then the table of the whole document, with
    // "packet" and "origin" that the subtree does not use.
    ASSERT_EQ(8u + 32u + tableSizeOf(whole), subtree.size());
    EXPECT_EQ(tableSizeOf(whole), tableSizeOf(subtree));
    EXPECT_EQ(0u, flagsOf(subtree) & 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(NodeElement), load32(subtree, 8));
    Bytes const wholeTable(whole.end() - tableSizeOf(whole), whole.end());
    Bytes const subtreeTable(subtree.begin() + 40, subtree.end());
    EXPECT_EQ(wholeTable, subtreeTable);
    // The fixed-buffer form writes the same frame.
    unsigned long long size = 0;
    ASSERT_EQ(-2, message->serialize(nullptr, &size, cursor.get()));
    Bytes fixed(static_cast<std::size_t>(size));
    ASSERT_EQ(0, message->serialize(fixed.data(), &size, cursor.get()));
    EXPECT_EQ(subtree, fixed);
}

TEST(Framing, LeafSubtreeFrameHasLeafRoot) {
    Message message = workedExample();
    Cursor cursor = cursorOn(*message);
    ASSERT_EQ(0, cursor->seek(IdElement));
    char *out = nullptr;
    int length = 0;
    ASSERT_EQ(0, cursor->serializeFromChild(&out, &length));
    Bytes const frame(out, out + length);
    std::free(out);
    ASSERT_EQ(8u + 16u + 40u, frame.size());
    EXPECT_EQ(0x02000028u, flagsOf(frame)); // empty flag clear, table of 40 bytes
    EXPECT_EQ(static_cast<std::uint32_t>(IdElement), load32(frame, 8));
    EXPECT_EQ(1u, load16(frame, 12));
    EXPECT_EQ(4u, load32(frame, 16));
    EXPECT_EQ(42u, load32(frame, 20));
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_EQ(Bytes(golden.begin() + 40, golden.end()), Bytes(frame.begin() + 24, frame.end()));
}

TEST(Framing, AllocatingFormSetsOutputsOnFailure) {
    Message message = blank();
    char *out = reinterpret_cast<char *>(&message);
    int length = 99;
    EXPECT_EQ(-1, message->serialize(&out, &length, nullptr, 40500));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(0, length);
}

TEST(Framing, AllocatingFormRefusesDocumentWithoutRoot) {
    Bytes const empty = FrameMaker().name(NodeElement, 0, "node").finish(true);
    Message message = blank();
    ASSERT_EQ(0, message->init(empty.data(), static_cast<int>(empty.size())));
    bool ok = true;
    allocated(*message, 40500, nullptr, &ok);
    EXPECT_FALSE(ok);
}

TEST(Framing, AllocatingFormTreatsForeignFromAsWholeMessage) {
    Message message = workedExample();
    ForeignCursor foreign;
    EXPECT_EQ(frameOf(*message), allocated(*message, 40500, &foreign));
}

TEST(Framing, AllocatingFormRefusesLostFrom) {
    Message message = created(NodeElement);
    Cursor writer = cursorOn(*message);
    Cursor reader = cursorOn(*message);
    ASSERT_EQ(0, writer->putValue(std::string("short"), IdElement));
    ASSERT_EQ(0, writer->putValue(1, RestoreElement));
    ASSERT_EQ(0, reader->seek(RestoreElement));
    // Growing the first child moves the node the reader stands on.
    ASSERT_EQ(0, writer->putValue(std::string("a much longer text"), IdElement));
    char *out = reinterpret_cast<char *>(&message);
    int length = 99;
    EXPECT_EQ(-1, message->serialize(&out, &length, reader.get(), 40500));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(0, length);
}

// --- deserialize and init -------------------------------------------------------

TEST(Framing, TrailingBytesAreIgnored) {
    Bytes stream = readDataFile("worked_example.bin");
    stream.insert(stream.end(), 16, '\x55');
    Message message = blank();
    ASSERT_EQ(0, message->deserialize(stream.data(), static_cast<int>(stream.size())));
    EXPECT_EQ(readDataFile("worked_example.bin"), frameOf(*message));
}

TEST(Framing, PartialFrameIsRefused) {
    Bytes const golden = readDataFile("worked_example.bin");
    Message message = blank();
    EXPECT_EQ(0, KVX::KVXBinary::isComplete(golden.data(), 79));
    EXPECT_EQ(-1, message->deserialize(golden.data(), 79));
    EXPECT_EQ(-1, message->deserialize(golden.data(), 8));
}

TEST(Framing, RefusedFrameLeavesDocumentUnchanged) {
    Message message = workedExample();
    Bytes broken = readDataFile("worked_example.bin");
    // The head claims 8 bytes of table more than the buffer holds: the frame is
    // incomplete and refused before the old content is dropped.
    store32(broken, 4, 0x02000030u);
    EXPECT_EQ(-1, message->init(broken.data(), static_cast<int>(broken.size())));
    EXPECT_EQ(readDataFile("worked_example.bin"), frameOf(*message));
}

TEST(Framing, NegativeLengthIsRefused) {
    Bytes const golden = readDataFile("worked_example.bin");
    Message message = blank();
    EXPECT_EQ(-1, message->init(golden.data(), -1));
    EXPECT_EQ(-1, message->init(golden.data(), INT_MIN));
    EXPECT_EQ(-1, message->init(golden.data(), 0));
}

TEST(Framing, InitTextWithNulGoesThroughFromText) {
    std::string const text = "<node><id>42</id></node>";
    Bytes bytes(text.begin(), text.end());
    bytes.push_back('\0');
    Message message = blank();
    ASSERT_EQ(0, message->init(bytes.data(), static_cast<int>(bytes.size())));
    Cursor cursor = cursorOn(*message);
    EXPECT_EQ(NodeElement, cursor->curID());
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(Framing, TextWithoutNulIsRefused) {
    std::string const text = "<node><id>42</id></node>";
    // Exactly the characters, no terminator inside the length.
    Bytes const bytes(text.begin(), text.end());
    Message message = blank();
    EXPECT_EQ(-1, message->init(bytes.data(), static_cast<int>(bytes.size())));
}

TEST(Framing, ShortTextIsRefusedBeforeItsNul) {
    // Fewer than 8 bytes answer "more needed", even with a NUL among them.
    char const text[] = "<a/>";
    Message message = blank();
    EXPECT_EQ(-1, message->init(text, static_cast<int>(sizeof text)));
}

TEST(Framing, VersionAttributeSetsDocumentVersion) {
    Bytes const v400 = FrameMaker()
                           .open(NodeElement)
                           .text(101, "4.0.0")
                           .int32(IdElement, 42)
                           .close()
                           .name(NodeElement, 0, "node")
                           .name(IdElement, 0, "id")
                           .finish();
    Message message = blank();
    ASSERT_EQ(0, message->init(v400.data(), static_cast<int>(v400.size())));
    int version = 0;
    EXPECT_EQ(0, message->getVersion(version));
    EXPECT_EQ(40000, version);
    EXPECT_TRUE(isBinary(allocated(*message, 40500)));

    // The number comes from the attribute: "3.9.9" sends this document as text.
    Bytes const v399 = FrameMaker()
                           .open(NodeElement)
                           .text(101, "3.9.9")
                           .close()
                           .name(NodeElement, 0, "node")
                           .finish();
    ASSERT_EQ(0, message->init(v399.data(), static_cast<int>(v399.size())));
    bool ok = false;
    Bytes const text = allocated(*message, 40500, nullptr, &ok);
    ASSERT_TRUE(ok);
    EXPECT_FALSE(isBinary(text));
}

TEST(Framing, LegacyFrameWithoutVersionIsVersionZeroAndGoesAsText) {
    Bytes const legacy = legacyWorkedExample();
    ASSERT_EQ(static_cast<int>(legacy.size()), isComplete(legacy));
    Message message = blank();
    ASSERT_EQ(0, message->init(legacy.data(), static_cast<int>(legacy.size())));
    int version = 7;
    EXPECT_EQ(-1, message->getVersion(version));
    EXPECT_EQ(7, version);
    Cursor cursor = cursorOn(*message);
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
    bool ok = false;
    Bytes const text = allocated(*message, 40500, nullptr, &ok);
    ASSERT_TRUE(ok);
    ASSERT_FALSE(text.empty());
    EXPECT_FALSE(isBinary(text));
    EXPECT_EQ('<', text.front());
}

TEST(Framing, FormatTwoFrameWithoutVersionIsCurrentVersion) {
    Bytes const golden = readDataFile("worked_example.bin");
    Message message = blank();
    ASSERT_EQ(0, message->init(golden.data(), static_cast<int>(golden.size())));
    EXPECT_EQ(golden, allocated(*message, 40500));
}

TEST(Framing, DeserializeKeepsPendingHeaderValues) {
    Message message = created(PacketElement);
    message->setID("pending");
    Bytes const golden = readDataFile("worked_example.bin");
    ASSERT_EQ(0, message->init(golden.data(), static_cast<int>(golden.size())));
    std::string value;
    EXPECT_EQ(0, message->getID(value));
    EXPECT_EQ("pending", value);
    // The pending id goes into the loaded document at the next write.
    Bytes const frame = frameOf(*message);
    EXPECT_GT(frame.size(), golden.size());
    Message reloaded = blank();
    ASSERT_EQ(0, reloaded->init(frame.data(), static_cast<int>(frame.size())));
    EXPECT_EQ(0, reloaded->getID(value));
    EXPECT_EQ("pending", value);
}
