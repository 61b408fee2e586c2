// Tests of the bodies that KVXMessage gives itself: sharing of data with copy
// on first write, destroy, the text and text-file defaults, and the header
// accessors that work through a cursor. The abstract-class cases run on test
// doubles; the sharing rules run on the binary protocol as well.
#include "message/StubDoubles.h"
#include "message/TreeProtocol.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXCommon.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using KVX::KVXMessage;
using KVX::KVXMessageIterator;
using testdoubles::AssertRecorder;
using testdoubles::Destroyer;
using testdoubles::shareCount;
using testdoubles::StubMessage;
using testdoubles::TreeCursor;
using testdoubles::TreeMessage;

namespace {

// A file name private to this process and test.
std::string scratchPath(std::string const &name) {
    return ::testing::TempDir() + "kvx_message_" + std::to_string(::getpid()) + "_" + name;
}

bool fileExists(std::string const &path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

std::string readFile(std::string const &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(std::string const &path, std::string const &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

// A tree message with root `packet`.
TreeMessage *newTree() {
    TreeMessage *m = new TreeMessage;
    m->create("packet");
    return m;
}

} // namespace

// --- counter and plain copies -----------------------------------------------

TEST(KVXMessage, DefaultConstructorStartsCountAtOne) {
    StubMessage *m = new StubMessage;
    ASSERT_NE(nullptr, m->counter());
    EXPECT_EQ(1, m->counter()->load());
    m->destroy();
}

TEST(KVXMessage, CopyConstructorSharesCounterWithoutRaisingIt) {
    StubMessage *m = new StubMessage;
    StubMessage *twin = new StubMessage(*m);
    EXPECT_EQ(m->counter(), twin->counter());
    EXPECT_EQ(1, m->counter()->load());
    // Two objects hold one share; give the twin a counter of its own so that
    // both can be released.
    twin->setCounter(new std::atomic<int>(1));
    twin->destroy();
    m->destroy();
}

TEST(KVXMessage, AssignmentCopiesCounterPointerWithoutRaisingIt) {
    StubMessage *m = new StubMessage;
    StubMessage *other = new StubMessage;
    std::atomic<int> *const own = other->counter();
    *other = *m;
    EXPECT_EQ(m->counter(), other->counter());
    EXPECT_EQ(1, m->counter()->load());
    EXPECT_EQ(1, own->load());
    other->setCounter(own);
    other->destroy();
    m->destroy();
}

TEST(KVXMessage, FixedBufferSerializeIsNotSupported) {
    StubMessage *m = new StubMessage;
    char buffer[16] = {0};
    unsigned __int64 size = sizeof buffer;
    EXPECT_EQ(-1, m->serialize(buffer, &size, nullptr));
    EXPECT_EQ(sizeof buffer, size);
    EXPECT_EQ(-1, m->serialize(nullptr, &size));
    EXPECT_EQ(sizeof buffer, size);
    m->destroy();
}

TEST(KVXMessage, SaveChangesDoesNothingAndSucceeds) {
    StubMessage *m = new StubMessage;
    EXPECT_EQ(0, m->callSaveChanges());
    EXPECT_EQ(0, m->record->serializeResult);
    m->destroy();
}

// --- copy, multiReference, hardcopy, destroy ----------------------------------

TEST(KVXMessage, CopyTrueAndFalseBothRaiseCountAndShareData) {
    StubMessage *m = new StubMessage;
    KVXMessage *deep = m->copy(true);
    ASSERT_NE(nullptr, deep);
    EXPECT_EQ(2, m->counter()->load());
    KVXMessage *shallow = m->copy(false);
    ASSERT_NE(nullptr, shallow);
    EXPECT_EQ(3, m->counter()->load());
    EXPECT_EQ(m->counter(), static_cast<StubMessage *>(deep)->counter());
    EXPECT_EQ(m->counter(), static_cast<StubMessage *>(shallow)->counter());
    EXPECT_EQ(2, m->record->assigns);
    EXPECT_EQ(0, m->record->copies);
    deep->destroy();
    shallow->destroy();
    EXPECT_EQ(1, m->counter()->load());
    m->destroy();
}

TEST(KVXMessage, CopyWithoutShareGivesNull) {
    StubMessage *m = new StubMessage;
    std::atomic<int> *const counter = m->counter();
    m->setCounter(nullptr);
    EXPECT_EQ(nullptr, m->copy(false));
    EXPECT_EQ(0, m->record->assigns);
    m->setCounter(counter);
    m->destroy();
}

TEST(KVXMessage, CopyGivesNullWhenNewMessageFails) {
    StubMessage *m = new StubMessage;
    m->record->newMessageFails = true;
    EXPECT_EQ(nullptr, m->copy(true));
    EXPECT_EQ(1, m->counter()->load());
    m->destroy();
}

TEST(KVXMessage, MultiReferenceFollowsTheCount) {
    StubMessage *m = new StubMessage;
    EXPECT_FALSE(m->callMultiReference());
    KVXMessage *twin = m->copy(false);
    EXPECT_TRUE(m->callMultiReference());
    EXPECT_TRUE(static_cast<StubMessage *>(twin)->callMultiReference());
    twin->destroy();
    EXPECT_FALSE(m->callMultiReference());
    std::atomic<int> *const counter = m->counter();
    m->setCounter(nullptr);
    EXPECT_FALSE(m->callMultiReference());
    m->setCounter(counter);
    m->destroy();
}

TEST(KVXMessage, MultiReferenceAssertsOnExhaustedCount) {
    AssertRecorder recorder;
    StubMessage *m = new StubMessage;
    m->counter()->store(0);
    EXPECT_TRUE(m->callMultiReference());
    EXPECT_EQ(1, AssertRecorder::count());
    m->counter()->store(1);
    m->destroy();
}

TEST(KVXMessage, HardcopyOfSoleOwnerDoesNothing) {
    StubMessage *m = new StubMessage;
    std::atomic<int> *const counter = m->counter();
    EXPECT_EQ(0, m->callHardcopy());
    EXPECT_EQ(counter, m->counter());
    EXPECT_EQ(0, m->record->copies);
    EXPECT_EQ(0, m->record->assigns);
    m->setCounter(nullptr);
    EXPECT_EQ(0, m->callHardcopy());
    EXPECT_EQ(0, m->record->copies);
    m->setCounter(counter);
    m->destroy();
}

TEST(KVXMessage, HardcopySeparatesThisObjectAndKeeperLeaves) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    std::atomic<int> *const shared = m->counter();
    EXPECT_EQ(0, m->callHardcopy());
    EXPECT_NE(shared, m->counter());
    EXPECT_EQ(1, m->counter()->load());
    EXPECT_EQ(1, shared->load());
    EXPECT_EQ(shared, static_cast<StubMessage *>(twin)->counter());
    // One copyInternals; the keeper was a second copy that gave its share back.
    EXPECT_EQ(1, m->record->copies);
    EXPECT_EQ(2, m->record->assigns);
    EXPECT_EQ(1, m->record->releases);
    EXPECT_EQ(1, m->record->destructions);
    auto const record = m->record;
    twin->destroy();
    m->destroy();
    EXPECT_EQ(3, record->destructions);
}

TEST(KVXMessage, HardcopyFailsWhenPrivateCopyFails) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    std::atomic<int> *const shared = m->counter();
    m->record->copyInternalsResult = -1;
    EXPECT_EQ(-1, m->callHardcopy());
    EXPECT_EQ(shared, m->counter());
    EXPECT_EQ(2, shared->load());
    EXPECT_EQ(1, m->record->destructions); // the keeper
    twin->destroy();
    m->destroy();
}

TEST(KVXMessage, HardcopyFailsWhenKeeperCannotBeMade) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    m->record->newMessageFails = true;
    EXPECT_EQ(-1, m->callHardcopy());
    EXPECT_EQ(2, m->counter()->load());
    EXPECT_EQ(0, m->record->copies);
    twin->destroy();
    m->destroy();
}

