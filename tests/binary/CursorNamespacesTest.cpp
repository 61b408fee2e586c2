// Tests of namespaces and complex types through a cursor (setNamespace,
// saveNamespace, curNamespaceID, setComplexType, curType) and of the
// expansion of deferred XML fragments under the cursor's Policy bits.
#include "binary/CursorTestSupport.h"
#include "vocabulary/AssertRecorder.h"

#include <gtest/gtest.h>

using namespace cursortest;
using KVX::KVXBinaryIterator;

namespace {

std::string const DbmUri = "http://www.kvx.org/webservices/kva/3.0.3/dbm"; // namespace 205

// Sets KVXBinaryIterator::Policy while a cursor is made and puts it back.
Cursor cursorWithPolicy(KVX::KVXBinary &message, int policy) {
    int saved = KVXBinaryIterator::Policy;
    KVXBinaryIterator::Policy = policy;
    Cursor cursor = uncounted(message);
    KVXBinaryIterator::Policy = saved;
    return cursor;
}

// The name table entry at `offset`: id, table kind and text.
std::string tableEntry(Bytes const &frame, std::uint32_t offset) {
    NodeFields entry = nodeAt(frame, offset);
    return std::to_string(entry.id) + " " + std::to_string(entry.kind) + " " +
           valueText(frame, offset);
}

} // namespace

TEST(CursorNamespaces, SetNamespaceByUriOnANewDocumentGivesFFFE) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->setNamespace(std::string("urn:a")));
    Bytes frame = frameOf(*message);
    EXPECT_EQ(0xFFFEu, nodeAt(frame, 8).ns);
    EXPECT_EQ(65534, cursor->curNamespaceID());
    EXPECT_EQ("65534 1 urn:a", tableEntry(frame, rootEndOf(frame)));
}

TEST(CursorNamespaces, SetNamespaceOfAVocabularyIdWritesItsTableEntry) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ(205, cursor->curNamespaceID());
    Bytes frame = frameOf(*message);
    EXPECT_EQ(205u, nodeAt(frame, 8).ns);
    EXPECT_EQ("205 1 " + DbmUri, tableEntry(frame, rootEndOf(frame)));
}

TEST(CursorNamespaces, SetNamespaceZeroClearsAndReturnsMinusOne) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ(-1, cursor->setNamespace(0));
    EXPECT_EQ(0, cursor->curNamespaceID());
    ASSERT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ(-1, cursor->setNamespace(std::string()));
    EXPECT_EQ(0, cursor->curNamespaceID());
    EXPECT_EQ(0u, nodeAt(frameOf(*message), 8).ns);
}

TEST(CursorNamespaces, SetNamespaceOfAnIdWithoutNameIsWrittenAndReportsMinusOne) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(-1, cursor->setNamespace(400));
    EXPECT_EQ(400, cursor->curNamespaceID());
    EXPECT_EQ(400u, nodeAt(frameOf(*message), 8).ns);
}

TEST(CursorNamespaces, SavedNamespaceGoesToNewChildrenUntilSavedZero) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    cursor->saveNamespace(205);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    EXPECT_EQ(205, cursor->curNamespaceID());
    ASSERT_EQ(0, cursor->seekUp());
    cursor->saveNamespace(0);
    ASSERT_EQ(0, cursor->newChild(IdId));
    EXPECT_EQ(0, cursor->curNamespaceID());
    Bytes frame = frameOf(*message);
    EXPECT_EQ(205u, nodeAt(frame, 24).ns);
    EXPECT_EQ(0u, nodeAt(frame, 40).ns);
}

TEST(CursorNamespaces, SaveNamespaceZeroOnAnEmptyStackDoesNothing) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    cursor->saveNamespace(0);
    EXPECT_TRUE(cursor->binaryPath().namespaces.empty());
    cursor->saveNamespace(std::string());
    EXPECT_TRUE(cursor->binaryPath().namespaces.empty());
}

TEST(CursorNamespaces, SaveNamespaceByUriPushesItsIdAndEmptyPops) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    cursor->saveNamespace(std::string("urn:b"));
    ASSERT_EQ(1u, cursor->binaryPath().namespaces.size());
    EXPECT_EQ(0xFFFE, cursor->binaryPath().namespaces.back());
    ASSERT_EQ(0, cursor->newChild(NodeId));
    EXPECT_EQ(0xFFFE, cursor->curNamespaceID());
    cursor->saveNamespace(std::string());
    EXPECT_TRUE(cursor->binaryPath().namespaces.empty());
}

TEST(CursorNamespaces, NamespaceStackTravelsWithCopiesAndSurvivesSeekRoot) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    cursor->saveNamespace(205);
    KVXBinaryIterator copy(*cursor);
    EXPECT_EQ(std::vector<int>{205}, copy.binaryPath().namespaces);
    EXPECT_EQ(0, cursor->seekRoot());
    EXPECT_EQ(std::vector<int>{205}, cursor->binaryPath().namespaces);
}

