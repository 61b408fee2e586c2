// Tests of the bodies that KVXMessageIterator gives itself: the defaults of
// the abstract cursor, the rule by which id forms reach the path forms, the
// booleans, presence tests, putChild, deleteChild, setNamespaceChild and copy
// on first write. Abstract-class cases run on recording doubles; the
// structural ones also run on the binary protocol.
#include "message/StubDoubles.h"
#include "message/TreeProtocol.h"

#include "binary/WireFormat.h"
#include "message/LengthLimits.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <pthread.h>

using KVX::KVXMessage;
using KVX::KVXMessageIterator;
using testdoubles::Destroyer;
using testdoubles::PathOnlyCursor;
using testdoubles::StubMessage;
using testdoubles::TreeCursor;
using testdoubles::TreeMessage;
using testdoubles::TreeNode;

namespace {

typedef std::vector<std::string> Calls;

// A recording cursor that also gives bodies to the id forms that the generic
// operations call, and to the (char const *, int, int) writers.
class IdCursor : public PathOnlyCursor {
public:
    using PathOnlyCursor::firstChild;
    using PathOnlyCursor::getValue;
    using PathOnlyCursor::newChild;
    using PathOnlyCursor::putValue;
    using PathOnlyCursor::putValueBase64;
    using PathOnlyCursor::seek;

    explicit IdCursor(KVXMessage *m = nullptr) : PathOnlyCursor(m) {}

    std::string written;

    int seek(int id) const override { return rec("seek(int)", std::to_string(id)); }
    int newChild(int id) override { return rec("newChild(int)", std::to_string(id)); }
    int firstChild(int id) const override { return rec("firstChild(int)", std::to_string(id)); }
    int getValue(std::string &value, int id) const override {
        int const result = rec("getValue(string,int)", std::to_string(id));
        if (result == 0) {
            value = readText;
        }
        return result;
    }
    int putValue(char const *value, int length, int id) override {
        written.assign(value, static_cast<std::size_t>(length));
        return rec("putValue(chars)", std::to_string(length) + "," + std::to_string(id));
    }
    int putValueBase64(char const *value, int length, int id) override {
        written.assign(value, static_cast<std::size_t>(length));
        return rec("putValueBase64(chars)", std::to_string(length) + "," + std::to_string(id));
    }
};

// A tree with root `packet`: each entry of `names` becomes a child of the root.
TreeMessage *newTree(std::vector<std::string> const &names = {}) {
    TreeMessage *m = new TreeMessage;
    m->create("packet");
    for (auto const &name : names) {
        std::unique_ptr<TreeNode> child(new TreeNode);
        child->name = name;
        m->data->children.push_back(std::move(child));
    }
    return m;
}

} // namespace

// --- construction and the plain defaults --------------------------------------

TEST(KVXMessageIterator, ConstructorsAndAssignmentTakeTheMessage) {
    StubMessage *m = new StubMessage;
    StubMessage *other = new StubMessage;
    PathOnlyCursor a(m);
    EXPECT_EQ(m, a.getMessage());
    PathOnlyCursor copied(a);
    EXPECT_EQ(m, copied.getMessage());
    PathOnlyCursor fromPointer(PathOnlyCursor::FromCursor(), &a);
    EXPECT_EQ(m, fromPointer.getMessage());
    PathOnlyCursor assigned(other);
    assigned = a;
    EXPECT_EQ(m, assigned.getMessage());
    {
        // Copying from no cursor is a caller's fault; the copy has no message.
        testdoubles::AssertRecorder recorder;
        PathOnlyCursor fromNull(PathOnlyCursor::FromCursor(), nullptr);
        EXPECT_EQ(1, testdoubles::AssertRecorder::count());
        EXPECT_EQ(nullptr, fromNull.getMessage());
        EXPECT_EQ(nullptr, fromNull.toText());
        char *frame = nullptr;
        int size = 0;
        EXPECT_EQ(-1, fromNull.serialize(&frame, &size));
        EXPECT_EQ(nullptr, frame);
    }
    // None of this touches the message's count or calls the cursor.
    EXPECT_EQ(1, testdoubles::shareCount(m));
    EXPECT_TRUE(a.log->empty());
    m->destroy();
    other->destroy();
}

