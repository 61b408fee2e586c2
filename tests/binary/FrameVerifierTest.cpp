// Tests of KVXBinary::verify: the worked example and well-formed frames pass;
// each class of damage is refused with the status and the offset of its first
// fault; each hard limit is accepted at its value and refused one step past it.
#include <kvx/KVXBinary.h>

#include "binary/FrameLimits.h"
#include "binary/FrameVerifier.h"
#include "binary/WireFormat.h"
#include "text/TextLimits.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using KVX::KVXBinary;
using KVX::Internal::FrameFault;
using KVX::Internal::MaxFrameLength;
using KVX::Internal::MaxNestingDepth;
using KVX::Internal::MaxTableNameLength;

namespace {

// The worked example of docs/format.md: root 1008 "node" holding 1010 "id" = 42.
std::vector<char> workedExample() {
    unsigned char const bytes[80] = {
        0x98, 0xBA, 0xDC, 0xFE, 0x28, 0x00, 0x00, 0x02, // magic, flags
        0xF0, 0x03, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00, // root 1008, kind 50
        0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // size 16, padding
        0xF2, 0x03, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, // child 1010, kind 1
        0x04, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, // size 4, 42
        0xF2, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1010, kind 0
        0x03, 0x00, 0x00, 0x00, 'i',  'd',  0x00, 0x00, // size 3, "id"
        0xF0, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entry 1008, kind 0
        0x05, 0x00, 0x00, 0x00, 'n',  'o',  'd',  'e',  // size 5, "node"
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // NUL, padding
    };
    return std::vector<char>(bytes, bytes + sizeof bytes);
}

// Offsets in the worked example.
constexpr int ChildOffset = 24;
constexpr int FirstEntry = 40;
constexpr int SecondEntry = 56;

void put16(std::vector<char> &bytes, std::size_t at, std::uint16_t value) {
    KVX::Internal::store16(bytes.data() + at, value);
}
void put32(std::vector<char> &bytes, std::size_t at, std::uint32_t value) {
    KVX::Internal::store32(bytes.data() + at, value);
}

// Builds frames node by node, in either layout, computing the sizes that a
// test does not set on purpose.
class FrameBuilder {
public:
    explicit FrameBuilder(unsigned frameFormat = KVX::Internal::FormatCurrent)
        : bytes(8, 0), format(frameFormat), tableStart(0) {}

    // A leaf whose value is exactly `value`.
    std::uint32_t leaf(int id, unsigned short kind, std::string const &value,
                       unsigned short ns = 0) {
        std::uint32_t const at = static_cast<std::uint32_t>(bytes.size());
        std::uint32_t const size = static_cast<std::uint32_t>(value.size());
        std::uint32_t const header = KVX::Internal::headerSize(size, kind);
        bytes.resize(at + KVX::Internal::nodeSize(size, kind, format), 0);
        header4(at, id, kind, ns, size);
        std::copy(value.begin(), value.end(), bytes.begin() + at + header);
        return at;
    }
    // A container whose size close() sets.
    std::uint32_t open(int id, unsigned short kind = KVX::Internal::KindStructure,
                       unsigned short ns = 0) {
        std::uint32_t const at = static_cast<std::uint32_t>(bytes.size());
        bytes.resize(at + KVX::Internal::LongHeaderSize, 0);
        header4(at, id, kind, ns, 0);
        return at;
    }
    void close(std::uint32_t at) {
        put32(bytes, at + 8,
              static_cast<std::uint32_t>(bytes.size() - at - KVX::Internal::LongHeaderSize));
    }
    // Bytes that belong to no node.
    void gap(std::size_t count) { bytes.resize(bytes.size() + count, 0); }
    // The name table starts here.
    void table() { tableStart = static_cast<std::uint32_t>(bytes.size()); }
    std::uint32_t entry(int id, int tableKind, std::string const &name) {
        return leaf(id, static_cast<unsigned short>(tableKind), name + '\0');
    }
    // Writes the head; the table runs from table() to the end.
    std::vector<char> finish(bool empty = false) {
        put32(bytes, 0, KVX::Internal::FrameMagic);
        std::uint32_t const tableSize = static_cast<std::uint32_t>(bytes.size()) - tableStart;
        put32(bytes, 4, (format << 24) | tableSize | (empty ? 1u : 0u));
        return bytes;
    }

private:
    void header4(std::uint32_t at, int id, unsigned short kind, unsigned short ns,
                 std::uint32_t size) {
        put32(bytes, at, static_cast<std::uint32_t>(id));
        put16(bytes, at + 4, kind);
        put16(bytes, at + 6, ns);
        put32(bytes, at + 8, size);
    }

