// Tests of KVXBinaryInternals::quickAppend and quickSettle, the appends of a
// builder into the open room: long runs against the general two steps (bytes,
// capacity and stamp through reallocations), every refusal leaving the
// document untouched, stale states, and the settling of containers. Each test
// owns its documents; one thread.
#include "InternalsTestSupport.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/QuickAppend.h"
#include "binary/WireFormat.h"

#include <kvx/CharArray.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace KVX;
using namespace KVX::Internal;
using namespace KVXTest;

namespace {

constexpr int Packet = 1398;
constexpr int NodeElement = 1008; // "node"
constexpr int IdElement = 1010;   // "id"
constexpr int ValueElement = 1018;

unsigned char const FortyTwo[4] = {0x2A, 0, 0, 0};

using Quick = KVXBinaryInternals::QuickState;

// Everything of a document and its path that a refused call must leave as it
// was: all `used` bytes (the room's included), the counters and the path.
struct Snapshot {
    Bytes bytes;
    int used;
    int capacity;
    std::uint32_t room;
    std::uint32_t stamp;
    std::vector<std::pair<int, unsigned>> entries;
    std::vector<int> namespaces;
};

Snapshot snapshotOf(KVXBinaryInternals const &doc, BinaryPath const &path) {
    Snapshot shot{frameOf(doc), doc.used, doc.capacity, doc.room, doc.stamp, {}, path.namespaces};
    for (PathEntry const &entry : path.entries)
        shot.entries.emplace_back(entry.id, entry.offset);
    return shot;
}

void expectUnchanged(Snapshot const &before, KVXBinaryInternals const &doc,
                     BinaryPath const &path) {
    Snapshot const after = snapshotOf(doc, path);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(after.used, before.used);
    EXPECT_EQ(after.capacity, before.capacity);
    EXPECT_EQ(after.room, before.room);
    EXPECT_EQ(after.stamp, before.stamp);
    EXPECT_EQ(after.entries, before.entries);
    EXPECT_EQ(after.namespaces, before.namespaces);
}

void up(BinaryPath &path) {
    path.entries.pop_back();
}

std::uint32_t size32(std::string const &text) {
    return static_cast<std::uint32_t>(text.size());
}

// The reference for quickAppend of a leaf: appendAtEnd, then the path back.
int atEndLeaf(KVXBinaryInternals &doc, BinaryPath &path, int id, std::string const &text) {
    int const result = doc.appendAtEnd(path, id, KindUntyped, text.data(), size32(text), true);
    if (result == 0)
        up(path);
    return result;
}

// A document "packet" with room open and "node" recorded: the leaf
// <node>x</node> appended at the end. `path` ends on the root.
void openDocument(KVXBinaryInternals &doc, BinaryPath &path) {
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    ASSERT_EQ(atEndLeaf(doc, path, NodeElement, "x"), 0);
    ASSERT_GT(doc.room, 0u);
    ASSERT_TRUE(doc.ids.isRecorded(NodeElement));
}

// The same document and steps, built by the general operations: append of an
// element without value, then replaceValue for a leaf.
struct General {
    KVXBinaryInternals doc;
    BinaryPath path;

    void open(int id) { ASSERT_EQ(doc.append(path, id, KindUntyped, nullptr, 0, false), 0); }
    void leaf(int id, std::string const &text) {
        ASSERT_EQ(doc.append(path, id, KindUntyped, nullptr, 0, false), 0);
        ASSERT_EQ(doc.replaceValue(path, KindUntyped, text.data(), size32(text), true), 0);
        up(path);
    }
    void close() { up(path); }
};

// The builder under test: quick first, appendAtEnd where it refuses. Counts
// both ways, so that a test can tell the quick path ran.
struct Builder {
    KVXBinaryInternals doc;
    BinaryPath path;
    Quick state;
    int quick = 0;
    int fallbacks = 0;

