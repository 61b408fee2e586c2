// Tests of subtree grafting: frames and subtrees loaded under a cursor of
// another document, ids translated through names, the attribute limit, the
// legacy node-by-node copy, and damaged sizes that must fail without reading
// outside the bytes.
#include "binary/DocumentTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

using namespace doctests;

namespace {

// Loads `frame` under the cursor's node through the message's deserialize.
int graftFrame(KVX::KVXBinary &message, KVX::KVXBinaryIterator &cursor, Bytes const &frame) {
    return message.deserialize(frame.data(), static_cast<int>(frame.size()), &cursor);
}

Bytes nodeSection(Bytes const &frame, std::uint32_t offset, std::uint32_t length) {
    return Bytes(frame.begin() + offset, frame.begin() + offset + length);
}

// A format 2 body with the same tree as the legacy frames below, for comparing
// what the node-by-node copy produced.
Bytes nestedBody(unsigned format) {
    return FrameMaker(format)
        .open(NodeElement)
        .open(RestoreElement)
        .int32(IdElement, 42)
        .close()
        .int32(IdElement, 7)
        .close()
        .name(NodeElement, 0, "node")
        .name(RestoreElement, 0, "restore")
        .name(IdElement, 0, "id")
        .finish();
}

} // namespace

TEST(Grafting, FrameIntoCursorBecomesLastChild) {
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    ASSERT_EQ(0, cursor->putValue(std::string("here"), OriginElement));
    ASSERT_EQ(0, graftFrame(*target, *cursor, readDataFile("worked_example.bin")));
    // The cursor has not moved.
    ASSERT_EQ(1u, cursor->binaryPath().entries.size());
    EXPECT_EQ(PacketElement, cursor->curID());
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(OriginElement, cursor->curID());
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(NodeElement, cursor->curID());
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(Grafting, DeserializeToChildGraftsFrame) {
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    Bytes const golden = readDataFile("worked_example.bin");
    ASSERT_EQ(0, cursor->deserializeToChild(golden.data(), static_cast<int>(golden.size())));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, "node/id"));
    EXPECT_EQ(42, value);
}

TEST(Grafting, FrameIntoForeignCursorThrowsBadCast) {
    Message target = created(PacketElement);
    ForeignCursor foreign;
    Bytes const golden = readDataFile("worked_example.bin");
    EXPECT_THROW(target->deserialize(golden.data(), static_cast<int>(golden.size()), &foreign),
                 std::bad_cast);
}

TEST(Grafting, FrameWithCorruptNameTableIsRefused) {
    Bytes frame = readDataFile("worked_example.bin");
    store32(frame, 48, 0); // the "id" entry's size
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor cursor = cursorOn(*target);
    EXPECT_EQ(-1, graftFrame(*target, *cursor, frame));
    EXPECT_EQ(before, frameOf(*target));
}

TEST(Grafting, EmptyFrameGraftsNothing) {
    Bytes const empty = FrameMaker().name(NodeElement, 0, "node").finish(true);
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor cursor = cursorOn(*target);
    EXPECT_EQ(0, graftFrame(*target, *cursor, empty));
    EXPECT_EQ(before, frameOf(*target));
}

TEST(Grafting, SubtreeOfAnotherDocument) {
    Message source = workedExample();
    Cursor from = cursorOn(*source);
    Message target = created(PacketElement);
    Cursor into = cursorOn(*target);
    ASSERT_EQ(0, target->deserialize(from.get(), into.get()));
    int value = 0;
    EXPECT_EQ(0, into->getValue(value, "node/id"));
    EXPECT_EQ(42, value);
    // The source is untouched.
    EXPECT_EQ(readDataFile("worked_example.bin"), frameOf(*source));
}