TEST(KVXMessageIterator, SeekRootSeeksTheRootPath) {
    PathOnlyCursor c;
    c.script("seek", 3);
    EXPECT_EQ(3, c.seekRoot());
    EXPECT_EQ(Calls({"seek(/)"}), *c.log);
}

TEST(KVXMessageIterator, IdDefaultsFailWithoutTouchingAnything) {
    PathOnlyCursor c;
    EXPECT_EQ(-1, c.seek(0));
    EXPECT_EQ(-1, c.seek(1068));
    EXPECT_EQ(-1, c.newChild(1068));
    EXPECT_EQ(-1, c.firstChild(0));
    EXPECT_EQ(-1, c.firstChild(1068));
    EXPECT_EQ(-1, c.nextSibling(0));
    EXPECT_EQ(-1, c.nextSibling(1068));
    EXPECT_EQ(-1, c.curNamespaceID());
    EXPECT_EQ(-1, c.putValue("abc", 3, 0));
    EXPECT_EQ(-1, c.putValueBase64("abc", 3, 1068));
    EXPECT_TRUE(c.log->empty());
}

TEST(KVXMessageIterator, SaveNamespaceDefaultHasNoEffect) {
    PathOnlyCursor c;
    c.saveNamespace(297);
    c.saveNamespace(0);
    c.saveNamespace(std::string("urn:a"));
    c.saveNamespace(std::string());
    EXPECT_TRUE(c.log->empty());
    EXPECT_EQ(0, c.invalidations);
}

// --- the path-form rule -------------------------------------------------------

TEST(KVXMessageIterator, IdFormsWithNonZeroIdFailAndLeaveOutputs) {
    PathOnlyCursor c;
    std::string text = "untouched";
    int number = -7;
    __int64 big = -7;
    double real = -7.5;
    int zone = -7;
    EXPECT_EQ(-1, c.getValueBase64(text, 5));
    EXPECT_EQ(-1, c.getValue(number, 5));
    EXPECT_EQ(-1, c.getValue(text, 5));
    EXPECT_EQ(-1, c.getValueLongLong(big, 5));
    EXPECT_EQ(-1, c.getValueDouble(real, 5));
    EXPECT_EQ(-1, c.getValueTime(big, 5));
    EXPECT_EQ(-1, c.getValueTimeZone(big, zone, 5));
    EXPECT_EQ(-1, c.putValue(12, 5));
    EXPECT_EQ(-1, c.putValueLongLong(12, 5));
    EXPECT_EQ(-1, c.putValueDouble(1.5, 5));
    EXPECT_EQ(-1, c.putValueTime(12, 5));
    EXPECT_EQ(-1, c.putValueTimeZone(12, 60, 5));
    EXPECT_EQ("untouched", text);
    EXPECT_EQ(-7, number);
    EXPECT_EQ(-7, big);
    EXPECT_EQ(-7.5, real);
    EXPECT_EQ(-7, zone);
    EXPECT_TRUE(c.log->empty());
}