    void open(int id) {
        std::size_t const depth = path.entries.size();
        if (doc.quickAppend(state, path, id, nullptr, 0, false)) {
            ++quick;
        } else {
            ++fallbacks;
            ASSERT_EQ(path.entries.size(), depth);
            ASSERT_EQ(doc.appendAtEnd(path, id, KindUntyped, nullptr, 0, false), 0);
        }
        ASSERT_EQ(path.entries.size(), depth + 1);
    }
    // `viaText` chooses the fallback: appendTextAtEnd, or appendAtEnd + pop.
    void leaf(int id, std::string const &text, bool viaText) {
        std::size_t const depth = path.entries.size();
        if (doc.quickAppend(state, path, id, text.data(), size32(text), true)) {
            ++quick;
        } else {
            ++fallbacks;
            ASSERT_EQ(path.entries.size(), depth);
            if (viaText) {
                ASSERT_EQ(doc.appendTextAtEnd(path, id, text.data(), size32(text)), 0);
            } else {
                ASSERT_EQ(doc.appendAtEnd(path, id, KindUntyped, text.data(), size32(text), true),
                          0);
                up(path);
            }
        }
        ASSERT_EQ(path.entries.size(), depth);
    }
    void close() {
        std::uint32_t const offset = path.entries.back().offset;
        if (!doc.quickSettle(state, offset))
            doc.settleAtEnd(offset);
        up(path);
    }
};

// Value texts of 0 to 40 characters: every short copy of copyText.
std::string textOf(int record, int salt) {
    std::size_t const length = static_cast<std::size_t>((record * 7 + salt * 13) % 41);
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text.push_back(static_cast<char>('a' + (record + salt + static_cast<int>(i)) % 26));
    return text;
}

// One record: an element holding an element with two leaves, a leaf of its
// own and now and then an empty element; some records under a saved
// namespace. Ids walk the vocabulary so that names recur and new ones come.
template <typename Build> void buildRecord(Build &&step, int r) {
    int const outer = 1001 + r % 120;
    int const inner = 1121 + r % 90;
    int const first = 1211 + r % 170;
    int const second = 1001 + (r * 11) % 390;
    step.open(outer);
    step.open(inner);
    step.leaf(first, textOf(r, 1));
    step.leaf(second, textOf(r, 2));
    step.close();
    step.leaf(first, textOf(r, 3));
    if (r % 5 == 0) {
        step.open(NodeElement);
        step.close();
    }
    step.close();
}

struct GeneralStep {
    General &g;
    void open(int id) { g.open(id); }
    void leaf(int id, std::string const &text) { g.leaf(id, text); }
    void close() { g.close(); }
};

struct QuickStep {
    Builder &b;
    int record;
    void open(int id) { b.open(id); }
    void leaf(int id, std::string const &text) { b.leaf(id, text, record % 2 == 0); }
    void close() { b.close(); }
};

} // namespace

TEST(QuickAppend, LongRunGivesTheBytesCapacityAndStampOfTheTwoSteps) {
    General general;
    Builder quick;
    ASSERT_EQ(makeDocument(general.doc, Packet, general.path), 0);
    ASSERT_EQ(makeDocument(quick.doc, Packet, quick.path), 0);
    int const records = 900;
    int reallocations = 0;
    int capacity = general.doc.capacity;
    for (int r = 0; r < records; ++r) {
        bool const saved = r % 7 == 3;
        if (saved) {
            // A saved namespace: every node of the record takes it.
            general.path.namespaces.push_back(201 + r % 9);
            quick.path.namespaces.push_back(201 + r % 9);
        }
        buildRecord(GeneralStep{general}, r);
        buildRecord(QuickStep{quick, r}, r);
        if (saved) {
            general.path.namespaces.pop_back();
            quick.path.namespaces.pop_back();
        }
        if (general.doc.capacity != capacity) {
            ++reallocations;
            capacity = general.doc.capacity;
        }
        ASSERT_EQ(quick.doc.frameLength(), general.doc.used) << r;
        ASSERT_EQ(quick.doc.capacity, general.doc.capacity) << r;
        ASSERT_EQ(quick.doc.stamp, general.doc.stamp) << r;
        ASSERT_EQ(quick.path.entries.size(), 1u) << r;
    }
    EXPECT_GE(reallocations, 3);
    EXPECT_GT(quick.doc.room, 0u);
    quick.doc.settleAtEnd(RootOffset);
    quick.doc.closeRoom();
    EXPECT_EQ(quick.doc.room, 0u);
    EXPECT_EQ(frameOf(quick.doc), frameOf(general.doc));
    EXPECT_EQ(quick.doc.capacity, general.doc.capacity);
    EXPECT_EQ(quick.doc.stamp, general.doc.stamp);
    EXPECT_EQ(quick.doc.ids.names.size(), general.doc.ids.names.size());
    // Five or six appends a record; only first names, reallocations and the
    // appends behind them go the long way.
    int const appends = records * 5 + records / 5;
    EXPECT_EQ(quick.quick + quick.fallbacks, appends);
    EXPECT_GE(quick.quick, appends - 450);
    // Every id's first append records its name: 390 of them, ids 1001-1390.
    EXPECT_GE(quick.fallbacks, 390);
}