    std::vector<char> bytes;
    unsigned format;
    std::uint32_t tableStart;
};

// The status, offset and fault class of verify over the first `length` bytes
// (all of them by default).
struct Outcome {
    int status;
    int offset;
    FrameFault fault;
};

constexpr int Untouched = -12345;

Outcome verifyBytes(std::vector<char> const &bytes, int length = -1) {
    int const count = length < 0 ? static_cast<int>(bytes.size()) : length;
    Outcome out{0, Untouched, FrameFault::None};
    out.status = KVXBinary::verify(bytes.data(), count, &out.offset);
    out.fault = KVX::Internal::verifyFrame(bytes.data(), count).fault;
    return out;
}

#define EXPECT_FAULT(outcome, expectedOffset, expectedFault)                                       \
    do {                                                                                           \
        Outcome const got = (outcome);                                                             \
        EXPECT_EQ(-1, got.status);                                                                 \
        EXPECT_EQ(expectedOffset, got.offset);                                                     \
        EXPECT_EQ(expectedFault, got.fault);                                                       \
    } while (false)

#define EXPECT_SOUND(outcome)                                                                      \
    do {                                                                                           \
        Outcome const got = (outcome);                                                             \
        EXPECT_EQ(0, got.status);                                                                  \
        EXPECT_EQ(Untouched, got.offset);                                                          \
        EXPECT_EQ(FrameFault::None, got.fault);                                                    \
    } while (false)

// A root 1008 holding `depth` - 1 nested containers 1008, `depth` levels in all.
std::vector<char> nested(std::uint32_t depth) {
    FrameBuilder frame;
    std::vector<std::uint32_t> opened;
    for (std::uint32_t level = 0; level < depth; ++level)
        opened.push_back(frame.open(1008));
    for (auto it = opened.rbegin(); it != opened.rend(); ++it)
        frame.close(*it);
    frame.table();
    frame.entry(1008, 0, "node");
    return frame.finish();
}

// A 20-byte head whose root container claims `rootSize` bytes of value and
// whose flags claim `tableSize` bytes of name table.
std::vector<char> claimedHead(std::uint32_t rootSize, std::uint32_t tableSize) {
    std::vector<char> bytes(20, 0);
    put32(bytes, 0, KVX::Internal::FrameMagic);
    put32(bytes, 4, 0x02000000u | tableSize);
    put32(bytes, 8, 1008);
    put16(bytes, 12, KVX::Internal::KindStructure);
    put32(bytes, 16, rootSize);
    return bytes;
}

} // namespace

TEST(FrameVerifier, WorkedExampleIsSound) {
    EXPECT_SOUND(verifyBytes(workedExample()));
}

TEST(FrameVerifier, NullFaultOffsetIsAllowed) {
    std::vector<char> bytes = workedExample();
    EXPECT_EQ(0, KVXBinary::verify(bytes.data(), 80));
    bytes[0] = 0;
    EXPECT_EQ(-1, KVXBinary::verify(bytes.data(), 80));
}

TEST(FrameVerifier, TrailingBytesAreNotLookedAt) {
    std::vector<char> bytes = workedExample();
    bytes.resize(bytes.size() + 24, '\xFF');
    EXPECT_SOUND(verifyBytes(bytes));
}

TEST(FrameVerifier, TruncatedFrameFaultsAtTheGivenLength) {
    std::vector<char> const bytes = workedExample();
    EXPECT_FAULT(verifyBytes(bytes, 79), 79, FrameFault::Truncated);
    EXPECT_FAULT(verifyBytes(bytes, 40), 40, FrameFault::Truncated); // root whole, table missing
    EXPECT_FAULT(verifyBytes(bytes, 39), 39, FrameFault::Truncated); // root cut
    EXPECT_FAULT(verifyBytes(bytes, 19), 19, FrameFault::Truncated); // root header cut
    EXPECT_FAULT(verifyBytes(bytes, 8), 8, FrameFault::Truncated);   // head only
    EXPECT_FAULT(verifyBytes(bytes, 7), 7, FrameFault::Truncated);   // head cut
    EXPECT_FAULT(verifyBytes(bytes, 0), 0, FrameFault::Truncated);
}