TEST(KVXMessageIterator, IdFormsWithIdZeroCallPathFormsWithEmptyPath) {
    PathOnlyCursor c;
    std::string text;
    std::string base64;
    int number = 0;
    __int64 big = 0;
    __int64 time = 0;
    __int64 zoned = 0;
    double real = 0;
    int zone = 0;
    EXPECT_EQ(0, c.getValueBase64(base64, 0));
    EXPECT_EQ(0, c.getValue(number, 0));
    EXPECT_EQ(0, c.getValue(text, 0));
    EXPECT_EQ(0, c.getValueLongLong(big, 0));
    EXPECT_EQ(0, c.getValueDouble(real, 0));
    EXPECT_EQ(0, c.getValueTime(time, 0));
    EXPECT_EQ(0, c.getValueTimeZone(zoned, zone, 0));
    EXPECT_EQ(0, c.putValue(12, 0));
    EXPECT_EQ(0, c.putValue(std::string("s"), 0));
    EXPECT_EQ(0, c.putValueBase64(std::string("b"), 0));
    EXPECT_EQ(0, c.putValueLongLong(13, 0));
    EXPECT_EQ(0, c.putValueDouble(1.5, 0));
    EXPECT_EQ(0, c.putValueTime(14, 0));
    EXPECT_EQ(0, c.putValueTimeZone(15, 60, 0));
    EXPECT_EQ("YmFzZTY0", base64);
    EXPECT_EQ(42, number);
    EXPECT_EQ("text", text);
    EXPECT_EQ(static_cast<__int64>(1) << 40, big);
    EXPECT_EQ(2.5, real);
    EXPECT_EQ(86400, time);
    EXPECT_EQ(172800, zoned);
    EXPECT_EQ(60, zone);
    Calls const expected = {"getValueBase64()",      "getValue(int)()",
                            "getValue(string)()",    "getValueLongLong()",
                            "getValueDouble()",      "getValueTime()",
                            "getValueTimeZone()",    "putValue(int)(12@)",
                            "putValue(string)(s@)",  "putValueBase64(b@)",
                            "putValueLongLong(13@)", "putValueDouble(" + std::to_string(1.5) + "@)",
                            "putValueTime(14@)",     "putValueTimeZone(15,60@)"};
    EXPECT_EQ(expected, *c.log);
}

TEST(KVXMessageIterator, IdFormsPassThePathFormResultOn) {
    PathOnlyCursor c;
    c.script("getValue(int)", -2);
    c.script("putValueDouble", 1);
    int number = 9;
    EXPECT_EQ(-2, c.getValue(number, 0));
    EXPECT_EQ(9, number);
    EXPECT_EQ(1, c.putValueDouble(2.0, 0));
}

TEST(KVXMessageIterator, StringWritersWithIdReachTheCharacterForm) {
    // A cursor that overrides nothing but the path forms: the abstract
    // character form answers -1.
    PathOnlyCursor plain;
    EXPECT_EQ(-1, plain.putValue(std::string("value"), 5));
    EXPECT_EQ(-1, plain.putValueBase64(std::string("dmFsdWU="), 5));
    EXPECT_TRUE(plain.log->empty());

    // One that overrides the character form gets the bytes and the length,
    // a 0 byte included.
    IdCursor c;
    c.script("putValue(chars)", 0);
    std::string const withZero("ab\0cd", 5);
    EXPECT_EQ(0, c.putValue(withZero, 1068));
    EXPECT_EQ(withZero, c.written);
    c.script("putValueBase64(chars)", 1);
    EXPECT_EQ(1, c.putValueBase64(std::string("YWI="), 1401));
    EXPECT_EQ("YWI=", c.written);
    EXPECT_EQ(Calls({"putValue(chars)(5,1068)", "putValueBase64(chars)(4,1401)"}), *c.log);
}

TEST(KVXMessageIterator, StringLengthBeyondIntIsRefusedNotCut) {
    // The string writers hand a size_t length to an int parameter through this
    // test; a longer string is refused with -1 (building one needs 2 GiB, so
    // the test is on the bound itself).
    EXPECT_TRUE(KVX::Internal::fitsIntLength(0));
    EXPECT_TRUE(KVX::Internal::fitsIntLength(static_cast<std::size_t>(INT_MAX)));
    EXPECT_FALSE(KVX::Internal::fitsIntLength(static_cast<std::size_t>(INT_MAX) + 1));
    EXPECT_FALSE(KVX::Internal::fitsIntLength(static_cast<std::size_t>(UINT_MAX) + 1));
}

// --- booleans ---------------------------------------------------------------