TEST(QuickAppend, RefusedWithoutRoom) {
    KVXBinaryInternals doc;
    BinaryPath path;
    ASSERT_EQ(makeDocument(doc, Packet, path), 0);
    // Recorded, but no appendAtEnd has opened the room yet.
    ASSERT_TRUE(doc.ids.recordsName(NodeElement));
    ASSERT_EQ(doc.room, 0u);
    Quick state;
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "x", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    expectUnchanged(before, doc, path);
    // The room closed again after it was open.
    ASSERT_EQ(doc.appendTextAtEnd(path, NodeElement, "x", 1), 0);
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    doc.closeRoom();
    Snapshot const closed = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "z", 1, true));
    expectUnchanged(closed, doc, path);
}

TEST(QuickAppend, RefusedForAnIdNotRecordedYet) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    ASSERT_FALSE(doc.ids.isRecorded(IdElement));
    Quick state;
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, IdElement, "7", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, IdElement, nullptr, 0, false));
    expectUnchanged(before, doc, path);
    // A dynamic id has no recorded bit: it always takes the long way.
    int const dynamic = doc.ids.intern(CharArray("not_in_the_vocabulary"), TableElement);
    ASSERT_EQ(dynamic, -2);
    Snapshot const interned = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, dynamic, "7", 1, true));
    expectUnchanged(interned, doc, path);
    // Once recorded, the same call goes through.
    ASSERT_TRUE(doc.ids.recordsName(IdElement));
    EXPECT_TRUE(doc.quickAppend(state, path, IdElement, "7", 1, true));
}

TEST(QuickAppend, RefusedForAttributeIds) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    Snapshot const before = snapshotOf(doc, path);
    for (int id : {0, 1, 105, 200}) {
        EXPECT_FALSE(doc.quickAppend(state, path, id, "v", 1, true)) << id;
        expectUnchanged(before, doc, path);
        EXPECT_FALSE(doc.quickAppend(state, path, id, nullptr, 0, false)) << id;
        expectUnchanged(before, doc, path);
    }
}

TEST(QuickAppend, RefusedForAValueInsideTheDocumentsBuffer) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    // The value "x" of the first leaf, inside the frame itself.
    char const *const inside = doc.buffer + 24 + 12;
    ASSERT_EQ(*inside, 'x');
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, inside, 2, true));
    expectUnchanged(before, doc, path);
    // The last byte of the buffer counts as inside too.
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, doc.buffer + doc.capacity - 1, 1, true));
    expectUnchanged(before, doc, path);
    // appendAtEnd copies it aside instead: "x" and the NUL behind it.
    ASSERT_EQ(doc.appendTextAtEnd(path, NodeElement, inside, 2), 0);
    std::uint32_t const at = doc.rootEnd() - 16;
    EXPECT_EQ(doc.node(at).size(), 3u);
    EXPECT_EQ(std::string(doc.buffer + at + 12, 3), std::string("x\0\0", 3));
}

TEST(QuickAppend, RefusedUnderATypedLeaf) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    ASSERT_EQ(doc.appendAtEnd(path, IdElement, KindInt, FortyTwo, 4, false), 0);
    Quick state;
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    expectUnchanged(before, doc, path);
    // appendAtEnd refuses it as well.
    EXPECT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, "y", 1, true), -1);
}