TEST(KVXMessage, DestroyOfOneSharerReleasesItsInternalsOnly) {
    StubMessage *m = new StubMessage;
    KVXMessage *twin = m->copy(false);
    twin->destroy();
    EXPECT_EQ(1, m->record->releases);
    EXPECT_EQ(1, m->record->destructions);
    EXPECT_EQ(1, m->counter()->load());
    auto const record = m->record;
    m->destroy();
    // The last owner frees its data in its destructor, not through release.
    EXPECT_EQ(1, record->releases);
    EXPECT_EQ(2, record->destructions);
}

// --- text defaults ----------------------------------------------------------

TEST(KVXMessage, ToTextSerializesAtTheVersionAskedAndIgnoresNamespaceBase) {
    StubMessage *m = new StubMessage;
    testdoubles::PathOnlyCursor at(m);
    char *text = m->toText(&at, "urn:ignored", 30500);
    ASSERT_NE(nullptr, text);
    EXPECT_STREQ("stub text", text);
    EXPECT_EQ(30500, m->record->lastSerializeVersion);
    EXPECT_EQ(&at, m->record->lastSerializeFrom);
    std::free(text);
    text = m->toText();
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(40500, m->record->lastSerializeVersion);
    EXPECT_EQ(nullptr, m->record->lastSerializeFrom);
    std::free(text);
    m->destroy();
}