TEST(KVXMessageIterator, BooleanFalseOnlyForZeroEmptyAndFalse) {
    PathOnlyCursor c;
    struct Case {
        char const *text;
        bool expected;
    } const cases[] = {{"0", false},   {"", false},  {"false", false}, {"False", true},
                       {"00", true},   {"no", true}, {"off", true},    {"1", true},
                       {"true", true}, {" 0", true}, {"false ", true}, {"FALSE", true}};
    for (auto const &one : cases) {
        c.readText = one.text;
        bool value = !one.expected;
        EXPECT_EQ(0, c.getValue(value, std::string("flag"))) << one.text;
        EXPECT_EQ(one.expected, value) << '"' << one.text << '"';
    }
    EXPECT_EQ("getValue(string)(flag)", c.log->front());
}

TEST(KVXMessageIterator, BooleanReadFailureLeavesValueAndPassesResult) {
    PathOnlyCursor c;
    c.script("getValue(string)", -2);
    bool value = true;
    EXPECT_EQ(-2, c.getValue(value, std::string("flag")));
    EXPECT_TRUE(value);
    value = false;
    EXPECT_EQ(-2, c.getValue(value, 0));
    EXPECT_FALSE(value);
}

TEST(KVXMessageIterator, BooleanByIdZeroReadsHere) {
    PathOnlyCursor c;
    c.readText = "0";
    bool value = true;
    EXPECT_EQ(0, c.getValue(value, 0));
    EXPECT_FALSE(value);
    EXPECT_EQ(Calls({"getValue(string)()"}), *c.log);
}

TEST(KVXMessageIterator, BooleanByIdReadsThroughStringIdForm) {
    // On a cursor without an id form for strings, the read fails.
    PathOnlyCursor plain;
    bool value = true;
    EXPECT_EQ(-1, plain.getValue(value, 1068));
    EXPECT_TRUE(value);

    IdCursor c;
    c.readText = "false";
    EXPECT_EQ(0, c.getValue(value, 1068));
    EXPECT_FALSE(value);
    c.readText = "no";
    EXPECT_EQ(0, c.getValue(value, 1068));
    EXPECT_TRUE(value);
    c.script("getValue(string,int)", -1);
    value = false;
    EXPECT_EQ(-1, c.getValue(value, 1068));
    EXPECT_FALSE(value);
    EXPECT_EQ(Calls({"getValue(string,int)(1068)", "getValue(string,int)(1068)",
                     "getValue(string,int)(1068)"}),
              *c.log);
}

// --- presence, putChild, deleteChild ----------------------------------------

TEST(KVXMessageIterator, SeekPresenceByIdClimbsBackUnlessIdIsZero) {
    IdCursor c;
    EXPECT_EQ(0, c.seekPresence(1068));
    EXPECT_EQ(0, c.seekPresence(0));
    c.script("seek(int)", -1);
    EXPECT_EQ(-1, c.seekPresence(1068));
    c.script("seek(int)", 2);
    EXPECT_EQ(-1, c.seekPresence(1068));
    EXPECT_EQ(Calls({"seek(int)(1068)", "seekUp()", "seek(int)(0)", "seek(int)(1068)",
                     "seek(int)(1068)"}),
              *c.log);
    // Without an id form, seek(int) fails and so does the presence test.
    PathOnlyCursor plain;
    EXPECT_EQ(-1, plain.seekPresence(0));
}

TEST(KVXMessageIterator, SeekPresenceByPathClimbsOneLevelUnlessPathIsEmpty) {
    PathOnlyCursor c;
    EXPECT_EQ(0, c.seekPresence(std::string("src/host")));
    EXPECT_EQ(0, c.seekPresence(std::string()));
    c.script("seek", -1);
    EXPECT_EQ(-1, c.seekPresence(std::string("cookie")));
    EXPECT_EQ(Calls({"seek(src/host)", "seekUp()", "seek()", "seek(cookie)"}), *c.log);
}

TEST(KVXMessageIterator, PutChildOfExistingChildOnlyClimbsBack) {
    IdCursor c;
    EXPECT_EQ(0, c.putChild(1068));
    EXPECT_EQ(0, c.putChild(std::string("host")));
    EXPECT_EQ(Calls({"seek(int)(1068)", "seekUp()", "seek(host)", "seekUp()"}), *c.log);
}