TEST(QuickAppend, RefusedUnderAnElementHoldingText) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    // Six bytes of value: a node of 24 bytes, which cannot become a container.
    ASSERT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, "hello", 5, true), 0);
    Quick state;
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    expectUnchanged(before, doc, path);
    EXPECT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, "y", 1, true), -1);
}

TEST(QuickAppend, RefusedUnderAnElementThatIsNotTheLastNode) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    std::uint32_t const element = path.entries.back().offset;
    ASSERT_TRUE(doc.quickSettle(state, element));
    up(path);
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "after", 5, true));
    // Back on the element without value, which a sibling now follows.
    path.entries.push_back(PathEntry{NodeElement, element});
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    expectUnchanged(before, doc, path);
    EXPECT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, "y", 1, true), -1);
}

TEST(QuickAppend, RefusedForAPathThatDoesNotStartAtTheRoot) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    BinaryPath empty;
    Snapshot const before = snapshotOf(doc, empty);
    EXPECT_FALSE(doc.quickAppend(state, empty, NodeElement, "y", 1, true));
    expectUnchanged(before, doc, empty);
    BinaryPath elsewhere;
    elsewhere.entries.push_back(PathEntry{NodeElement, 24});
    Snapshot const second = snapshotOf(doc, elsewhere);
    EXPECT_FALSE(doc.quickAppend(state, elsewhere, NodeElement, "y", 1, true));
    expectUnchanged(second, doc, elsewhere);
    // A parent offset past the root section.
    BinaryPath outside = path;
    outside.entries.push_back(PathEntry{NodeElement, doc.rootEnd()});
    Snapshot const third = snapshotOf(doc, outside);
    EXPECT_FALSE(doc.quickAppend(state, outside, NodeElement, "y", 1, true));
    expectUnchanged(third, doc, outside);
}

TEST(QuickAppend, RefusedWhereTheRoomOrTheCapacityIsShort) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    // Fill the room down to 24 bytes with leaves whose node size is exact: a
    // value of n - 13 bytes and its NUL make a node of n bytes for n = 8k.
    std::uint32_t const target = 24;
    while (doc.room > target) {
        std::uint32_t const need = doc.room - target;
        std::uint32_t const step = need <= 1000 ? need : std::min<std::uint32_t>(1000, need - 16);
        std::string const text(step - 13, 'f');
        ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, text.data(), size32(text), true));
    }
    ASSERT_EQ(doc.room, target);
    // With room open the buffer is used up to its end: the room is all the
    // capacity that is left, so a node of exactly the room's size would grow.
    ASSERT_EQ(doc.capacity, doc.used);
    int const capacity = doc.capacity;
    Snapshot const before = snapshotOf(doc, path);
    std::string const forty(20, 'g'); // a node of 40 bytes: more than the room
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, forty.data(), size32(forty), true));
    expectUnchanged(before, doc, path);
    std::string const exact(11, 'h'); // a node of 24 bytes: the room, but it grows
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, exact.data(), size32(exact), true));
    expectUnchanged(before, doc, path);
    // A node of 16 bytes fits and leaves 8.
    EXPECT_TRUE(doc.quickAppend(state, path, NodeElement, "abc", 3, true));
    EXPECT_EQ(doc.room, 8u);
    Snapshot const eight = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    expectUnchanged(eight, doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "", 0, true));
    expectUnchanged(eight, doc, path);
    // appendAtEnd grows the buffer by its capacity.
    ASSERT_EQ(doc.appendTextAtEnd(path, NodeElement, exact.data(), size32(exact)), 0);
    EXPECT_EQ(doc.capacity, 2 * capacity);
}

TEST(QuickAppend, RefusedWhereTheRootSizeChangedBehindTheState) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    std::uint32_t const rootSize = load32(doc.buffer + RootOffset + 8);
    store32(doc.buffer + RootOffset + 8, rootSize - 16);
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "z", 1, true));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickSettle(state, RootOffset));
    expectUnchanged(before, doc, path);
    store32(doc.buffer + RootOffset + 8, rootSize);
    EXPECT_TRUE(doc.quickAppend(state, path, NodeElement, "z", 1, true));
}

