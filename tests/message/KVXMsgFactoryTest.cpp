// Tests of the protocol registry and the default factory: registration by the
// template's constructor, the default made on first use, setFactory,
// setDefaultProtocol by name and by type, kindOf and newMessage(buffer).
//
// The registry and the default are process-wide. ctest runs every test in a
// process of its own (gtest_discover_tests), but the program may also run all
// tests in one process; so each test here that depends on that state starts
// from a simulated fresh process (empty registry, no default) through the
// fixture, and puts the old state back afterwards.
#include "message/StubDoubles.h"
#include "message/TreeProtocol.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <typeinfo>

using KVX::KVXMessage;
using testdoubles::Destroyer;
using testdoubles::StubMessage;
using testdoubles::TreeFactory;
using testdoubles::TreeMessage;

namespace {

typedef std::map<std::string, boost::intrusive_ptr<KVX::KVXMsgFactory>> Registry;

// Factories made by the template keep one reference of their own for ever.
// Those that a test takes out of the registry are parked here, in storage that
// lives to the very end, so that a leak checker still finds them reachable.
KVX::KVXMsgFactory *parked[64];
unsigned parkedCount = 0;

void park(KVX::KVXMsgFactory *factory) {
    if (factory != nullptr && parkedCount < sizeof parked / sizeof parked[0]) {
        parked[parkedCount++] = factory;
    }
}

// Every test starts from the state of a fresh process: empty registry, no
// default factory. The old state comes back afterwards. The default cannot be
// read without being made, so it is made first if need be, and kept.
class KVXMsgFactory : public ::testing::Test {
protected:
    void SetUp() override {
        savedDefault = KVXMessage::getFactory();
        savedRegistry = KVX::getMsgVocabulary();
        KVX::getMsgVocabulary().clear();
        KVXMessage::setFactory(nullptr);
    }
    void TearDown() override {
        for (auto const &entry : KVX::getMsgVocabulary()) {
            park(entry.second.get());
        }
        park(KVXMessage::getFactory().get());
        KVX::getMsgVocabulary() = savedRegistry;
        KVXMessage::setFactory(savedDefault);
    }

    // True when no default factory has been made since SetUp. Reading it
    // would make one, so the test asks the registry: the default that
    // getFactory makes always registers itself.
    static bool noDefaultYet() { return KVX::getMsgVocabulary().empty(); }

    boost::intrusive_ptr<KVX::KVXMsgFactory> savedDefault;
    Registry savedRegistry;
};

// Two protocols that both claim buffers beginning with "BOTH", to show that
// the name that sorts first wins.
struct AlphaMessage : StubMessage {
    static constexpr char const *MessageType = "Alpha";
    static int isComplete(char const *, int) { return 11; }
    static int isOfTheKind(char const *buffer) { return std::memcmp(buffer, "BOTH", 4) == 0; }
};
struct OmegaMessage : StubMessage {
    static constexpr char const *MessageType = "Omega";
    static int isComplete(char const *, int) { return 22; }
    static int isOfTheKind(char const *buffer) {
        return std::memcmp(buffer, "BOTH", 4) == 0 || std::memcmp(buffer, "OMEG", 4) == 0;
    }
};

// A factory of stub messages whose init result a test chooses.
class StubFactory : public KVX::KVXMsgFactory {
public:
    std::shared_ptr<StubMessage::Record> record = std::make_shared<StubMessage::Record>();
    using KVX::KVXMsgFactory::newMessage;
    KVXMessage *newMessage() override {
        return record->newMessageFails ? nullptr : new StubMessage(record);
    }
    int isComplete(char const *, int) override { return 0; }
    bool isOfTheKind(char const *) override { return false; }
    std::string messageType() override { return "StubMessage"; }
    std::type_info const &messageClass() override { return typeid(StubMessage); }
};

char const BinaryMagic[] = {'\x98', '\xBA', '\xDC', '\xFE', 0, 0, 0, 0};

} // namespace

// --- first use --------------------------------------------------------------

TEST_F(KVXMsgFactory, InitializeBeforeFirstUseFailsHarmlessly) {
    EXPECT_FALSE(KVXMessage::initialize());
    EXPECT_TRUE(KVX::getMsgVocabulary().empty());
    boost::intrusive_ptr<KVX::KVXMsgFactory> factory = KVXMessage::getFactory();
    ASSERT_TRUE(factory);
    EXPECT_TRUE(KVXMessage::initialize());
    EXPECT_EQ(factory, KVXMessage::getFactory());
}

TEST_F(KVXMsgFactory, SetDefaultProtocolBeforeFirstUseFails) {
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(std::string("KVXBinary")));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(typeid(KVX::KVXBinary)));
    EXPECT_TRUE(noDefaultYet());
}

TEST_F(KVXMsgFactory, KindOfWithEmptyRegistryIsKVXMessage) {
    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf(BinaryMagic));
}