TEST(KVXMessageIterator, PutChildAddsMissingChildAndClimbsBack) {
    IdCursor c;
    c.script("seek(int)", -1);
    c.script("seek", -1);
    EXPECT_EQ(0, c.putChild(1068));
    EXPECT_EQ(0, c.putChild(std::string("host")));
    EXPECT_EQ(Calls({"seek(int)(1068)", "newChild(int)(1068)", "seekUp()", "seek(host)",
                     "newChild(host)", "seekUp()"}),
              *c.log);
}

TEST(KVXMessageIterator, PutChildFailsWhenChildCanBeNeitherFoundNorMade) {
    IdCursor c;
    c.script("seek(int)", -1);
    c.script("newChild(int)", -1);
    c.script("seek", -1);
    c.script("newChild", -1);
    EXPECT_EQ(-1, c.putChild(1068));
    EXPECT_EQ(-1, c.putChild(std::string("host")));
    EXPECT_EQ(Calls({"seek(int)(1068)", "newChild(int)(1068)", "seek(host)", "newChild(host)"}),
              *c.log);
}

TEST(KVXMessageIterator, DeleteChildRepeatsUntilNoChildIsLeft) {
    IdCursor c;
    c.scriptSequence("firstChild(int)", {0, 0, 0, -1});
    EXPECT_EQ(0, c.deleteChild(1068));
    EXPECT_EQ(Calls({"firstChild(int)(1068)", "deleteFromChild()", "firstChild(int)(1068)",
                     "deleteFromChild()", "firstChild(int)(1068)", "deleteFromChild()",
                     "firstChild(int)(1068)"}),
              *c.log);
}

TEST(KVXMessageIterator, DeleteChildWithoutSuchChildSucceeds) {
    IdCursor c;
    c.script("firstChild(int)", -1);
    EXPECT_EQ(0, c.deleteChild(1068));
    EXPECT_EQ(Calls({"firstChild(int)(1068)"}), *c.log);
}

TEST(KVXMessageIterator, DeleteChildStopsWhenDeletionFails) {
    IdCursor c;
    c.scriptSequence("deleteFromChild", {0, -1});
    EXPECT_EQ(-1, c.deleteChild(1068));
    EXPECT_EQ(Calls({"firstChild(int)(1068)", "deleteFromChild()", "firstChild(int)(1068)",
                     "deleteFromChild()"}),
              *c.log);
}

TEST(KVXMessageIterator, DeleteChildOnTreeRemovesEveryChildOfThatId) {
    TreeMessage *m = newTree({"host", "data", "host", "host"});
    Destroyer keep{m};
    TreeCursor c(m);
    EXPECT_EQ(0, c.deleteChild(1068));
    ASSERT_EQ(1u, m->data->children.size());
    EXPECT_EQ("data", m->data->children[0]->name);
    EXPECT_EQ(1u, c.path.size());
    EXPECT_EQ(0, c.deleteChild(1068));
}

// --- whole-message forwards and getOrigin -----------------------------------

TEST(KVXMessageIterator, ToTextAndSerializeAnswerForTheWholeMessage) {
    StubMessage *m = new StubMessage;
    PathOnlyCursor c(m);
    char *text = c.toText();
    ASSERT_NE(nullptr, text);
    EXPECT_STREQ("stub text", text);
    EXPECT_EQ(nullptr, m->record->lastSerializeFrom);
    EXPECT_EQ(40500, m->record->lastSerializeVersion);
    std::free(text);

    char *frame = nullptr;
    int size = 0;
    EXPECT_EQ(0, c.serialize(&frame, &size, 30000));
    EXPECT_EQ(30000, m->record->lastSerializeVersion);
    EXPECT_EQ(nullptr, m->record->lastSerializeFrom);
    EXPECT_EQ(9, size);
    std::free(frame);
    EXPECT_EQ(0, c.serialize(&frame, &size));
    EXPECT_EQ(40500, m->record->lastSerializeVersion);
    std::free(frame);
    m->record->serializeResult = -1;
    EXPECT_EQ(-1, c.serialize(&frame, &size));
    EXPECT_EQ(nullptr, c.toText());
    m->destroy();
}

