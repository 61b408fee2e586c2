// Tests of the storage of a binary document: construction, the growth rule,
// the reset rule, deep copies, the whole-frame load, and the geometry that is
// read from the frame's head.
#include "InternalsTestSupport.h"

#include "binary/FrameGeometry.h"
#include "binary/KVXBinaryInternals.h"
#include "binary/WireFormat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int Packet = 1398;
constexpr int NodeElement = 1008;

char const *chars(Bytes const &bytes) {
    return reinterpret_cast<char const *>(bytes.data());
}

} // namespace

TEST(KVXBinaryInternals, NewStorageIsBlank) {
    KVXBinaryInternals doc;
    EXPECT_EQ(doc.buffer, nullptr);
    EXPECT_EQ(doc.stamp, 0u);
    EXPECT_EQ(doc.capacity, 0);
    EXPECT_EQ(doc.used, 0);
    EXPECT_EQ(doc.ids.owner, &doc);
    EXPECT_EQ(doc.ids.nextId, -2);
    EXPECT_EQ(doc.ids.version, 40500);
    EXPECT_TRUE(doc.ids.names.empty());
    EXPECT_TRUE(doc.ids.types.empty());
    EXPECT_TRUE(doc.ids.aliases.empty());
    EXPECT_EQ(doc.rootEnd(), 8u);
    EXPECT_EQ(doc.format(), FormatCurrent);
}

TEST(KVXBinaryInternals, ResetOfBlankStorageWritesFreshHeadIn4096Bytes) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    EXPECT_EQ(doc.capacity, 4096);
    EXPECT_EQ(doc.used, 8);
    EXPECT_EQ(doc.stamp, 2u); // the reset and the growth
    Bytes const head{0x98, 0xBA, 0xDC, 0xFE, 0x01, 0x00, 0x00, 0x02};
    EXPECT_EQ(frameOf(doc), head);
    EXPECT_EQ(doc.rootEnd(), 8u);
    EXPECT_EQ(doc.frameEnd(), 8u);
}

TEST(KVXBinaryInternals, ResetGrows4096To8192And8192Stays) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    ASSERT_EQ(doc.capacity, 4096);
    std::uint32_t stamp = doc.stamp;
    ASSERT_EQ(doc.resetBuffer(), 0);
    EXPECT_EQ(doc.capacity, 8192);
    EXPECT_EQ(doc.stamp, stamp + 2);
    stamp = doc.stamp;
    ASSERT_EQ(doc.resetBuffer(), 0);
    EXPECT_EQ(doc.capacity, 8192);
    EXPECT_EQ(doc.stamp, stamp + 1);
    EXPECT_EQ(doc.used, 8);
}

TEST(KVXBinaryInternals, ResetClearsNamesAndAliasesButKeepsTypes) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, NodeElement, path), 0);
    ASSERT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
    ASSERT_EQ(doc.ids.intern(CharArray("alertmType"), TableType), 101);
    doc.ids.version = 30000;
    ASSERT_EQ(doc.resetBuffer(), 0);
    EXPECT_TRUE(doc.ids.names.empty());
    EXPECT_TRUE(doc.ids.aliases.empty());
    EXPECT_EQ(doc.ids.nextId, -2);
    EXPECT_EQ(doc.ids.version, 40500);
    EXPECT_EQ(doc.ids.types.count(101), 1u);
}

TEST(KVXBinaryInternals, GrowthRuleDoublesOrTakesRoundedRequest) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0); // capacity 4096, used 8
    std::uint32_t stamp = doc.stamp;
    EXPECT_TRUE(doc.grow(4087)); // 4096 > 8 + 4087: no allocation
    EXPECT_EQ(doc.capacity, 4096);
    EXPECT_EQ(doc.stamp, stamp);
    EXPECT_TRUE(doc.grow(4088)); // 4096 <= 8 + 4088: doubles
    EXPECT_EQ(doc.capacity, 8192);
    EXPECT_EQ(doc.stamp, stamp + 1);
    stamp = doc.stamp;
    EXPECT_TRUE(doc.grow(9000)); // not below the capacity: 9000 rounded up
    EXPECT_EQ(doc.capacity, 8192 + 12288);
    EXPECT_EQ(doc.stamp, stamp + 1);
}