TEST(QuickAppend, RefusedOnACorruptNameTable) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "y", 1, true));
    doc.ids.tableCorrupt = true;
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickAppend(state, path, NodeElement, "z", 1, true));
    expectUnchanged(before, doc, path);
    Quick fresh;
    EXPECT_FALSE(doc.quickAppend(fresh, path, NodeElement, "z", 1, true));
    expectUnchanged(before, doc, path);
    doc.ids.tableCorrupt = false;
}

// A state kept across other operations: each of them edits the frame, and
// the next quickAppend must not write where the state last saw the end.
TEST(QuickAppend, StaleStateIsCheckedAgainAndGivesTheGeneralBytes) {
    General general;
    Builder quick;
    ASSERT_EQ(makeDocument(general.doc, Packet, general.path), 0);
    ASSERT_EQ(makeDocument(quick.doc, Packet, quick.path), 0);
    general.leaf(NodeElement, "one");
    ASSERT_EQ(quick.doc.appendTextAtEnd(quick.path, NodeElement, "one", 3), 0);
    general.leaf(NodeElement, "two");
    ASSERT_TRUE(quick.doc.quickAppend(quick.state, quick.path, NodeElement, "two", 3, true));
    Quick const old = quick.state;

    // An element of a dynamic id: a name table entry and a node by appendAtEnd.
    int const dynamic = quick.doc.ids.intern(CharArray("fresh_name"), TableElement);
    ASSERT_EQ(general.doc.ids.intern(CharArray("fresh_name"), TableElement), dynamic);
    general.leaf(dynamic, "dyn");
    ASSERT_EQ(quick.doc.appendAtEnd(quick.path, dynamic, KindUntyped, "dyn", 3, true), 0);
    up(quick.path);
    general.leaf(NodeElement, "three");
    ASSERT_TRUE(quick.doc.quickAppend(quick.state, quick.path, NodeElement, "three", 5, true));

    // A new name alone: its entry takes room from above.
    ASSERT_EQ(quick.doc.ids.intern(CharArray("other_name"), TableElement), -3);
    ASSERT_EQ(general.doc.ids.intern(CharArray("other_name"), TableElement), -3);
    general.leaf(NodeElement, "four");
    Quick older = old;
    ASSERT_TRUE(quick.doc.quickAppend(older, quick.path, NodeElement, "four", 4, true));
    quick.state = older;

    // The room closed: refused, then appendAtEnd opens it again.
    quick.doc.closeRoom();
    Snapshot const closed = snapshotOf(quick.doc, quick.path);
    EXPECT_FALSE(quick.doc.quickAppend(quick.state, quick.path, NodeElement, "five", 4, true));
    expectUnchanged(closed, quick.doc, quick.path);
    general.leaf(NodeElement, "five");
    ASSERT_EQ(quick.doc.appendTextAtEnd(quick.path, NodeElement, "five", 4), 0);
    general.leaf(NodeElement, "six");
    ASSERT_TRUE(quick.doc.quickAppend(quick.state, quick.path, NodeElement, "six", 3, true));

    // An element opened by the state of before the last three edits.
    general.open(NodeElement);
    Quick oldest = old;
    ASSERT_TRUE(quick.doc.quickAppend(oldest, quick.path, NodeElement, nullptr, 0, false));
    general.leaf(ValueElement, "seven");
    ASSERT_EQ(quick.doc.appendTextAtEnd(quick.path, ValueElement, "seven", 5), 0);
    general.close();
    quick.close();

    quick.doc.settleAtEnd(RootOffset);
    quick.doc.closeRoom();
    EXPECT_EQ(frameOf(quick.doc), frameOf(general.doc));
    EXPECT_EQ(quick.doc.capacity, general.doc.capacity);
    EXPECT_EQ(quick.doc.stamp, general.doc.stamp);
    EXPECT_EQ(quick.doc.ids.lookupName(-3).str(), "other_name");
}