TEST_F(KVXMsgFactory, FirstGetFactoryRegistersBinaryProtocolAsDefault) {
    boost::intrusive_ptr<KVX::KVXMsgFactory> factory = KVXMessage::getFactory();
    ASSERT_TRUE(factory);
    Registry &registry = KVX::getMsgVocabulary();
    ASSERT_EQ(1u, registry.size());
    EXPECT_EQ("KVXBinary", registry.begin()->first);
    EXPECT_EQ(factory, registry.begin()->second);
    EXPECT_EQ("KVXBinary", factory->messageType());
    EXPECT_TRUE(factory->messageClass() == typeid(KVX::KVXBinary));
    // Registry, default, the factory's own reference and the local copy.
    EXPECT_EQ(4, factory->referenceCountValue());
    EXPECT_EQ(factory, KVXMessage::getFactory());
}

TEST_F(KVXMsgFactory, TemplateConstructorRegistersWithTwoReferences) {
    KVX::KVXMessageFactory<AlphaMessage> *alpha = new KVX::KVXMessageFactory<AlphaMessage>();
    EXPECT_EQ(2, alpha->referenceCountValue());
    ASSERT_EQ(1u, KVX::getMsgVocabulary().count("Alpha"));
    EXPECT_EQ(alpha, KVX::getMsgVocabulary()["Alpha"].get());
    // The last factory constructed for a name wins the entry.
    KVX::KVXMessageFactory<AlphaMessage> *second = new KVX::KVXMessageFactory<AlphaMessage>();
    EXPECT_EQ(second, KVX::getMsgVocabulary()["Alpha"].get());
    EXPECT_EQ(1, alpha->referenceCountValue());
    park(alpha);
}

TEST_F(KVXMsgFactory, SetDefaultProtocolByNameAndType) {
    new KVX::KVXMessageFactory<AlphaMessage>();
    new KVX::KVXMessageFactory<OmegaMessage>();
    boost::intrusive_ptr<KVX::KVXMsgFactory> binary = KVXMessage::getFactory();
    EXPECT_EQ(0, KVX::KVXMsgFactory::setDefaultProtocol(std::string("Omega")));
    EXPECT_EQ(22, KVXMessage::isComplete("x", 1));
    EXPECT_EQ(0, KVX::KVXMsgFactory::setDefaultProtocol(typeid(AlphaMessage)));
    EXPECT_EQ(11, KVXMessage::isComplete("x", 1));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(std::string("alpha")));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(typeid(StubMessage)));
    EXPECT_EQ(11, KVXMessage::isComplete("x", 1));
    EXPECT_TRUE(KVXMessage::initialize());
    EXPECT_EQ(binary, KVXMessage::getFactory());
}

TEST_F(KVXMsgFactory, KindOfTakesFirstClaimInNameOrder) {
    new KVX::KVXMessageFactory<OmegaMessage>();
    new KVX::KVXMessageFactory<AlphaMessage>();
    KVXMessage::getFactory();
    EXPECT_EQ("Alpha", KVX::KVXMsgFactory::kindOf("BOTH...."));
    EXPECT_EQ("Omega", KVX::KVXMsgFactory::kindOf("OMEGA..."));
    EXPECT_EQ("KVXBinary", KVX::KVXMsgFactory::kindOf(BinaryMagic));
    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf("none of them"));
}

TEST_F(KVXMsgFactory, EmptyRegistryEntryIsPassedBy) {
    KVXMessage::getFactory();
    KVX::getMsgVocabulary()["AAA"]; // a caller may add an empty entry to the exported map
    EXPECT_EQ("KVXBinary", KVX::KVXMsgFactory::kindOf(BinaryMagic));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(std::string("AAA")));
    EXPECT_TRUE(KVXMessage::initialize());
}

TEST_F(KVXMsgFactory, SetFactoryNullMakesNextGetFactoryBuildAnother) {
    boost::intrusive_ptr<KVX::KVXMsgFactory> first = KVXMessage::getFactory();
    KVXMessage::setFactory(nullptr);
    boost::intrusive_ptr<KVX::KVXMsgFactory> second = KVXMessage::getFactory();
    ASSERT_TRUE(second);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, KVX::getMsgVocabulary()["KVXBinary"]);
    park(first.get());
}

// --- unregistered factories and newMessage ---------------------------------

TEST_F(KVXMsgFactory, UnregisteredFactoryServesCreateNewOnly) {
    KVXMessage::getFactory();
    boost::intrusive_ptr<TreeFactory> tree(new TreeFactory);
    KVXMessage::setFactory(tree);
    EXPECT_EQ(tree, KVXMessage::getFactory());

    KVXMessage *m = KVX::KVXMsgFactory::createNew();
    ASSERT_NE(nullptr, m);
    Destroyer keep{m};
    EXPECT_STREQ("TreeMessage", m->messageType());
    EXPECT_EQ(1, tree->made);
    EXPECT_EQ(5, KVXMessage::isComplete("TREE.", 5));

    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf("TREE...."));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(std::string("TreeMessage")));
    EXPECT_EQ(-1, KVX::KVXMsgFactory::setDefaultProtocol(typeid(TreeMessage)));
    EXPECT_EQ(tree, KVXMessage::getFactory());
}

