// Frames with inner damage that still add up to their total length: verify
// refuses each of them, init loads them all the same (the load trusts the total
// length), and the whole cursor walk, text output, serialization and grafting
// of the fuzz harness then run over them without a read outside the frame.
// Under `make sanitize` every such read would stop the test.
#include "fuzz/FuzzTargets.h"

#include "binary/WireFormat.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Root 1008 "node" holding 1010 "id" = 42 and 1011 "name" = "abc", with both
// names and "id" in the table. Offsets: root 8, "id" 24, "name" 40, table 56.
std::vector<char> sample() {
    unsigned char const bytes[] = {
        0x98, 0xBA, 0xDC, 0xFE, 0x40, 0x00, 0x00, 0x02, // magic, flags: table 64
        0xF0, 0x03, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00, // root 1008, kind 50
        0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // size 32
        0xF2, 0x03, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, // 1010, KindInt
        0x04, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, // size 4, 42
        0xF3, 0x03, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, // 1011, KindString
        0x04, 0x00, 0x00, 0x00, 'a',  'b',  'c',  0x00, // size 4, "abc"
        0xF3, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1011
        0x05, 0x00, 0x00, 0x00, 'n',  'a',  'm',  'e',  // size 5, "name"
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, //
        0xF2, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1010
        0x03, 0x00, 0x00, 0x00, 'i',  'd',  0x00, 0x00, // size 3, "id"
        0xF0, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1008
        0x05, 0x00, 0x00, 0x00, 'n',  'o',  'd',  'e',  // size 5, "node"
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, //
    };
    return std::vector<char>(bytes, bytes + sizeof bytes);
}

constexpr int IdNode = 24;
constexpr int NameNode = 40;
constexpr int NameEntry = 56;

void put32(std::vector<char> &bytes, std::size_t at, std::uint32_t value) {
    KVX::Internal::store32(bytes.data() + at, value);
}

// Verifies, loads and runs the whole frame harness. The fault offset of
// verify, or 0 when the frame is sound.
int faultOf(std::vector<char> const &bytes) {
    int offset = 0;
    return KVX::KVXBinary::verify(bytes.data(), static_cast<int>(bytes.size()), &offset) == 0
               ? 0
               : offset;
}

int load(std::vector<char> const &bytes) {
    KVX::Fuzz::MessagePtr message = KVX::Fuzz::newMessage();
    return message->init(bytes.data(), static_cast<int>(bytes.size()));
}

void runHarness(std::vector<char> const &bytes) {
    KVX::Fuzz::assertionLog().quiet = true;
    KVX::Fuzz::runGuarded([&] {
        KVX::Fuzz::runFrame(reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size());
    });
}

} // namespace

TEST(DamagedFrame, SampleIsSoundAndWalksWithoutAssertion) {
    std::vector<char> const bytes = sample();
    EXPECT_EQ(0, faultOf(bytes));
    EXPECT_EQ(0, load(bytes));
    KVX::Fuzz::assertionLog().quiet = true;
    EXPECT_TRUE(KVX::Fuzz::runGuarded([&] {
        KVX::Fuzz::runFrame(reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size());
    }));
}

TEST(DamagedFrame, ChildPastItsParentLoadsAndWalksInBounds) {
    std::vector<char> bytes = sample();
    put32(bytes, IdNode + 8, 36); // node size 48 where 32 are left
    EXPECT_EQ(IdNode, faultOf(bytes));
    EXPECT_EQ(0, load(bytes));
    runHarness(bytes);
}

TEST(DamagedFrame, SizeAllOnesLoadsAndWalksInBounds) {
    std::vector<char> bytes = sample();
    put32(bytes, NameNode + 8, 0xFFFFFFFFu);
    EXPECT_EQ(NameNode, faultOf(bytes));
    EXPECT_EQ(0, load(bytes));
    runHarness(bytes);
}

TEST(DamagedFrame, NameTableSizePastTheFrameIsRefusedByTheLoad) {
    std::vector<char> bytes = sample();
    put32(bytes, 4, 0x02000048u); // 72 bytes of table where 64 follow the root
    EXPECT_EQ(static_cast<int>(bytes.size()), faultOf(bytes));
    EXPECT_EQ(-1, load(bytes));
    runHarness(bytes);
}

TEST(DamagedFrame, NameTableSizeIntoTrailingBytesLoadsAndWalksInBounds) {
    std::vector<char> bytes = sample();
    put32(bytes, 4, 0x02000048u);
    bytes.resize(bytes.size() + 8, '\x7F'); // what the flags claim is there
    EXPECT_EQ(120, faultOf(bytes));
    EXPECT_EQ(0, load(bytes));
    runHarness(bytes);
}

TEST(DamagedFrame, NulLessNameLoadsAndWalksInBounds) {
    std::vector<char> bytes = sample();
    bytes[NameEntry + 12 + 4] = 'x'; // "name" loses its NUL
    EXPECT_EQ(NameEntry, faultOf(bytes));
    EXPECT_EQ(0, load(bytes));
    runHarness(bytes);
}