TEST(QuickAppend, QuickSettleWithAStaleStateChangesNothing) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    std::uint32_t const element = path.entries.back().offset;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "a", 1, true));
    // Another append moves the room: the state no longer knows the end.
    ASSERT_EQ(doc.appendAtEnd(path, NodeElement, KindUntyped, "b", 1, true), 0);
    up(path);
    Snapshot const before = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickSettle(state, element));
    expectUnchanged(before, doc, path);
    EXPECT_FALSE(doc.quickSettle(state, RootOffset));
    expectUnchanged(before, doc, path);
    // Nor after the room closed.
    Quick fresh;
    ASSERT_TRUE(doc.checkQuickState(fresh));
    doc.closeRoom();
    Snapshot const closed = snapshotOf(doc, path);
    EXPECT_FALSE(doc.quickSettle(fresh, element));
    expectUnchanged(closed, doc, path);
    // A state that never saw the frame.
    EXPECT_FALSE(doc.quickSettle(Quick(), element));
    expectUnchanged(closed, doc, path);
}

TEST(QuickAppend, QuickSettleGivesTheSizeOfSettleAtEnd) {
    KVXBinaryInternals quickDoc;
    KVXBinaryInternals atEndDoc;
    BinaryPath quickPath;
    BinaryPath atEndPath;
    openDocument(quickDoc, quickPath);
    openDocument(atEndDoc, atEndPath);
    Quick state;
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false));
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false));
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "12345678", 8, true));
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "x", 1, true));
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, nullptr, 0, false), 0);
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "12345678"), 0);
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "x"), 0);
    std::uint32_t const outer = quickPath.entries[1].offset;
    std::uint32_t const inner = quickPath.entries[2].offset;
    ASSERT_EQ(atEndPath.entries[2].offset, inner);
    // Open containers are behind until settled: only the root is current.
    EXPECT_EQ(quickDoc.node(inner).size(), 0u);
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    EXPECT_TRUE(quickDoc.quickSettle(state, inner));
    atEndDoc.settleAtEnd(inner);
    EXPECT_EQ(quickDoc.node(inner).size(), 24u + 16u);
    EXPECT_EQ(quickDoc.node(inner).size(), atEndDoc.node(inner).size());
    up(quickPath);
    up(atEndPath);
    EXPECT_TRUE(quickDoc.quickSettle(state, outer));
    atEndDoc.settleAtEnd(outer);
    EXPECT_EQ(quickDoc.node(outer).size(), 16u + 40u);
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    // The state still holds: settling moves nothing.
    EXPECT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "y", 1, true));
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "y"), 0);
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
}

TEST(QuickAppend, QuickSettleLeavesOtherNodesAlone) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    std::uint32_t const empty = path.entries.back().offset;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "leaf", 4, true));
    std::uint32_t const leaf = doc.rootEnd() - 24;
    ASSERT_TRUE(doc.quickSettle(state, empty));
    up(path);
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    std::uint32_t const childless = path.entries.back().offset;
    Snapshot const before = snapshotOf(doc, path);
    // A leaf, an element without children, offsets past the last header and
    // in front of the root: true, and nothing written, as settleAtEnd does.
    for (std::uint32_t offset : {leaf, childless, doc.rootEnd() - 8, doc.rootEnd(), 0u, 4u}) {
        EXPECT_TRUE(doc.quickSettle(state, offset)) << offset;
        expectUnchanged(before, doc, path);
    }
    EXPECT_EQ(doc.node(leaf).size(), 5u);
    EXPECT_EQ(doc.node(childless).size(), 0u);
    EXPECT_EQ(doc.node(childless).kind(), KindUntyped);
}

// The parser's common case: an element pushed without a value, whose first
// child makes it a container in place.
TEST(QuickAppend, FirstChildMakesAnElementAContainerAsAppendAtEndDoes) {
    KVXBinaryInternals quickDoc;
    KVXBinaryInternals atEndDoc;
    BinaryPath quickPath;
    BinaryPath atEndPath;
    openDocument(quickDoc, quickPath);
    openDocument(atEndDoc, atEndPath);
    Quick state;
    // Without a value, and with a text of two characters, which fits in the
    // padding of a long header and stays there.
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false));
    ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, nullptr, 0, false), 0);
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "c1", 2, true));
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "c1"), 0);
    ASSERT_EQ(quickDoc.appendAtEnd(quickPath, NodeElement, KindUntyped, "ab", 2, true), 0);
    ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, "ab", 2, true), 0);
    std::uint32_t const holder = quickPath.entries.back().offset;
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "c2", 2, true));
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "c2"), 0);
    EXPECT_EQ(quickDoc.node(holder).kind(), KindStructure);
    EXPECT_EQ(std::string(quickDoc.buffer + holder + 12, 3), std::string("ab\0", 3));
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    EXPECT_EQ(quickDoc.room, atEndDoc.room);
    EXPECT_EQ(quickDoc.stamp, atEndDoc.stamp);
}