TEST(FrameVerifier, NullBufferOrNegativeLengthHoldsNoBytes) {
    int offset = Untouched;
    EXPECT_EQ(-1, KVXBinary::verify(nullptr, 80, &offset));
    EXPECT_EQ(0, offset);
    std::vector<char> const bytes = workedExample();
    offset = Untouched;
    EXPECT_EQ(-1, KVXBinary::verify(bytes.data(), -1, &offset));
    EXPECT_EQ(0, offset);
}

TEST(FrameVerifier, WrongMagicFaultsAtZero) {
    std::vector<char> bytes = workedExample();
    bytes[3] = 0x7E;
    EXPECT_FAULT(verifyBytes(bytes), 0, FrameFault::BadMagic);
    // Text is no frame either, though isComplete accepts it.
    std::vector<char> const text = {'<', 'a', '/', '>', '\0', 0, 0, 0};
    EXPECT_FAULT(verifyBytes(text), 0, FrameFault::BadMagic);
}

TEST(FrameVerifier, HeadOnlyFrameIsNeverComplete) {
    std::vector<char> bytes(8, 0);
    put32(bytes, 0, KVX::Internal::FrameMagic);
    put32(bytes, 4, KVX::Internal::FreshFlags);
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::Truncated);
}

TEST(FrameVerifier, HeadOnlyFrameBeforeOtherBytesIsNeverComplete) {
    // The framing rule measures this frame as 8 bytes, but those 8 bytes alone
    // are never complete: such a frame cannot be handed on.
    std::vector<char> bytes = workedExample();
    put32(bytes, 4, KVX::Internal::FreshFlags);
    ASSERT_EQ(8, KVXBinary::isComplete(bytes.data(), 80));
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::Truncated);
}

TEST(FrameVerifier, ChildPastItsParentFaultsAtTheChild) {
    std::vector<char> bytes = workedExample();
    put32(bytes, ChildOffset + 8, 20); // node size 32 in a parent with 16 left
    EXPECT_FAULT(verifyBytes(bytes), ChildOffset, FrameFault::NodeOutsideParent);
}

TEST(FrameVerifier, SecondChildPastItsParentFaultsAtThatChild) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\0'));
    std::uint32_t const second = frame.leaf(1010, KVX::Internal::KindString, "abc");
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    std::vector<char> bytes = frame.finish();
    EXPECT_SOUND(verifyBytes(bytes));
    put32(bytes, second + 8, 5); // 12 + 5 rounds up to 24, 16 are left
    EXPECT_FAULT(verifyBytes(bytes), static_cast<int>(second), FrameFault::NodeOutsideParent);
}

TEST(FrameVerifier, SizeAllOnesOnAChildFaultsAtTheChild) {
    std::vector<char> bytes = workedExample();
    put32(bytes, ChildOffset + 8, 0xFFFFFFFFu);
    EXPECT_FAULT(verifyBytes(bytes), ChildOffset, FrameFault::NodeOutsideParent);
}

TEST(FrameVerifier, SizeAllOnesOnTheRootIsTooLong) {
    std::vector<char> bytes = workedExample();
    put32(bytes, 16, 0xFFFFFFFFu);
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::FrameTooLong);
}

TEST(FrameVerifier, ContainerWithAGapFaultsAtTheContainer) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    std::uint32_t const inner = frame.open(1008);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\0'));
    frame.gap(8); // the inner size counts 8 bytes that no child fills
    frame.close(inner);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\0'));
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    EXPECT_FAULT(verifyBytes(frame.finish()), static_cast<int>(inner), FrameFault::SizeNotSum);
}

TEST(FrameVerifier, RootWithAGapFaultsAtTheRoot) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\0'));
    frame.gap(8);
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    EXPECT_FAULT(verifyBytes(frame.finish()), 8, FrameFault::SizeNotSum);
}