TEST(KVXMessageIterator, GetOriginReadsTheAbsolutePath) {
    PathOnlyCursor c;
    c.readText = "agent-a";
    std::string out;
    EXPECT_EQ(0, c.getOrigin(out));
    EXPECT_EQ("agent-a", out);
    EXPECT_EQ(Calls({"getValue(string)(/origin)"}), *c.log);
}

TEST(KVXMessageIterator, GetOriginFindsRootOriginFromAnywhere) {
    TreeMessage *m = newTree({"src"});
    Destroyer keep{m};
    m->setOrigin("agent-a");
    TreeCursor c(m);
    ASSERT_EQ(0, c.seek(std::string("src")));
    std::string out;
    EXPECT_EQ(0, c.getOrigin(out));
    EXPECT_EQ("agent-a", out);
    EXPECT_EQ("src", c.curName());
}

// --- copy on first write ------------------------------------------------------

TEST(KVXMessageIterator, ValidateInternalsWithoutMessageFails) {
    PathOnlyCursor c;
    EXPECT_EQ(-1, c.callValidateInternals());
    EXPECT_EQ(0, c.invalidations);
}

TEST(KVXMessageIterator, ValidateInternalsOfSoleOwnerChangesNothing) {
    StubMessage *m = new StubMessage;
    PathOnlyCursor c(m);
    EXPECT_EQ(0, c.callValidateInternals());
    EXPECT_EQ(0, m->record->copies);
    EXPECT_EQ(0, c.invalidations);
    m->destroy();
}

TEST(KVXMessageIterator, ValidateInternalsSeparatesSharedDataAndInvalidates) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    PathOnlyCursor c(m);
    EXPECT_EQ(0, c.callValidateInternals());
    EXPECT_EQ(1, m->record->copies);
    EXPECT_EQ(1, c.invalidations);
    EXPECT_EQ(1, testdoubles::shareCount(m));
    EXPECT_EQ(1, testdoubles::shareCount(twin));
    // Now alone: a second call does nothing more.
    EXPECT_EQ(0, c.callValidateInternals());
    EXPECT_EQ(1, m->record->copies);
    EXPECT_EQ(1, c.invalidations);
    twin->destroy();
    m->destroy();
}

TEST(KVXMessageIterator, ValidateInternalsFailsWhenPrivateCopyFails) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    m->record->copyInternalsResult = -1;
    PathOnlyCursor c(m);
    EXPECT_EQ(-1, c.callValidateInternals());
    EXPECT_EQ(0, c.invalidations);
    twin->destroy();
    m->destroy();
}

// --- setNamespaceChild ----------------------------------------------------------

TEST(KVXMessageIterator, SetNamespaceChildVisitsDescendantsInDocumentOrder) {
    // packet { a { b { c } d } e }, cursor on packet.
    TreeMessage *m = newTree({"a", "e"});
    Destroyer keep{m};
    TreeNode &a = *m->data->children[0];
    for (char const *name : {"b", "d"}) {
        a.children.emplace_back(new TreeNode);
        a.children.back()->name = name;
    }
    a.children[0]->children.emplace_back(new TreeNode);
    a.children[0]->children.back()->name = "c";
    m->data->ns = 7;

    TreeCursor c(m);
    m->log->clear();
    EXPECT_EQ(0, c.setNamespaceChild(205));
    EXPECT_EQ(7, m->data->ns);
    EXPECT_EQ(205, a.ns);
    EXPECT_EQ(205, a.children[0]->ns);
    EXPECT_EQ(205, a.children[0]->children[0]->ns);
    EXPECT_EQ(205, a.children[1]->ns);
    EXPECT_EQ(205, m->data->children[1]->ns);
    // The cursor it was called on has not moved.
    EXPECT_EQ(1u, c.path.size());
    std::vector<std::string> namespaceCalls;
    for (auto const &call : *m->log) {
        if (call.rfind("cursor.setNamespace", 0) == 0) {
            namespaceCalls.push_back(call);
        }
    }
    EXPECT_EQ(5u, namespaceCalls.size());
}