TEST(KVXMessage, ToTextGivesNullWhenSerializeFails) {
    StubMessage *m = new StubMessage;
    m->record->serializeResult = -2;
    EXPECT_EQ(nullptr, m->toText());
    m->destroy();
}

TEST(KVXMessage, FromTextDeserializesWithStringLength) {
    StubMessage *m = new StubMessage;
    testdoubles::PathOnlyCursor at(m);
    m->record->deserializeResult = 3;
    EXPECT_EQ(3, m->fromText("<packet/>", &at));
    EXPECT_EQ("<packet/>", m->record->deserialized);
    EXPECT_EQ(&at, m->record->lastDeserializeTo);
    m->record->deserializeResult = 0;
    EXPECT_EQ(0, m->fromText(""));
    EXPECT_EQ("", m->record->deserialized);
    EXPECT_EQ(nullptr, m->record->lastDeserializeTo);
    m->destroy();
}

TEST(KVXMessage, FromTextWithoutTextAssertsAndFails) {
    AssertRecorder recorder;
    StubMessage *m = new StubMessage;
    m->record->deserialized = "untouched";
    EXPECT_EQ(-1, m->fromText(nullptr));
    EXPECT_EQ(1, AssertRecorder::count());
    EXPECT_EQ("untouched", m->record->deserialized);
    m->destroy();
}

TEST(KVXMessage, ToTextFileWritesTheTextWithoutTerminator) {
    std::string const path = scratchPath("to_text_file");
    writeFile(path, "an older and much longer content that w+ must truncate");
    StubMessage *m = new StubMessage;
    EXPECT_EQ(0, m->toTextFile(path));
    EXPECT_EQ(40500, m->record->lastSerializeVersion);
    EXPECT_EQ(nullptr, m->record->lastSerializeFrom);
    EXPECT_EQ(std::string("stub text"), readFile(path));
    m->destroy();
    std::remove(path.c_str());
}

TEST(KVXMessage, ToTextFileOfUnwritableMessageCreatesNoFile) {
    std::string const path = scratchPath("unwritable");
    std::remove(path.c_str());
    StubMessage *m = new StubMessage;
    m->record->serializeResult = -1;
    EXPECT_EQ(-1, m->toTextFile(path));
    EXPECT_FALSE(fileExists(path));
    m->destroy();
}

TEST(KVXMessage, ToTextFileFailsWhenFileCannotBeOpened) {
    // The text made before the open is freed on this path (the sanitizer
    // build would report it otherwise).
    StubMessage *m = new StubMessage;
    EXPECT_EQ(-1, m->toTextFile(scratchPath("no_such_dir") + "/file.xml"));
    m->destroy();
}

TEST(KVXMessage, FromTextFileOfMissingFileFails) {
    StubMessage *m = new StubMessage;
    EXPECT_EQ(-1, m->fromTextFile(scratchPath("missing")));
    EXPECT_EQ("", m->record->deserialized);
    m->destroy();
}

TEST(KVXMessage, FromTextFileLoadsWholeFileAndReturnsFromTextResult) {
    std::string const path = scratchPath("from_text_file");
    writeFile(path, "<packet><origin>a</origin></packet>\n");
    StubMessage *m = new StubMessage;
    m->record->deserializeResult = 0;
    EXPECT_EQ(0, m->fromTextFile(path));
    EXPECT_EQ("<packet><origin>a</origin></packet>\n", m->record->deserialized);
    EXPECT_EQ(nullptr, m->record->lastDeserializeTo);
    m->record->deserializeResult = 7;
    EXPECT_EQ(7, m->fromTextFile(path));
    m->destroy();
    std::remove(path.c_str());
}

TEST(KVXMessage, FromTextFileStopsAtFirstZeroByte) {
    std::string const path = scratchPath("embedded_zero");
    writeFile(path, std::string("ab\0cd", 5));
    StubMessage *m = new StubMessage;
    EXPECT_EQ(0, m->fromTextFile(path));
    EXPECT_EQ("ab", m->record->deserialized);
    m->destroy();
    std::remove(path.c_str());
}

TEST(KVXMessage, FromTextFileOfEmptyFileLoadsEmptyText) {
    std::string const path = scratchPath("empty");
    writeFile(path, "");
    StubMessage *m = new StubMessage;
    m->record->deserialized = "not yet";
    m->record->deserializeResult = -1;
    EXPECT_EQ(-1, m->fromTextFile(path));
    EXPECT_EQ("", m->record->deserialized);
    m->destroy();
    std::remove(path.c_str());
}