// A root that is an element without a value: the room is opened by hand, as
// appendAtEnd opens it (the name table moved to the top of the buffer, the
// free capacity counted in `used`), since every append at the end of such a
// root would make it a container before the room opened.
TEST(QuickAppend, FirstChildMakesAnUntypedRootAContainerAsAppendAtEndDoes) {
    KVXBinaryInternals quickDoc;
    KVXBinaryInternals atEndDoc;
    BinaryPath quickPath;
    BinaryPath atEndPath;
    for (KVXBinaryInternals *doc : {&quickDoc, &atEndDoc}) {
        BinaryPath &path = doc == &quickDoc ? quickPath : atEndPath;
        ASSERT_EQ(doc->resetBuffer(), 0);
        ASSERT_EQ(doc->append(path, Packet, KindUntyped, nullptr, 0, false), 0);
        ASSERT_TRUE(doc->ids.recordsName(NodeElement));
    }
    ASSERT_EQ(quickDoc.node(RootOffset).kind(), KindUntyped);
    ASSERT_EQ(quickDoc.rootEnd(), RootOffset + 16);
    std::uint32_t const table = nameTableSize(quickDoc.buffer);
    std::uint32_t const spare = static_cast<std::uint32_t>(quickDoc.capacity - quickDoc.used) & ~7u;
    std::memmove(quickDoc.buffer + quickDoc.rootEnd() + spare, quickDoc.buffer + quickDoc.rootEnd(),
                 table);
    quickDoc.used += static_cast<int>(spare);
    quickDoc.room = spare;
    Quick state;
    ASSERT_TRUE(quickDoc.checkQuickState(state));
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, "first", 5, true));
    ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, "first"), 0);
    EXPECT_EQ(quickDoc.node(RootOffset).kind(), KindStructure);
    EXPECT_EQ(quickDoc.node(RootOffset).size(), 24u);
    EXPECT_EQ(quickDoc.frameLength(), atEndDoc.frameLength());
    EXPECT_EQ(quickDoc.room, atEndDoc.room);
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false));
    ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, nullptr, 0, false), 0);
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    quickDoc.settleAtEnd(RootOffset);
    atEndDoc.settleAtEnd(RootOffset);
    quickDoc.closeRoom();
    atEndDoc.closeRoom();
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    EXPECT_EQ(quickDoc.capacity, atEndDoc.capacity);
    EXPECT_EQ(quickDoc.stamp, atEndDoc.stamp);
    EXPECT_EQ(quickDoc.ids.lookupName(NodeElement).str(), "node");
}

// Exact bytes of two leaves and one element, checked by hand: a value of
// eight bytes with its NUL takes the long header.
TEST(QuickAppend, LeafAndElementBytesAreTheFormatsOwn) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    std::uint32_t const at = doc.rootEnd();
    path.namespaces.push_back(0x1FFFE); // only the low 16 bits are stored
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "1234567", 7, true));
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "12345678", 8, true));
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    Bytes expected;
    put32(expected, NodeElement);
    put16(expected, KindUntyped);
    put16(expected, 0xFFFE);
    put32(expected, 8);
    put32(expected, 0);
    putText(expected, "1234567");
    put32(expected, NodeElement);
    put16(expected, KindUntyped);
    put16(expected, 0xFFFE);
    put32(expected, 9);
    putText(expected, "12345678");
    padTo(expected, 48);
    put32(expected, NodeElement);
    put16(expected, KindUntyped);
    put16(expected, 0xFFFE);
    put32(expected, 0);
    put32(expected, 0);
    ASSERT_EQ(expected.size(), 64u);
    Bytes const frame = frameOf(doc);
    EXPECT_EQ(Bytes(frame.begin() + at, frame.begin() + at + 64), expected);
    EXPECT_EQ(path.entries.size(), 2u);
    EXPECT_EQ(path.entries.back().offset, at + 48);
    EXPECT_EQ(path.entries.back().id, NodeElement);
    EXPECT_EQ(read32(frame, RootOffset + 8), 16u + 64u);
}