TEST(KVXMessageIterator, SetNamespaceChildOfLeafDoesNothing) {
    TreeMessage *m = newTree({"a"});
    Destroyer keep{m};
    TreeCursor c(m);
    ASSERT_EQ(0, c.firstChild());
    EXPECT_EQ(0, c.setNamespaceChild(205));
    EXPECT_EQ(0, m->data->children[0]->ns);
}

TEST(KVXMessageIterator, SetNamespaceChildSeparatesSharedData) {
    TreeMessage *m = newTree({"a"});
    KVXMessage *twin = m->copy(false);
    TreeCursor c(m);
    EXPECT_EQ(0, c.setNamespaceChild(205));
    EXPECT_EQ(205, m->data->children[0]->ns);
    EXPECT_EQ(0, static_cast<TreeMessage *>(twin)->data->children[0]->ns);
    twin->destroy();
    m->destroy();
}

// --- on the binary protocol ------------------------------------------------------

namespace {

KVXMessage *newBinaryPacket() {
    KVXMessage *m = KVX::KVXMsgFactory::createNew();
    EXPECT_EQ(0, m->create("packet"));
    return m;
}

// Names of the current element's element children, in order.
std::vector<std::string> childNames(KVXMessageIterator const &at) {
    std::vector<std::string> names;
    KVXMessageIterator *walker = at.newIterator(false);
    if (walker->firstChild() == 0) {
        do {
            names.push_back(walker->curName());
        } while (walker->nextSibling() == 0);
    }
    delete walker;
    return names;
}

} // namespace

TEST(KVXMessageIterator, BinarySeekPresenceOfTwoStepsLeavesCursorOnFirstStep) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keep{m};
    KVXMessageIterator *c = m->newIterator();
    ASSERT_EQ(0, c->newChild(std::string("src")));
    ASSERT_EQ(0, c->newChild(std::string("host")));
    ASSERT_EQ(0, c->seekRoot());
    EXPECT_EQ(0, c->seekPresence(std::string("src/host")));
    EXPECT_EQ("src", c->curName());
    ASSERT_EQ(0, c->seekRoot());
    EXPECT_EQ(0, c->seekPresence(std::string("src")));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(-1, c->seekPresence(std::string("dst")));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(0, c->seekPresence(1649));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(-1, c->seekPresence(1652));
    delete c;
}

TEST(KVXMessageIterator, BinaryPutChildTwiceGivesOneChildAndCursorStays) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keep{m};
    KVXMessageIterator *c = m->newIterator();
    EXPECT_EQ(0, c->putChild(1307));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(0, c->putChild(std::string("data")));
    EXPECT_EQ(0, c->putChild(1307));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(std::vector<std::string>({"data"}), childNames(*c));
    delete c;
}

TEST(KVXMessageIterator, BinaryPutChildOnExistingChildLeavesItAsItIs) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keep{m};
    ASSERT_EQ(0, m->setOrigin("agent"));
    KVXMessageIterator *c = m->newIterator();
    EXPECT_EQ(0, c->putChild(std::string("origin")));
    EXPECT_EQ("agent", m->getOrigin());
    EXPECT_EQ("packet", c->curName());
    delete c;
}

TEST(KVXMessageIterator, BinaryDeleteChildRemovesAllOfThatIdAndNoneIsFine) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keep{m};
    KVXMessageIterator *c = m->newIterator();
    for (char const *name : {"host", "data", "host", "host"}) {
        ASSERT_EQ(0, c->newChild(std::string(name)));
        ASSERT_EQ(0, c->seekUp());
    }
    EXPECT_EQ(0, c->deleteChild(1068));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(std::vector<std::string>({"data"}), childNames(*c));
    EXPECT_EQ(0, c->deleteChild(1068));
    EXPECT_EQ(std::vector<std::string>({"data"}), childNames(*c));
    delete c;
}