TEST(Grafting, CopyToChildGraftsSubtreeAtSource) {
    Message source = workedExample();
    Cursor from = cursorOn(*source);
    ASSERT_EQ(0, from->seek(IdElement));
    Message target = created(PacketElement);
    Cursor into = cursorOn(*target);
    ASSERT_EQ(0, into->copyToChild(from.get()));
    int value = 0;
    EXPECT_EQ(0, into->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(Grafting, IntoForeignCursorAssertsAndFails) {
    Message source = workedExample();
    Cursor from = cursorOn(*source);
    ForeignCursor foreign;
    AssertRecorder recorder;
    EXPECT_EQ(-1, source->deserialize(from.get(), &foreign));
    EXPECT_EQ(1, recorder.fired());
}

TEST(Grafting, FromForeignCursorLoadsItsBytes) {
    ForeignCursor foreign(readDataFile("worked_example.bin"));
    Message target = created(PacketElement);
    Cursor into = cursorOn(*target);
    ASSERT_EQ(0, target->deserialize(&foreign, into.get()));
    EXPECT_EQ(1, foreign.serializeCalls);
    int value = 0;
    EXPECT_EQ(0, into->getValue(value, "node/id"));
    EXPECT_EQ(42, value);
}

TEST(Grafting, FromForeignCursorWithoutBytesFails) {
    ForeignCursor foreign;
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor into = cursorOn(*target);
    EXPECT_EQ(-1, target->deserialize(&foreign, into.get()));
    EXPECT_EQ(before, frameOf(*target));
}

TEST(Grafting, AttributeTopFailsAndAddsNothing) {
    Message source = created(PacketElement);
    ASSERT_EQ(0, source->setPriority(3));
    Cursor from = cursorOn(*source);
    ASSERT_EQ(0, from->seek(103));
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor into = cursorOn(*target);
    EXPECT_EQ(-1, target->deserialize(from.get(), into.get()));
    EXPECT_EQ(before, frameOf(*target));
}

TEST(Grafting, AttributeBelowTopFailsAndLeavesCopy) {
    Message source = created(PacketElement);
    Cursor from = cursorOn(*source);
    ASSERT_EQ(0, from->newChild(NodeElement));
    ASSERT_EQ(0, from->putValue(5, 103));
    ASSERT_EQ(0, from->putValue(42, IdElement));
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor into = cursorOn(*target);
    EXPECT_EQ(-1, target->deserialize(from.get(), into.get()));
    // The node went across with its bytes before the attribute was met.
    EXPECT_GT(frameOf(*target).size(), before.size());
    ASSERT_EQ(0, into->seek(NodeElement));
    int value = 0;
    EXPECT_EQ(0, into->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(Grafting, NodeWithoutIdCannotBeGrafted) {
    Bytes const frame = FrameMaker()
                            .open(NodeElement)
                            .text(0, "<raw/>", 51)
                            .close()
                            .name(NodeElement, 0, "node")
                            .finish();
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    EXPECT_EQ(-1, graftFrame(*target, *cursor, frame));
}

TEST(Grafting, DynamicIdSubtreeGraftedBetweenDocuments) {
    Message source = created(PacketElement);
    Cursor from = cursorOn(*source);
    ASSERT_EQ(0, from->newChild("zz-graft-outer"));
    ASSERT_EQ(-2, from->curID());
    ASSERT_EQ(0, from->newChild("zz-graft-inner"));
    ASSERT_EQ(-3, from->curID());
    ASSERT_EQ(0, from->putValue(std::string("v"), 0));
    ASSERT_EQ(0, from->seekUp());
    ASSERT_EQ(-2, from->curID());

    Message target = created(PacketElement);
    Cursor into = cursorOn(*target);
    ASSERT_EQ(0, into->newChild("zz-graft-mine")); // takes -2 in the target
    ASSERT_EQ(0, into->seekUp());
    ASSERT_EQ(0, target->deserialize(from.get(), into.get()));

    ASSERT_EQ(0, into->seek("zz-graft-outer"));
    EXPECT_EQ(-3, into->curID());
    EXPECT_EQ("zz-graft-outer", into->curName());
    ASSERT_EQ(0, into->firstChild());
    EXPECT_EQ(-4, into->curID());
    EXPECT_EQ("zz-graft-inner", into->curName());
    std::string value;
    EXPECT_EQ(0, into->getValue(value, 0));
    EXPECT_EQ("v", value);
}

TEST(Grafting, VocabularyNameKeepsIdBytesItCameWith) {
    // The frame names its id -2 "origin", which the target knows as 1337. Inner
    // nodes keep the id bytes they came with unless the new id is dynamic.
    Bytes const frame = FrameMaker()
                            .open(NodeElement)
                            .int32(-2, 7)
                            .close()
                            .name(NodeElement, 0, "node")
                            .name(-2, 0, "origin")
                            .finish();
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    ASSERT_EQ(0, graftFrame(*target, *cursor, frame));
    ASSERT_EQ(0, cursor->seek(NodeElement));
    std::uint32_t const nodeOffset = cursor->binaryPath().entries.back().offset;
    Bytes const bytes = frameOf(*target);
    EXPECT_EQ(0xFFFFFFFEu, load32(bytes, nodeOffset + 16));
    EXPECT_EQ(7u, load32(bytes, nodeOffset + 16 + 12));
}

TEST(Grafting, NamespaceAndTypeAreTranslated) {
    Bytes const frame = FrameMaker()
                            .open(NodeElement, 0xFFFD, 0xFFFE)
                            .int32(IdElement, 42)
                            .close()
                            .name(NodeElement, 0, "node")
                            .name(IdElement, 0, "id")
                            .name(0xFFFE, 1, "urn:graft-test")
                            .name(0xFFFD, 2, "GraftType")
                            .finish();
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    ASSERT_EQ(0, cursor->newChild("zz-graft-mine")); // -2 in the target
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, graftFrame(*target, *cursor, frame));
    ASSERT_EQ(0, cursor->seek(NodeElement));
    std::uint32_t const nodeOffset = cursor->binaryPath().entries.back().offset;
    Bytes const bytes = frameOf(*target);
    EXPECT_EQ(0xFFFDu, load16(bytes, nodeOffset + 6)); // namespace interned as -3
    EXPECT_EQ(0xFFFCu, load16(bytes, nodeOffset + 4)); // type interned as -4
    EXPECT_EQ("GraftType", cursor->curType());
}

TEST(Grafting, LegacyFrameIsCopiedNodeByNode) {
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    ASSERT_EQ(0, graftFrame(*target, *cursor, nestedBody(0)));
    ASSERT_EQ(0, cursor->seek(NodeElement));
    Bytes const subtree = allocated(*target, 40500, cursor.get());
    Bytes const current = nestedBody(2);
    // node (16) + restore (16 + 16) + id (16): the current layout's sizes.
    ASSERT_GE(subtree.size(), 8u + 64u);
    EXPECT_EQ(nodeSection(current, 8, 64), nodeSection(subtree, 8, 64));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, "restore/id"));
    EXPECT_EQ(42, value);
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(7, value);
}

TEST(Grafting, LegacyDocumentCursorIsCopiedNodeByNode) {
    Message source = blank();
    Bytes const legacy = nestedBody(0);
    ASSERT_EQ(0, source->init(legacy.data(), static_cast<int>(legacy.size())));
    Cursor from = cursorOn(*source);
    Message target = created(PacketElement);
    Cursor into = cursorOn(*target);
    ASSERT_EQ(0, into->copyToChild(from.get()));
    ASSERT_EQ(0, into->seek(NodeElement));
    Bytes const subtree = allocated(*target, 40500, into.get());
    ASSERT_GE(subtree.size(), 8u + 64u);
    EXPECT_EQ(nodeSection(nestedBody(2), 8, 64), nodeSection(subtree, 8, 64));
}

TEST(Grafting, LegacyAttributeBelowTopLeavesCopySoFar) {
    Bytes const frame = FrameMaker(0)
                            .open(NodeElement)
                            .int32(IdElement, 42)
                            .int32(103, 5)
                            .close()
                            .name(NodeElement, 0, "node")
                            .name(IdElement, 0, "id")
                            .finish();
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    EXPECT_EQ(-1, graftFrame(*target, *cursor, frame));
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, "node/id"));
    EXPECT_EQ(42, value);
}