TEST(FrameVerifier, ContainerSizeNotAMultipleOfEightFaultsAtTheContainer) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    std::uint32_t const inner = frame.open(1008);
    frame.close(inner);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\0'));
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    std::vector<char> bytes = frame.finish();
    EXPECT_SOUND(verifyBytes(bytes));
    put32(bytes, inner + 8, 4); // node size 24: it still fits the root
    EXPECT_FAULT(verifyBytes(bytes), static_cast<int>(inner), FrameFault::SizeNotSum);
}

TEST(FrameVerifier, UnknownKindFaultsAtTheNode) {
    for (unsigned short kind : {7, 49, 52, 100}) {
        std::vector<char> bytes = workedExample();
        put16(bytes, ChildOffset + 4, kind);
        SCOPED_TRACE(kind);
        EXPECT_FAULT(verifyBytes(bytes), ChildOffset, FrameFault::UnknownKind);
    }
}

TEST(FrameVerifier, EveryLeafKindIsKnown) {
    for (unsigned short kind : {0, 1, 2, 3, 4, 5, 6, 51}) {
        std::vector<char> bytes = workedExample();
        put16(bytes, ChildOffset + 4, kind);
        SCOPED_TRACE(kind);
        EXPECT_SOUND(verifyBytes(bytes));
    }
}

TEST(FrameVerifier, DynamicComplexTypeNeedsATypeEntry) {
    std::vector<char> bytes = workedExample();
    put16(bytes, 12, 0xFFFE); // the root becomes a container of dynamic type 65534
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::Unnamed);

    FrameBuilder typed;
    std::uint32_t const root = typed.open(1008, 0xFFFE);
    typed.close(root);
    typed.table();
    typed.entry(65534, 2, "urn:t:typeName");
    typed.entry(1008, 0, "node");
    EXPECT_SOUND(verifyBytes(typed.finish()));

    // An element entry of the same number does not name a type.
    FrameBuilder wrongSpace;
    std::uint32_t const top = wrongSpace.open(1008, 0xFFFE);
    wrongSpace.close(top);
    wrongSpace.table();
    wrongSpace.entry(65534, 0, "typeName");
    wrongSpace.entry(1008, 0, "node");
    EXPECT_FAULT(verifyBytes(wrongSpace.finish()), 8, FrameFault::Unnamed);
}

TEST(FrameVerifier, FixedIdsAreNamedByTheVocabulary) {
    // A type, a namespace and an element of the vocabulary need no entry:
    // genReply's saved namespace 297 reaches its nodes this way.
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1398, 150, 297);
    frame.leaf(1011, KVX::Internal::KindString, "x");
    frame.close(root);
    frame.table();
    frame.entry(1008, 0, "node");
    EXPECT_SOUND(verifyBytes(frame.finish()));
}

TEST(FrameVerifier, ReservedIdsNeedAnEntry) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(2180, KVX::Internal::KindStructure, 251);
    frame.close(root);
    frame.table();
    frame.entry(1008, 0, "node");
    EXPECT_FAULT(verifyBytes(frame.finish()), 8, FrameFault::Unnamed);
}

TEST(FrameVerifier, TableSizePastTheFrameIsTruncated) {
    std::vector<char> bytes = workedExample();
    put32(bytes, 4, 0x02000030u); // 48 bytes of table, 40 present
    EXPECT_FAULT(verifyBytes(bytes), 80, FrameFault::Truncated);
}

TEST(FrameVerifier, TableSizeIntoTrailingBytesFaultsAtTheLeftover) {
    std::vector<char> bytes = workedExample();
    put32(bytes, 4, 0x02000030u); // the table's last 8 bytes are the next frame's
    bytes.resize(96, 0);
    EXPECT_FAULT(verifyBytes(bytes), 80, FrameFault::EntryOutsideTable);
}

TEST(FrameVerifier, EntryPastTheTableFaultsAtTheEntry) {
    std::vector<char> bytes = workedExample();
    put32(bytes, SecondEntry + 8, 13); // 12 + 13 rounds up to 32, 24 are left
    EXPECT_FAULT(verifyBytes(bytes), SecondEntry, FrameFault::EntryOutsideTable);
}

TEST(FrameVerifier, NulLessNameFaultsAtTheEntry) {
    std::vector<char> bytes = workedExample();
    bytes[54] = 'x'; // "idx" with no NUL where size 3 puts it
    EXPECT_FAULT(verifyBytes(bytes), FirstEntry, FrameFault::NameNotTerminated);
}