TEST(KVXMessageIterator, BinarySetNamespaceChildChangesElementsBelowOnly) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keep{m};
    KVXMessageIterator *c = m->newIterator();
    ASSERT_EQ(0, c->newChild(std::string("src")));
    ASSERT_EQ(0, c->putValue(std::string("x"), 109)); // an attribute of src
    ASSERT_EQ(0, c->newChild(std::string("host")));
    ASSERT_EQ(0, c->seekRoot());
    ASSERT_EQ(0, c->newChild(std::string("data")));
    ASSERT_EQ(0, c->seekRoot());
    int const rootNamespace = c->curNamespaceID();

    EXPECT_EQ(0, c->setNamespaceChild(205));
    EXPECT_EQ("packet", c->curName());
    EXPECT_EQ(rootNamespace, c->curNamespaceID());
    ASSERT_EQ(0, c->seek(std::string("src")));
    EXPECT_EQ(205, c->curNamespaceID());
    ASSERT_EQ(0, c->seek(109));
    EXPECT_EQ(0, c->curNamespaceID()); // attributes are passed by
    ASSERT_EQ(0, c->seekUp());
    ASSERT_EQ(0, c->seek(std::string("host")));
    EXPECT_EQ(205, c->curNamespaceID());
    ASSERT_EQ(0, c->seek(std::string("/data")));
    EXPECT_EQ(205, c->curNamespaceID());
    delete c;
}

namespace {

// A frame whose root is `depth` nested empty-bodied containers of element
// 1008 ("node"), with the name table entry for 1008.
std::string nestedFrame(unsigned depth) {
    using namespace KVX::Internal;
    std::string frame(8 + 16 * static_cast<std::size_t>(depth) + 24, '\0');
    char *p = &frame[0];
    store32(p, FrameMagic);
    store32(p + 4, (FormatCurrent << FormatShift) | 24u);
    for (unsigned level = 0; level < depth; ++level) {
        char *node = p + 8 + 16 * static_cast<std::size_t>(level);
        store32(node, 1008);
        store16(node + 4, KindStructure);
        store16(node + 6, 0);
        store32(node + 8, 16 * (depth - level - 1));
    }
    char *entry = p + 8 + 16 * static_cast<std::size_t>(depth);
    store32(entry, 1008);
    store32(entry + 4, 0);
    store32(entry + 8, 5);
    std::memcpy(entry + 12, "node", 5);
    return frame;
}

// Deep enough that one call level per element would not fit the small stack
// below, within the nesting that a frame may have.
constexpr unsigned DeepNesting = 3000;
constexpr std::size_t SmallStack = 64 * 1024;

struct WalkJob {
    KVXMessageIterator *cursor;
    int result;
};

void *runSetNamespaceChild(void *arg) {
    WalkJob *job = static_cast<WalkJob *>(arg);
    job->result = job->cursor->setNamespaceChild(205);
    return nullptr;
}

} // namespace

TEST(KVXMessageIterator, SetNamespaceChildOfDeepTreeNeedsNoDeepStack) {
    std::string const frame = nestedFrame(DeepNesting);
    KVXMessage *m = KVX::KVXMsgFactory::createNew(frame.data(), static_cast<int>(frame.size()));
    ASSERT_NE(nullptr, m);
    Destroyer keep{m};
    KVXMessageIterator *c = m->newIterator();
    WalkJob job{c, -9};
    pthread_attr_t attr;
    ASSERT_EQ(0, pthread_attr_init(&attr));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attr, SmallStack));
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, &attr, &runSetNamespaceChild, &job));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    pthread_attr_destroy(&attr);
    EXPECT_EQ(0, job.result);

    EXPECT_EQ(0, c->curNamespaceID());
    unsigned level = 1;
    while (c->firstChild() == 0) {
        ++level;
        ASSERT_EQ(205, c->curNamespaceID()) << "at level " << level;
    }
    EXPECT_EQ(DeepNesting, level);
    delete c;
}