TEST_F(KVXMsgFactory, CreateNewWithBufferUsesDefaultWhateverTheBuffer) {
    boost::intrusive_ptr<TreeFactory> tree(new TreeFactory);
    KVXMessage::setFactory(tree);
    std::string const text = "0 0 packet\n1 0 origin agent-a\n";
    KVXMessage *m = KVX::KVXMsgFactory::createNew(text.data(), static_cast<int>(text.size()));
    ASSERT_NE(nullptr, m);
    Destroyer keep{m};
    EXPECT_EQ("agent-a", m->getOrigin());
    // A binary frame goes to the default factory all the same, which refuses it.
    EXPECT_EQ(nullptr, KVX::KVXMsgFactory::createNew(BinaryMagic, sizeof BinaryMagic));
    EXPECT_EQ(2, tree->made);
}

TEST_F(KVXMsgFactory, NewMessageWithBufferInitsAndDestroysRefused) {
    StubFactory factory;
    intrusive_ptr_add_ref(&factory); // on the stack: no pointer may ever delete it
    factory.record->initResult = 0;
    KVXMessage *m = factory.newMessage("abc", 3);
    ASSERT_NE(nullptr, m);
    EXPECT_EQ("abc", factory.record->initBuffer);
    m->destroy();
    EXPECT_EQ(1, factory.record->destructions);

    factory.record->initResult = -1;
    EXPECT_EQ(nullptr, factory.newMessage("defg", 4));
    EXPECT_EQ("defg", factory.record->initBuffer);
    EXPECT_EQ(2, factory.record->destructions);

    factory.record->initResult = 1;
    EXPECT_EQ(nullptr, factory.newMessage("h", 1));
    EXPECT_EQ(3, factory.record->destructions);
}

TEST_F(KVXMsgFactory, NewMessageWithBufferPassesNullOn) {
    StubFactory factory;
    intrusive_ptr_add_ref(&factory);
    factory.record->newMessageFails = true;
    factory.record->initBuffer = "untouched";
    EXPECT_EQ(nullptr, factory.newMessage("abc", 3));
    EXPECT_EQ("untouched", factory.record->initBuffer);
}

TEST_F(KVXMsgFactory, ConstructedFactoryStartsWithoutReferences) {
    StubFactory factory;
    EXPECT_EQ(0, factory.referenceCountValue());
}

// --- the binary protocol behind the default --------------------------------

TEST_F(KVXMsgFactory, KindOfNonMagicBufferIsKVXMessage) {
    KVXMessage::getFactory();
    EXPECT_EQ("KVXBinary", KVX::KVXMsgFactory::kindOf(BinaryMagic));
    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf("\x99\xBA\xDC\xFE"));
    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf("<?xml version=\"1.0\"?><packet/>"));
    EXPECT_EQ("KVXMessage", KVX::KVXMsgFactory::kindOf("<packet><origin>a</origin></packet>"));
}

TEST_F(KVXMsgFactory, DefaultMakesBinaryMessages) {
    KVXMessage *m = KVX::KVXMsgFactory::createNew();
    ASSERT_NE(nullptr, m);
    Destroyer keep{m};
    EXPECT_STREQ("KVXBinary", m->messageType());
    EXPECT_TRUE(typeid(*m) == typeid(KVX::KVXBinary));
}

TEST_F(KVXMsgFactory, CreateNewAcceptsTextThatBinaryInitAccepts) {
    // Text is taken when its NUL lies inside the length, and refused without.
    char const text[] = "<packet><origin>agent-a</origin></packet>";
    KVXMessage *m = KVX::KVXMsgFactory::createNew(text, static_cast<int>(sizeof text));
    ASSERT_NE(nullptr, m);
    Destroyer keep{m};
    EXPECT_STREQ("KVXBinary", m->messageType());
    EXPECT_EQ("agent-a", m->getOrigin());
    EXPECT_EQ(nullptr, KVX::KVXMsgFactory::createNew(text, static_cast<int>(sizeof text - 1)));
}

TEST_F(KVXMsgFactory, IsCompleteAsksTheBinaryProtocol) {
    KVXMessage::getFactory();
    ASSERT_TRUE(KVXMessage::initialize());
    // A head alone is never complete; a wrong magic is -1.
    EXPECT_EQ(0, KVXMessage::isComplete(BinaryMagic, 8));
    char const wrong[] = {'\x99', '\xBA', '\xDC', '\xFE', 0, 0, 0, 0};
    EXPECT_EQ(KVX::KVXBinary::isComplete(wrong, 8), KVXMessage::isComplete(wrong, 8));
    KVXMessage *m = KVX::KVXMsgFactory::createNew();
    Destroyer keep{m};
    ASSERT_EQ(0, m->create("packet"));
    char *frame = nullptr;
    int size = 0;
    ASSERT_EQ(0, m->serialize(&frame, &size));
    EXPECT_EQ(size, KVXMessage::isComplete(frame, size));
    EXPECT_EQ(0, KVXMessage::isComplete(frame, size - 1));
    std::free(frame);
}