TEST(KVXMessage, FromTextFileShortReadReturnsByteCount) {
    // sysfs reports a size of one page for attribute files and reads far
    // fewer bytes: the count read comes back as the result.
    char const *const candidates[] = {"/sys/kernel/mm/transparent_hugepage/enabled",
                                      "/sys/devices/system/cpu/online", "/sys/kernel/profiling",
                                      "/sys/power/state"};
    for (char const *candidate : candidates) {
        struct stat info;
        std::string const content = readFile(candidate);
        if (::stat(candidate, &info) != 0 || content.empty() ||
            static_cast<off_t>(content.size()) >= info.st_size) {
            continue;
        }
        StubMessage *m = new StubMessage;
        EXPECT_EQ(static_cast<int>(content.size()), m->fromTextFile(candidate));
        EXPECT_EQ("", m->record->deserialized);
        m->destroy();
        return;
    }
    GTEST_SKIP() << "no file whose read is shorter than its reported size";
}

TEST(KVXMessage, FromTextFileRefusesFileTooLargeForAnIntLength) {
    // A sparse file of 2 GiB: its text length would not fit the int that
    // deserialize takes, so nothing is read.
    std::string const path = scratchPath("huge");
    int const fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    bool const sized = ::ftruncate(fd, static_cast<off_t>(1) << 31) == 0;
    ::close(fd);
    if (!sized) {
        std::remove(path.c_str());
        GTEST_SKIP() << "the file system does not take a 2 GiB sparse file";
    }
    StubMessage *m = new StubMessage;
    m->record->deserialized = "untouched";
    EXPECT_EQ(-1, m->fromTextFile(path));
    EXPECT_EQ("untouched", m->record->deserialized);
    m->destroy();
    std::remove(path.c_str());
}

// --- header accessors through a cursor ---------------------------------------

TEST(KVXMessage, OriginAndTargetAreWrittenAndReadByPath) {
    TreeMessage *m = newTree();
    EXPECT_EQ("", m->getOrigin());
    EXPECT_EQ("", m->getTarget());
    EXPECT_EQ(0, m->setOrigin("agent-a"));
    EXPECT_EQ(0, m->setTarget("agent-b"));
    EXPECT_EQ("agent-a", m->getOrigin());
    EXPECT_EQ("agent-b", m->getTarget());
    EXPECT_EQ(0, m->setTarget("agent-c"));
    EXPECT_EQ("agent-c", m->getTarget());
    ASSERT_EQ(2u, m->data->children.size());
    m->destroy();
}

TEST(KVXMessage, GetOriginGivesEmptyTextWhenReadFails) {
    TreeMessage *m = newTree();
    // An origin with children has no value to read.
    m->setOrigin("x");
    m->data->children[0]->children.emplace_back(new testdoubles::TreeNode);
    EXPECT_EQ("", m->getOrigin());
    m->destroy();
}

TEST(KVXMessage, AddTargetAlwaysAddsAnElement) {
    TreeMessage *m = newTree();
    EXPECT_EQ(0, m->addTarget("t1"));
    EXPECT_EQ(0, m->addTarget("t2"));
    ASSERT_EQ(2u, m->data->children.size());
    EXPECT_EQ("t1", m->data->children[0]->value);
    EXPECT_EQ("t2", m->data->children[1]->value);
    // With several targets the getter reads the one that the path finds.
    EXPECT_EQ("t1", m->getTarget());
    m->log->clear();
    m->addTarget("t3");
    std::vector<std::string> const expected = {"cursor.newChild(target)", "cursor.putValue(t3@)"};
    EXPECT_EQ(expected, *m->log);
    m->destroy();
}

TEST(KVXMessage, AddTargetReportsFailedNewChild) {
    TreeMessage *m = new TreeMessage; // no root: newChild has nowhere to add
    EXPECT_EQ(-1, m->addTarget("t1"));
    m->destroy();
}