// A caller that knows its state is current (the last quickAppend on it
// succeeded, only settles since) skips the comparison: the same bytes.
TEST(QuickAppend, TrustedStateGivesTheBytesOfAppendAtEnd) {
    KVXBinaryInternals quickDoc;
    KVXBinaryInternals atEndDoc;
    BinaryPath quickPath;
    BinaryPath atEndPath;
    openDocument(quickDoc, quickPath);
    openDocument(atEndDoc, atEndPath);
    Quick state;
    ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false));
    ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, nullptr, 0, false), 0);
    for (int i = 0; i < 40; ++i) {
        std::string const text = std::string(static_cast<std::size_t>(i), 'k');
        ASSERT_TRUE(quickDoc.quickAppend(state, quickPath, NodeElement, text.data(), size32(text),
                                         true, true));
        ASSERT_EQ(atEndLeaf(atEndDoc, atEndPath, NodeElement, text), 0);
        if (i % 10 == 9) {
            ASSERT_TRUE(quickDoc.quickSettle(state, quickPath.entries.back().offset, true));
            atEndDoc.settleAtEnd(atEndPath.entries.back().offset);
            up(quickPath);
            up(atEndPath);
            ASSERT_TRUE(
                quickDoc.quickAppend(state, quickPath, NodeElement, nullptr, 0, false, true));
            ASSERT_EQ(atEndDoc.appendAtEnd(atEndPath, NodeElement, KindUntyped, nullptr, 0, false),
                      0);
        }
    }
    EXPECT_EQ(frameOf(quickDoc), frameOf(atEndDoc));
    EXPECT_EQ(quickDoc.room, atEndDoc.room);
}

// The parent that a state checked last is taken as a container while the
// state looks current. Here other operations remove that container and put
// a string leaf of the same size in its place, with the room reopened to the
// same size: every field the state compares is as it left them. appendAtEnd
// refuses a child under that leaf, and so must quickAppend.
TEST(QuickAppend, ParentReplacedBehindAStateThatLooksCurrentIsRefused) {
    KVXBinaryInternals doc;
    BinaryPath path;
    openDocument(doc, path);
    Quick state;
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, nullptr, 0, false));
    std::uint32_t const parent = path.entries.back().offset;
    ASSERT_EQ(parent, 40u);
    ASSERT_TRUE(doc.quickAppend(state, path, NodeElement, "a", 1, true));
    ASSERT_TRUE(doc.quickSettle(state, parent));
    BinaryPath const stale = path;
    Quick const kept = state;
    // Remove the container and its child, then append 32 bytes of string.
    doc.remove(path);
    ASSERT_EQ(path.entries.size(), 1u);
    std::string const text(19, 's');
    ASSERT_EQ(doc.appendAtEnd(path, NodeElement, KindString, text.data(), size32(text), true), 0);
    ASSERT_EQ(path.entries.back().offset, parent);
    up(path);
    ASSERT_EQ(doc.used, kept.used);
    ASSERT_EQ(doc.room, kept.room);
    ASSERT_EQ(doc.capacity, kept.capacity);
    ASSERT_EQ(load32(doc.buffer + RootOffset + 8), kept.rootSize);
    BinaryPath under = stale;
    EXPECT_EQ(doc.appendAtEnd(under, NodeElement, KindUntyped, "b", 1, true), -1);
    under = stale;
    Quick again = kept;
    Snapshot const before = snapshotOf(doc, under);
    EXPECT_FALSE(doc.quickAppend(again, under, NodeElement, "b", 1, true));
    expectUnchanged(before, doc, under);
    EXPECT_EQ(doc.node(parent).kind(), KindString);
}