TEST(FrameVerifier, NameWithAnInnerNulFaultsAtTheEntry) {
    std::vector<char> bytes = workedExample();
    bytes[53] = '\0'; // "i", NUL, NUL
    EXPECT_FAULT(verifyBytes(bytes), FirstEntry, FrameFault::NameNotTerminated);
}

TEST(FrameVerifier, EntryKindThreeFaultsAtTheEntry) {
    std::vector<char> bytes = workedExample();
    put16(bytes, SecondEntry + 4, 3);
    EXPECT_FAULT(verifyBytes(bytes), SecondEntry, FrameFault::BadTableKind);
}

TEST(FrameVerifier, EntryKindIsReadWithItsNamespaceBytes) {
    std::vector<char> bytes = workedExample();
    put16(bytes, FirstEntry + 6, 1); // kind 0 with ns 1 reads as 65536
    EXPECT_FAULT(verifyBytes(bytes), FirstEntry, FrameFault::BadTableKind);
    bytes = workedExample();
    put32(bytes, FirstEntry + 4, 0xFFFFFFFFu); // -1
    EXPECT_FAULT(verifyBytes(bytes), FirstEntry, FrameFault::BadTableKind);
}

TEST(FrameVerifier, EntryOfSizeZeroFaultsAtTheEntry) {
    std::vector<char> bytes = workedExample();
    put32(bytes, SecondEntry + 8, 0);
    EXPECT_FAULT(verifyBytes(bytes), SecondEntry, FrameFault::EmptyName);
}

TEST(FrameVerifier, IdWithoutANameFaultsAtTheNode) {
    std::vector<char> bytes = workedExample();
    put32(bytes, ChildOffset, 900); // neither the table nor the vocabulary names 900
    EXPECT_FAULT(verifyBytes(bytes), ChildOffset, FrameFault::Unnamed);
}

TEST(FrameVerifier, DynamicIdNeedsItsEntry) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    std::uint32_t const child = frame.leaf(-2, KVX::Internal::KindString, "v");
    frame.close(root);
    frame.table();
    std::uint32_t const dynamicEntry = frame.entry(-2, 0, "mine");
    frame.entry(1008, 0, "node");
    std::vector<char> bytes = frame.finish();
    EXPECT_SOUND(verifyBytes(bytes));
    put32(bytes, dynamicEntry, static_cast<std::uint32_t>(-3));
    EXPECT_FAULT(verifyBytes(bytes), static_cast<int>(child), FrameFault::Unnamed);
}

TEST(FrameVerifier, AttributesAndNodesWithoutIdNeedNoName) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    frame.leaf(101, KVX::Internal::KindString, "4.5.0"); // "version"
    frame.leaf(1, KVX::Internal::KindString, "x");       // lowest attribute id
    frame.leaf(200, KVX::Internal::KindString, "y");     // highest attribute id
    frame.leaf(0, KVX::Internal::KindXML, "<a/>");
    frame.close(root);
    frame.table();
    frame.entry(1008, 0, "node");
    EXPECT_SOUND(verifyBytes(frame.finish()));
}

TEST(FrameVerifier, NamespaceAbove200NeedsAnEntry) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008, KVX::Internal::KindStructure, 0xFFFE);
    frame.close(root);
    frame.table();
    std::uint32_t const nsEntry = frame.entry(65534, 1, "urn:x");
    frame.entry(1008, 0, "node");
    std::vector<char> bytes = frame.finish();
    EXPECT_SOUND(verifyBytes(bytes));
    put32(bytes, nsEntry, static_cast<std::uint32_t>(-2)); // the element form of -2
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::Unnamed);
    // Namespace ids up to 200 are none of the vocabulary's and need no entry.
    put16(bytes, 14, 200);
    EXPECT_SOUND(verifyBytes(bytes));
}

TEST(FrameVerifier, LeafRootIsSound) {
    FrameBuilder frame;
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\x2A'));
    frame.table();
    frame.entry(1010, 0, "id");
    EXPECT_SOUND(verifyBytes(frame.finish()));
}

TEST(FrameVerifier, EmptyFrameWithANameTableIsSound) {
    FrameBuilder frame;
    frame.table();
    frame.entry(1010, 0, "id");
    std::vector<char> const bytes = frame.finish(true);
    ASSERT_EQ(24u, bytes.size());
    EXPECT_SOUND(verifyBytes(bytes));
}