TEST(Grafting, DamagedInnerSizeFailsBulkGraft) {
    for (std::uint32_t damaged : {0x1000u, 0xFFFFFFF0u, 0xFFFFFFFFu, 5u}) {
        Bytes frame = FrameMaker()
                          .open(NodeElement)
                          .int32(IdElement, 42)
                          .close()
                          .name(NodeElement, 0, "node")
                          .name(IdElement, 0, "id")
                          .finish();
        store32(frame, 24 + 8, damaged); // the child's size, beyond its parent
        ASSERT_EQ(static_cast<int>(frame.size()),
                  KVX::KVXBinary::isComplete(frame.data(), static_cast<int>(frame.size())));
        Message target = created(PacketElement);
        Cursor cursor = cursorOn(*target);
        EXPECT_EQ(-1, graftFrame(*target, *cursor, frame)) << damaged;
    }
}

TEST(Grafting, DamagedLegacyInnerSizeFailsGraft) {
    for (std::uint32_t damaged : {0x1000u, 0xFFFFFFF0u, 0xFFFFFFFFu, 200u, 40u}) {
        Bytes frame = nestedBody(0);
        store32(frame, 24 + 8, damaged); // "restore"'s size
        Message target = created(PacketElement);
        Cursor cursor = cursorOn(*target);
        EXPECT_EQ(-1, graftFrame(*target, *cursor, frame)) << damaged;
    }
}