TEST(KVXBinaryInternals, GrowthZeroesTheNewBytes) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    std::memset(doc.buffer + 8, 0x5A, 4088);
    ASSERT_TRUE(doc.grow(4088));
    ASSERT_EQ(doc.capacity, 8192);
    for (int i = 4096; i < 8192; ++i)
        ASSERT_EQ(doc.buffer[i], 0) << i;
    EXPECT_EQ(static_cast<unsigned char>(doc.buffer[4095]), 0x5A);
}

TEST(KVXBinaryInternals, GrowthPastIntMaxFailsAndKeepsBuffer) {
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.resetBuffer(), 0);
    char *const buffer = doc.buffer;
    std::uint32_t const stamp = doc.stamp;
    EXPECT_FALSE(doc.grow(0x7FFFF000u));
    EXPECT_FALSE(doc.grow(0xFFFFFFFFu));
    EXPECT_EQ(doc.buffer, buffer);
    EXPECT_EQ(doc.capacity, 4096);
    EXPECT_EQ(doc.stamp, stamp);
}

TEST(KVXBinaryInternals, DeepCopyOfUsed4097Has8192AndStampPlusTwo) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    ASSERT_TRUE(doc.grow(5000));
    std::memset(doc.buffer + 48, 0x33, 4097 - 48);
    doc.used = 4097;
    doc.stamp = 70;
    std::unique_ptr<KVXBinaryInternals> copy(doc.deepCopy());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->capacity, 8192);
    EXPECT_EQ(copy->used, 4097);
    EXPECT_EQ(copy->stamp, 72u);
    EXPECT_EQ(frameOf(*copy), frameOf(doc));
    for (int i = 4097; i < 8192; ++i)
        ASSERT_EQ(copy->buffer[i], 0) << i;
}

TEST(KVXBinaryInternals, DeepCopyTakesTheIdMapAndPointsItsNamesAtItself) {
    std::unique_ptr<KVXBinaryInternals> copy;
    {
        KVXBinaryInternals doc;
        BinaryPath path;
        ASSERT_EQ(makeDocument(doc, Packet, path), 0);
        ASSERT_EQ(doc.ids.intern(CharArray("x"), TableElement), -2);
        ASSERT_EQ(doc.ids.intern(CharArray("alertmType"), TableType), 101);
        doc.ids.version = 40000;
        copy.reset(doc.deepCopy());
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->capacity, 4096);
    }
    EXPECT_EQ(copy->ids.owner, copy.get());
    EXPECT_EQ(copy->ids.nextId, -3);
    EXPECT_EQ(copy->ids.version, 40000);
    ASSERT_EQ(copy->ids.names.count(-2), 1u);
    EXPECT_EQ(copy->ids.names.at(-2).owner, copy.get());
    EXPECT_EQ(copy->ids.names.at(-2).text().str(), "x");
    EXPECT_EQ(copy->ids.names.at(Packet).text().str(), "packet");
    EXPECT_EQ(copy->ids.types.at(101).owner, copy.get());
    EXPECT_EQ(copy->ids.lookupId(CharArray("x")), -2); // aliases came along
    EXPECT_EQ(copy->ids.intern(CharArray("y"), TableElement), -3);
}

TEST(KVXBinaryInternals, DeepCopyOfBlankStorageHasNoBuffer) {
    KVXBinaryInternals doc;
    doc.stamp = 9;
    std::unique_ptr<KVXBinaryInternals> copy(doc.deepCopy());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->buffer, nullptr);
    EXPECT_EQ(copy->capacity, 0);
    EXPECT_EQ(copy->used, 0);
    EXPECT_EQ(copy->stamp, 10u);
}

TEST(KVXBinaryInternals, LoadFrameCopiesOneFrameWithTheLoadRule) {
    Bytes const frame = workedExampleFrame();
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.loadFrame(chars(frame), 80), 0);
    EXPECT_EQ(doc.used, 80);
    EXPECT_EQ(doc.capacity, 4096);
    EXPECT_EQ(doc.stamp, 1u); // the growth only
    EXPECT_EQ(frameOf(doc), frame);
    EXPECT_TRUE(doc.ids.names.empty()); // the table is read on demand
    ASSERT_EQ(doc.loadFrame(chars(frame), 80), 0);
    EXPECT_EQ(doc.stamp, 1u); // room enough: no growth
    EXPECT_EQ(doc.capacity, 4096);
}

TEST(KVXBinaryInternals, LoadFrameOfExactly4096BytesTakesThatCapacity) {
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame, 0x02000000u);
    put32(frame, NodeElement);
    put16(frame, KindString);
    put16(frame, 0);
    put32(frame, 4096 - 8 - 12); // one leaf filling the frame
    padTo(frame, 4096);
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.loadFrame(chars(frame), 4096), 0);
    EXPECT_EQ(doc.capacity, 4096);
    EXPECT_EQ(doc.used, 4096);
}