TEST(CursorNamespaces, SetNamespaceChildChangesElementsBelowOnly) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->putValue(1, IdId));
    ASSERT_EQ(0, cursor->putAttr(std::string("a"), 102));
    ASSERT_EQ(0, cursor->newChild(Restore));
    ASSERT_EQ(0, cursor->newChild(Value));
    ASSERT_EQ(0, cursor->seekRoot());
    ASSERT_EQ(0, cursor->seek(NodeId));
    EXPECT_EQ(0, cursor->setNamespaceChild(205));
    EXPECT_EQ(0, cursor->curNamespaceID());
    EXPECT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ(205, cursor->curNamespaceID());
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(0, cursor->seek(102));
    EXPECT_EQ(0, cursor->curNamespaceID());
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ(0, cursor->seek("restore/value"));
    EXPECT_EQ(205, cursor->curNamespaceID());
}

TEST(CursorNamespaces, CurNamespaceIdOfALostCursorFails) {
    Message message = packet();
    Cursor writer = counted(*message);
    Cursor lost = counted(*message);
    ASSERT_EQ(0, writer->newChild(NodeId));
    ASSERT_EQ(0, writer->seekUp());
    ASSERT_EQ(0, writer->newChild(IdId));
    ASSERT_EQ(0, writer->seekUp());
    ASSERT_EQ(0, lost->seek(IdId));
    ASSERT_EQ(0, writer->seek(NodeId));
    ASSERT_EQ(0, writer->deleteFromChild());
    EXPECT_EQ(-1, lost->curNamespaceID());
}

TEST(CursorNamespaces, SetComplexTypeWithoutNamespaceSetsTheTypeNamedByTheText) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->setComplexType(std::string(), std::string("t")));
    Bytes frame = frameOf(*message);
    EXPECT_EQ(0xFFFEu, nodeAt(frame, 8).kind);
    EXPECT_EQ("t", cursor->curType());
    EXPECT_EQ("65534 2 t", tableEntry(frame, rootEndOf(frame)));
}

TEST(CursorNamespaces, SetComplexTypeWithAnEmptyTypeDoesNothing) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    Bytes before = frameOf(*message);
    EXPECT_EQ(0, cursor->setComplexType(std::string("n"), std::string()));
    EXPECT_EQ(before, frameOf(*message));
}

TEST(CursorNamespaces, SetComplexTypeWithNamespaceUsesTheFullName) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    EXPECT_EQ(0, cursor->setComplexType(std::string("n"), std::string("t")));
    Bytes frame = frameOf(*message);
    EXPECT_EQ(0xFFFDu, nodeAt(frame, 8).kind);
    EXPECT_EQ(0u, nodeAt(frame, 8).ns); // the type's namespace is not the element's
    EXPECT_EQ("n:t", cursor->curType());
    std::uint32_t table = rootEndOf(frame);
    EXPECT_EQ("65533 2 n:t", tableEntry(frame, table));
    EXPECT_EQ("65534 1 n", tableEntry(frame, table + nodeSizeOf(nodeAt(frame, table))));
}

TEST(CursorNamespaces, SetComplexTypeOnAContainerWithANamespaceKeepsKind50) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ(0, cursor->setComplexType(std::string(), std::string("t")));
    EXPECT_EQ(50u, nodeAt(frameOf(*message), 8).kind);
    EXPECT_EQ("", cursor->curType());
}

TEST(CursorNamespaces, SecondSetComplexTypeKeepsTheFirstType) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->setComplexType(std::string(), std::string("first")));
    EXPECT_EQ(0, cursor->setComplexType(std::string(), std::string("second")));
    EXPECT_EQ("first", cursor->curType());
    EXPECT_EQ(0xFFFEu, nodeAt(frameOf(*message), 8).kind);
}

TEST(CursorNamespaces, SetComplexTypeByIdsComposesTheFullName) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    EXPECT_EQ(0, cursor->setComplexType(0, 101));
    EXPECT_EQ(101u, nodeAt(frameOf(*message), 24).kind);
    EXPECT_EQ("alertmType", cursor->curType());
    ASSERT_EQ(0, cursor->seekUp());
    ASSERT_EQ(0, cursor->newChild(IdId));
    EXPECT_EQ(0, cursor->setComplexType(205, 101));
    EXPECT_EQ(0xFFFEu, nodeAt(frameOf(*message), 40).kind);
    EXPECT_EQ(DbmUri + ":alertmType", cursor->curType());
}

TEST(CursorNamespaces, SetComplexTypeByIdsWithoutNamesFails) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    Bytes before = frameOf(*message);
    EXPECT_EQ(-1, cursor->setComplexType(0, 99));
    EXPECT_EQ(-1, cursor->setComplexType(400, 101));
    EXPECT_EQ(before, frameOf(*message));
}

TEST(CursorNamespaces, CurTypeOfAFixedTypeWithANamespaceIsPrefixedByTheUri) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->setComplexType(0, 101));
    ASSERT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ(DbmUri + ":alertmType", cursor->curType());
}

