// Tests of building at the end (binary/BuildingAtEnd.cpp): appendElementAtEnd,
// the parser's append of an element that gets children, against appendAtEnd
// of the same element on a twin document, byte for byte with the counters.
#include "InternalsTestSupport.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/WireFormat.h"

#include <gtest/gtest.h>

#include <string>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int Packet = 1398;
constexpr int NodeElement = 1008;   // "node"
constexpr int IdElement = 1010;     // "id"
constexpr int ServerElement = 1012; // "server"

// Two documents built alike: `quick` takes appendElementAtEnd where `general`
// takes appendAtEnd.
struct Twins {
    KVXBinaryInternals quick;
    BinaryPath quickPath;
    KVXBinaryInternals general;
    BinaryPath generalPath;

    void start() {
        ASSERT_EQ(makeDocument(quick, Packet, quickPath), 0);
        ASSERT_EQ(makeDocument(general, Packet, generalPath), 0);
    }
    // A leaf <node>x</node> under the path's end on both, by appendAtEnd.
    void leaf() {
        ASSERT_EQ(quick.appendAtEnd(quickPath, NodeElement, KindUntyped, "x", 1, true), 0);
        quickPath.entries.pop_back();
        ASSERT_EQ(general.appendAtEnd(generalPath, NodeElement, KindUntyped, "x", 1, true), 0);
        generalPath.entries.pop_back();
    }
    // The element under test on both; both results must agree.
    int element(int id) {
        int const quickResult = quick.appendElementAtEnd(quickPath, id);
        int const generalResult =
            general.appendAtEnd(generalPath, id, KindUntyped, nullptr, 0, false);
        EXPECT_EQ(quickResult, generalResult);
        return quickResult;
    }
    void expectSame() {
        EXPECT_EQ(frameOf(quick), frameOf(general));
        EXPECT_EQ(quick.used, general.used);
        EXPECT_EQ(quick.room, general.room);
        EXPECT_EQ(quick.capacity, general.capacity);
        EXPECT_EQ(quick.stamp, general.stamp);
        ASSERT_EQ(quickPath.entries.size(), generalPath.entries.size());
        for (std::size_t i = 0; i < quickPath.entries.size(); ++i) {
            EXPECT_EQ(quickPath.entries[i].id, generalPath.entries[i].id);
            EXPECT_EQ(quickPath.entries[i].offset, generalPath.entries[i].offset);
        }
        EXPECT_EQ(quick.ids.isRecorded(ServerElement), general.ids.isRecorded(ServerElement));
    }
};

} // namespace

TEST(BuildingAtEnd, ElementWithARecordedNameGivesTheBytesOfAppendAtEnd) {
    Twins twins;
    twins.start();
    twins.leaf();
    ASSERT_GT(twins.quick.room, 0u);
    // "node" is recorded by the leaf before it.
    EXPECT_EQ(twins.element(NodeElement), 0);
    twins.leaf();
    twins.expectSame();
    EXPECT_EQ(twins.quickPath.entries.back().id, NodeElement);
}

TEST(BuildingAtEnd, ElementWhoseNameIsNewRecordsItAsAppendAtEndDoes) {
    Twins twins;
    twins.start();
    twins.leaf();
    ASSERT_FALSE(twins.quick.ids.isRecorded(ServerElement));
    EXPECT_EQ(twins.element(ServerElement), 0);
    EXPECT_TRUE(twins.quick.ids.isRecorded(ServerElement));
    EXPECT_EQ(twins.quick.ids.lookupName(ServerElement).str(), "server");
    twins.leaf();
    twins.expectSame();
}

TEST(BuildingAtEnd, ElementWithoutRoomTakesAppendAtEnd) {
    Twins twins;
    twins.start();
    // No room is open yet: the general way opens it, on both documents.
    twins.quick.closeRoom();
    twins.general.closeRoom();
    ASSERT_EQ(twins.quick.room, 0u);
    EXPECT_EQ(twins.element(IdElement), 0);
    twins.expectSame();
}

TEST(BuildingAtEnd, AttributeIdTakesAppendAtEnd) {
    Twins twins;
    twins.start();
    twins.leaf();
    // Attribute ids record no name: append reports success without one.
    EXPECT_EQ(twins.element(105), 0);
    twins.expectSame();
}

TEST(BuildingAtEnd, ManyElementsAcrossGrowthStayTwins) {
    Twins twins;
    twins.start();
    // Enough elements and leaves for several reallocations of the buffer.
    for (int round = 0; round < 400; ++round) {
        ASSERT_EQ(twins.element(round % 2 == 0 ? ServerElement : NodeElement), 0);
        twins.leaf();
        twins.quickPath.entries.pop_back();
        twins.generalPath.entries.pop_back();
        twins.quick.settleAtEnd(RootOffset);
        twins.general.settleAtEnd(RootOffset);
    }
    EXPECT_GT(twins.quick.capacity, 8192);
    twins.expectSame();
}