TEST(KVXBinaryInternals, LoadFrameRefusesLengthThatDiffersFromHead) {
    Bytes frame = workedExampleFrame();
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    EXPECT_EQ(doc.loadFrame(chars(frame), 79), -1);
    EXPECT_EQ(doc.used, 0);
    frame.resize(88, 0);
    EXPECT_EQ(doc.loadFrame(chars(frame), 88), -1);
    EXPECT_EQ(doc.used, 0);
    frame = workedExampleFrame();
    frame[0] = 0x99;
    EXPECT_EQ(doc.loadFrame(chars(frame), 80), -1);
    EXPECT_EQ(doc.loadFrame(nullptr, 80), -1);
    EXPECT_EQ(doc.used, 0);
}

TEST(KVXBinaryInternals, LoadFrameFromItsOwnBuffer) {
    KVXBinaryInternals doc;
    Bytes const frame = workedExampleFrame();
    ASSERT_EQ(doc.loadFrame(chars(frame), 80), 0);
    ASSERT_EQ(doc.loadFrame(doc.buffer, 80), 0);
    EXPECT_EQ(frameOf(doc), frame);
}

TEST(KVXBinaryInternals, GeometryOfTheWorkedExample) {
    KVXBinaryInternals doc;
    Bytes const frame = workedExampleFrame();
    ASSERT_EQ(doc.loadFrame(chars(frame), 80), 0);
    EXPECT_EQ(doc.rootEnd(), 40u);
    EXPECT_EQ(doc.frameEnd(), 80u);
    EXPECT_EQ(doc.format(), FormatCurrent);
    binary::Node const child = doc.node(24);
    EXPECT_EQ(child.id(), 1010);
    EXPECT_EQ(child.limit, 80u);
    EXPECT_EQ(measureFrame(chars(frame), 80), 80);
    EXPECT_EQ(rootSectionEnd(chars(frame), 80), 40u);
}

TEST(KVXBinaryInternals, FrameLengthRuleNeedsTwentyBytesAndTheMagic) {
    Bytes const frame = workedExampleFrame();
    EXPECT_EQ(measureFrame(chars(frame), 7), 0);
    EXPECT_EQ(measureFrame(chars(frame), 8), 0);
    EXPECT_EQ(measureFrame(chars(frame), 19), 0);
    EXPECT_EQ(measureFrame(chars(frame), 39), 0); // root not complete
    EXPECT_EQ(measureFrame(chars(frame), 79), 0); // table not complete
    EXPECT_EQ(measureFrame(chars(frame), 200), 80);
    Bytes wrong = frame;
    wrong[3] = 0;
    EXPECT_EQ(measureFrame(chars(wrong), 80), -1);
}

TEST(KVXBinaryInternals, RootRunningPastUsedEndsAtUsed) {
    KVXBinaryInternals doc;
    Bytes const frame = workedExampleFrame();
    ASSERT_EQ(doc.loadFrame(chars(frame), 80), 0);
    store32(doc.buffer + 16, 0x10000000u); // root size far past the frame
    EXPECT_EQ(doc.rootEnd(), 80u);
    EXPECT_EQ(doc.frameEnd(), 120u);      // longer than the frame: edits refuse it
    store32(doc.buffer + 4, 0x02000029u); // empty flag
    EXPECT_EQ(doc.rootEnd(), 8u);
}

TEST(KVXBinaryInternals, LegacyFrameKeepsItsFormat) {
    Bytes frame;
    put32(frame, FrameMagic);
    put32(frame, 0x00000000u);
    put32(frame, NodeElement);
    put16(frame, KindStructure);
    put16(frame, 0);
    put32(frame, 24);
    padTo(frame, 24);
    put32(frame, 1010);
    put16(frame, KindInt);
    put16(frame, 0);
    put32(frame, 4);
    put32(frame, 42);
    padTo(frame, 48); // the child takes 24 bytes in this layout
    KVXBinaryInternals doc;
    ASSERT_EQ(doc.loadFrame(chars(frame), 48), 0);
    EXPECT_EQ(doc.format(), FormatLegacy);
    EXPECT_EQ(doc.rootEnd(), 48u);
    EXPECT_EQ(doc.node(24).nodeSize(), 24u);
}