TEST(KVXMessage, SessionFormsReadAndWriteSessionChild) {
    TreeMessage *m = newTree();
    std::string out = "untouched";
    EXPECT_EQ(-1, m->getSessionID(out));
    EXPECT_EQ(0, m->setSession("kvx.40500.1.a.b.c"));
    // setSession forwards to the virtual setSessionID, which writes by path.
    ASSERT_LE(2u, m->log->size());
    EXPECT_EQ("message.setSessionID", (*m->log)[m->log->size() - 2]);
    EXPECT_EQ("cursor.putValue(kvx.40500.1.a.b.c@session)", m->log->back());
    ASSERT_EQ(1u, m->data->children.size());
    EXPECT_EQ("session", m->data->children[0]->name);
    EXPECT_EQ(0, m->getSessionID(out));
    EXPECT_EQ("kvx.40500.1.a.b.c", out);
    out.clear();
    EXPECT_EQ(0, m->getSession(out));
    EXPECT_EQ("kvx.40500.1.a.b.c", out);
    m->destroy();
}

// --- sharing on a working protocol -------------------------------------------

TEST(KVXMessage, WriterSeparatesSharedTreeAndOtherStaysUnchanged) {
    TreeMessage *m = newTree();
    m->setOrigin("before");
    KVXMessage *twin = m->copy(true);
    EXPECT_EQ(2, shareCount(m));
    EXPECT_EQ(m->data, static_cast<TreeMessage *>(twin)->data);
    // A read through a cursor leaves both on the same data.
    EXPECT_EQ("before", twin->getOrigin());
    EXPECT_EQ(m->data, static_cast<TreeMessage *>(twin)->data);
    EXPECT_EQ(2, shareCount(m));
    EXPECT_EQ(0, twin->setOrigin("after"));
    EXPECT_NE(m->data, static_cast<TreeMessage *>(twin)->data);
    EXPECT_EQ(1, shareCount(m));
    EXPECT_EQ(1, shareCount(twin));
    EXPECT_EQ("before", m->getOrigin());
    EXPECT_EQ("after", twin->getOrigin());
    twin->destroy();
    m->destroy();
}

// --- the same rules on the binary protocol -----------------------------------

namespace {

KVXMessage *newBinaryPacket() {
    KVXMessage *m = KVX::KVXMsgFactory::createNew();
    EXPECT_STREQ("KVXBinary", m->messageType());
    EXPECT_EQ(0, m->create("packet"));
    return m;
}

} // namespace

TEST(KVXMessage, BinaryCopiesShareUntilOneIsWritten) {
    KVXMessage *m = newBinaryPacket();
    Destroyer keepM{m};
    ASSERT_EQ(0, m->setOrigin("origin-1"));
    KVXMessage *deep = m->copy(true);
    Destroyer keepDeep{deep};
    KVXMessage *shallow = m->copy(false);
    Destroyer keepShallow{shallow};
    EXPECT_EQ(3, shareCount(m));
    EXPECT_EQ("origin-1", deep->getOrigin());
    EXPECT_EQ("origin-1", shallow->getOrigin());
    EXPECT_EQ(3, shareCount(m)); // reading does not separate
    ASSERT_EQ(0, deep->setOrigin("origin-2"));
    EXPECT_EQ(1, shareCount(deep));
    EXPECT_EQ(2, shareCount(m));
    EXPECT_EQ("origin-1", m->getOrigin());
    EXPECT_EQ("origin-1", shallow->getOrigin());
    EXPECT_EQ("origin-2", deep->getOrigin());
    ASSERT_EQ(0, shallow->setTarget("target-1"));
    EXPECT_EQ("", m->getTarget());
    EXPECT_EQ("target-1", shallow->getTarget());
    EXPECT_EQ(1, shareCount(m));
}

TEST(KVXMessage, BinaryDestroyOfOneSharerLeavesOtherIntact) {
    KVXMessage *m = newBinaryPacket();
    ASSERT_EQ(0, m->setOrigin("kept"));
    KVXMessage *twin = m->copy(false);
    EXPECT_EQ(2, shareCount(m));
    m->destroy();
    EXPECT_EQ(1, shareCount(twin));
    EXPECT_EQ("kept", twin->getOrigin());
    twin->destroy();
}

TEST(KVXMessage, BinaryTextFileRoundTrip) {
    std::string const path = scratchPath("binary_round_trip.xml");
    KVXMessage *m = newBinaryPacket();
    Destroyer keepM{m};
    ASSERT_EQ(0, m->setOrigin("file-origin"));
    ASSERT_EQ(0, m->addTarget("file-target"));
    ASSERT_EQ(0, m->toTextFile(path));
    char *text = m->toText();
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(std::string(text), readFile(path));
    std::free(text);

    KVXMessage *back = KVX::KVXMsgFactory::createNew();
    Destroyer keepBack{back};
    EXPECT_EQ(0, back->fromTextFile(path));
    EXPECT_EQ("file-origin", back->getOrigin());
    EXPECT_EQ("file-target", back->getTarget());
    std::remove(path.c_str());
}