TEST(FrameVerifier, LegacyFrameIsMeasuredByItsFormatByte) {
    FrameBuilder frame(KVX::Internal::FormatLegacy);
    std::uint32_t const root = frame.open(1008);
    frame.leaf(1010, KVX::Internal::KindInt, std::string(4, '\x2A')); // 24 bytes in this layout
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    std::vector<char> bytes = frame.finish();
    EXPECT_SOUND(verifyBytes(bytes));
    // Read with the current layout the child takes 16 bytes and leaves 8.
    bytes[7] = 2;
    EXPECT_FAULT(verifyBytes(bytes), 8, FrameFault::SizeNotSum);
}

TEST(FrameVerifier, DepthAtTheLimitIsSound) {
    EXPECT_SOUND(verifyBytes(nested(MaxNestingDepth)));
}

TEST(FrameVerifier, DepthPastTheLimitFaultsAtTheDeepestNode) {
    std::vector<char> const bytes = nested(MaxNestingDepth + 1);
    int const deepest = static_cast<int>(8 + 16 * MaxNestingDepth);
    EXPECT_FAULT(verifyBytes(bytes), deepest, FrameFault::TooDeep);
}

TEST(FrameVerifier, FrameLengthAtTheLimitIsAwaited) {
    // 8 + 16 + size is exactly MaxFrameLength: a frame that may still come.
    std::uint32_t const rootSize = MaxFrameLength - 24;
    EXPECT_FAULT(verifyBytes(claimedHead(rootSize, 0)), 20, FrameFault::Truncated);
    EXPECT_FAULT(verifyBytes(claimedHead(rootSize - 8, 8)), 20, FrameFault::Truncated);
}

TEST(FrameVerifier, FrameLengthPastTheLimitIsTooLong) {
    std::uint32_t const rootSize = MaxFrameLength - 24;
    EXPECT_FAULT(verifyBytes(claimedHead(rootSize + 8, 0)), 8, FrameFault::FrameTooLong);
    EXPECT_FAULT(verifyBytes(claimedHead(rootSize - 8, 16)), 4, FrameFault::FrameTooLong);
}

TEST(FrameVerifier, NameLengthAtTheLimitIsSound) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    frame.close(root);
    frame.table();
    frame.entry(-2, 0, std::string(MaxTableNameLength, 'n'));
    frame.entry(1008, 0, "node");
    EXPECT_SOUND(verifyBytes(frame.finish()));
}

TEST(FrameVerifier, NameLengthPastTheLimitFaultsAtTheEntry) {
    FrameBuilder frame;
    std::uint32_t const root = frame.open(1008);
    frame.close(root);
    frame.table();
    std::uint32_t const longEntry = frame.entry(-2, 0, std::string(MaxTableNameLength + 1, 'n'));
    frame.entry(1008, 0, "node");
    EXPECT_FAULT(verifyBytes(frame.finish()), static_cast<int>(longEntry), FrameFault::NameTooLong);
}

TEST(FrameVerifier, TableFaultComesBeforeABodyFault) {
    std::vector<char> bytes = workedExample();
    put16(bytes, ChildOffset + 4, 7); // body fault at 24
    put32(bytes, SecondEntry + 8, 0); // table fault at 56
    EXPECT_FAULT(verifyBytes(bytes), SecondEntry, FrameFault::EmptyName);
}

TEST(FrameVerifier, FrameThatVerifiesIsWhatIsCompleteCuts) {
    std::vector<char> bytes = workedExample();
    bytes.resize(100, 0);
    EXPECT_EQ(0, KVXBinary::verify(bytes.data(), 100));
    EXPECT_EQ(80, KVXBinary::isComplete(bytes.data(), 100));
}

TEST(FrameLimits, TextFormKeepsTheFrameDepth) {
    EXPECT_EQ(static_cast<std::size_t>(MaxNestingDepth), KVX::Internal::MaxTextDepth);
}

TEST(FrameLimits, FrameLengthIsTheLargestIntRoundedDownToEight) {
    EXPECT_EQ(2147483640u, MaxFrameLength);
    EXPECT_EQ(16777208u, KVX::Internal::MaxNameTableSize);
}