TEST(Grafting, DeepLegacySubtreeIsCopiedWithoutRecursion) {
    int const depth = 3000;
    FrameMaker maker(0);
    for (int level = 0; level < depth; ++level)
        maker.open(NodeElement);
    maker.int32(IdElement, 42);
    for (int level = 0; level < depth; ++level)
        maker.close();
    Bytes const frame = maker.name(NodeElement, 0, "node").name(IdElement, 0, "id").finish();
    Message target = created(PacketElement);
    Cursor cursor = cursorOn(*target);
    ASSERT_EQ(0, graftFrame(*target, *cursor, frame));
    for (int level = 0; level < depth; ++level)
        ASSERT_EQ(0, cursor->seek(NodeElement)) << level;
    int value = 0;
    EXPECT_EQ(0, cursor->getValue(value, IdElement));
    EXPECT_EQ(42, value);
}

TEST(Grafting, CopyWithinOneDocumentCopiesSubtree) {
    Message message = workedExample();
    Cursor from = cursorOn(*message);
    Cursor into = cursorOn(*message);
    ASSERT_EQ(0, into->copyToChild(from.get()));
    // node { id = 42, node { id = 42 } }
    ASSERT_EQ(0, into->seek(NodeElement));
    int value = 0;
    EXPECT_EQ(0, into->getValue(value, IdElement));
    EXPECT_EQ(42, value);
    Bytes const frame = frameOf(*message);
    EXPECT_EQ(16u + 32u, load32(frame, 16)); // root size: "id" and the copied "node"
}

TEST(Grafting, LostTargetCursorRefusesGraft) {
    Message target = created(NodeElement);
    Cursor writer = cursorOn(*target);
    Cursor lost = cursorOn(*target);
    ASSERT_EQ(0, writer->putValue(std::string("short"), IdElement));
    ASSERT_EQ(0, writer->newChild(RestoreElement));
    ASSERT_EQ(0, writer->seekUp());
    ASSERT_EQ(0, lost->seek(RestoreElement));
    ASSERT_EQ(0, writer->putValue(std::string("a much longer text"), IdElement));
    Bytes const before = frameOf(*target);
    EXPECT_EQ(-1, graftFrame(*target, *lost, readDataFile("worked_example.bin")));
    EXPECT_EQ(before, frameOf(*target));
}

TEST(Grafting, SourceOffsetOutsideRootSectionFails) {
    Message source = workedExample();
    Cursor from = cursorOn(*source);
    ASSERT_EQ(0, from->seek(IdElement));
    Message target = created(PacketElement);
    Bytes const before = frameOf(*target);
    Cursor into = cursorOn(*target);
    for (unsigned offset : {40u, 4000u, 0xFFFFFFF8u, 36u}) {
        from->binaryPath().entries.back().offset = offset;
        EXPECT_EQ(-1, target->deserialize(from.get(), into.get())) << offset;
        EXPECT_EQ(before, frameOf(*target)) << offset;
    }
}