TEST(CursorNamespaces, CurTypeOfValueKindsAndPlainStructuresIsEmpty) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->putValue(5, IdId));
    ASSERT_EQ(0, cursor->seek(IdId));
    EXPECT_EQ("", cursor->curType());
    ASSERT_EQ(0, cursor->setNamespace(205));
    EXPECT_EQ("", cursor->curType());
    ASSERT_EQ(0, cursor->seekUp());
    EXPECT_EQ("", cursor->curType());
}

TEST(CursorNamespaces, ATypeOnAnElementWithoutValueMakesItAContainer) {
    Message message = packet();
    Cursor cursor = uncounted(*message);
    ASSERT_EQ(0, cursor->newChild(NodeId));
    ASSERT_EQ(0, cursor->setComplexType(std::string(), std::string("t")));
    EXPECT_EQ(0, cursor->newChild(IdId));
    Bytes frame = frameOf(*message);
    EXPECT_EQ(0xFFFEu, nodeAt(frame, 24).kind);
    EXPECT_EQ(16u, nodeAt(frame, 24).size);
    EXPECT_EQ(IdId, nodeAt(frame, 40).id);
}

// --- deferred fragments ----------------------------------------------------------

TEST(CursorNamespacesFragments, WithoutAFragmentExpansionChangesNothing) {
    Message message = packet();
    Cursor builder = uncounted(*message);
    ASSERT_EQ(0, builder->putValue(1, IdId));
    Bytes before = frameOf(*message);
    Cursor cursor = cursorWithPolicy(*message, 1);
    EXPECT_EQ(0, cursor->firstChild());
    EXPECT_EQ(IdId, cursor->curID());
    EXPECT_EQ(-1, cursor->firstChild()); // a leaf: nothing to expand, nothing to find
    EXPECT_EQ(0, cursor->seek(0));       // seek ignores the failed expansion
    EXPECT_EQ(before, frameOf(*message));
}

TEST(CursorNamespacesFragments, AFragmentThatDoesNotParseStaysUnderBothPolicies) {
    Bytes frame =
        FrameBuilder().open(Packet).text(0, 51, "<node><id>").int32(Restore, 1).close().finish();
    Message message = loaded(frame);
    Cursor strict = cursorWithPolicy(*message, 3);
    EXPECT_EQ(-1, strict->firstChild());
    EXPECT_EQ(1u, depthOf(*strict));
    EXPECT_EQ(0, strict->seek(Restore)); // seek ignores the failure
    Cursor lenient = cursorWithPolicy(*message, 1);
    EXPECT_EQ(0, lenient->firstChild());
    EXPECT_EQ(0, lenient->curID());
    EXPECT_EQ(frame, frameOf(*message));
}

TEST(CursorNamespacesFragments, ExpandedFragmentsStandBehindTheOtherChildren) {
    Bytes frame = FrameBuilder()
                      .open(Packet)
                      .text(0, 51, "<node><id>1</id></node>")
                      .int32(Restore, 7)
                      .text(0, 51, "<node><id>2</id></node>")
                      .close()
                      .finish();
    Message message = loaded(frame);
    Cursor cursor = cursorWithPolicy(*message, 1);
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(Restore, cursor->curID());
    EXPECT_EQ(24u, offsetOf(*cursor));
    int value = 0;
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(NodeId, cursor->curID());
    EXPECT_EQ(0, cursor->getValue(value, "id"));
    EXPECT_EQ(1, value);
    ASSERT_EQ(0, cursor->nextSibling());
    EXPECT_EQ(NodeId, cursor->curID());
    EXPECT_EQ(0, cursor->getValue(value, "id"));
    EXPECT_EQ(2, value);
    EXPECT_EQ(-1, cursor->nextSibling());
}

TEST(CursorNamespacesFragments, SeekZeroExpandsWhenPolicyBitZeroIsSet) {
    Bytes frame = FrameBuilder()
                      .open(Packet)
                      .text(0, 51, "<node><id>3</id></node>")
                      .int32(Restore, 7)
                      .close()
                      .finish();
    Message message = loaded(frame);
    Cursor plain = cursorWithPolicy(*message, 0);
    EXPECT_EQ(0, plain->seek(0));
    EXPECT_EQ(frame, frameOf(*message));
    Cursor expanding = cursorWithPolicy(*message, 1);
    EXPECT_EQ(0, expanding->seek(0));
    Bytes after = frameOf(*message);
    EXPECT_EQ(Restore, nodeAt(after, 24).id);
    EXPECT_EQ(NodeId, nodeAt(after, 40).id);
    EXPECT_EQ(50u, nodeAt(after, 40).kind);
}

TEST(CursorNamespacesFragments, ChildWithoutIdThatIsNoFragmentEndsTheExpansion) {
    Bytes frame =
        FrameBuilder().open(Packet).text(0, 2, "plain text").int32(Restore, 7).close().finish();
    Message message = loaded(frame);
    Cursor cursor = cursorWithPolicy(*message, 3);
    EXPECT_EQ(0, cursor->firstChild()); // returns instead of looping for ever
    EXPECT_EQ(0, cursor->curID());
    EXPECT_EQ(frame, frameOf(*message));
}
