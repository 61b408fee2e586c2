// Tests of genReply: what a reply inherits from its request, step by step on
// the tree protocol (whose calls are logged), and the same rules on the
// binary protocol.
#include "message/StubDoubles.h"
#include "message/TreeProtocol.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

using KVX::KVXMessage;
using KVX::KVXMessageIterator;
using KVX::KVXMsgFactory;
using testdoubles::Destroyer;
using testdoubles::TreeCursor;
using testdoubles::TreeFactory;
using testdoubles::TreeMessage;
using testdoubles::TreeNode;

namespace {

typedef std::vector<std::string> Calls;

// Makes the tree protocol the default for one test and puts the old default
// back afterwards.
struct TreeDefault {
    boost::intrusive_ptr<KVX::KVXMsgFactory> saved;
    boost::intrusive_ptr<TreeFactory> factory;
    TreeDefault() : saved(KVXMessage::getFactory()), factory(new TreeFactory) {
        KVXMessage::setFactory(factory);
    }
    ~TreeDefault() { KVXMessage::setFactory(saved); }
};

TreeNode *addNode(TreeNode &parent, std::string const &name, std::string const &value = "") {
    parent.children.emplace_back(new TreeNode);
    parent.children.back()->name = name;
    parent.children.back()->value = value;
    return parent.children.back().get();
}

TreeNode *findChild(TreeNode const &parent, std::string const &name) {
    for (auto const &child : parent.children) {
        if (child->name == name) {
            return child.get();
        }
    }
    return nullptr;
}

std::vector<std::string> namesOf(TreeNode const &parent) {
    std::vector<std::string> names;
    for (auto const &child : parent.children) {
        names.push_back(child->name);
    }
    return names;
}

// A request with every header value and child that a reply may inherit.
TreeMessage *fullRequest() {
    TreeMessage *m = new TreeMessage;
    m->create("packet");
    TreeNode &root = *m->data;
    addNode(root, "origin", "agent-a");
    addNode(root, "target", "agent-x");
    addNode(root, "session", "tree-session");
    TreeNode *src = addNode(root, "src");
    addNode(*src, "host", "h1");
    addNode(*src, "agent", "a1");
    addNode(*src, "host", "h2");
    addNode(*src, "route", "r1");
    addNode(root, "cookie", "plain");
    TreeNode *data = addNode(root, "data");
    addNode(*data, "result", "ok");
    m->setID("id-42", true);
    m->setVersion(40500);
    m->setPriority(3);
    m->setTime(12345);
    m->setType(7);
    m->setProgress(1);
    m->setLog(1);
    m->setUid("uid-1");
    m->setTimeout(30);
    m->setTimeoutLimit(60);
    m->strings["session"] = "held-session";
    return m;
}

TreeMessage *asTree(KVXMessage *m) {
    return dynamic_cast<TreeMessage *>(m);
}

} // namespace

// --- step by step on the tree protocol ------------------------------------------

TEST(ReplyGeneration, FollowsTheThirteenStepsInOrder) {
    TreeDefault useTree;
    TreeMessage *request = fullRequest();
    Destroyer keepRequest{request};
    request->log->clear();
    KVXMessage *reply = request->genReply("agent-b");
    ASSERT_NE(nullptr, reply);
    Destroyer keepReply{reply};

    Calls const replyCalls = {"cursor.saveNamespace(297)",
                              "cursor.putValue(agent-b@origin)",
                              "message.setSessionID",
                              "cursor.putValue(held-session@session)",
                              "cursor.putValue(agent-a@target)",
                              "cursor.newChild(dst)",
                              "cursor.copyToChild(host)",
                              "cursor.copyToChild(agent)",
                              "cursor.copyToChild(host)",
                              "cursor.copyToChild(route)",
                              "cursor.firstChild(1068)",
                              "cursor.deleteFromChild()",
                              "cursor.firstChild(1068)",
                              "cursor.deleteFromChild()",
                              "cursor.firstChild(1068)",
                              "cursor.seekUp()",
                              "cursor.putValue(plain@cookie)",
                              "cursor.newChild(data)"};
    EXPECT_EQ(replyCalls, *useTree.factory->log);
    Calls const requestCalls = {
        "message.getSession",   "cursor.getValue(origin)", "cursor.firstChild(src)",
        "cursor.firstChild()",  "cursor.nextSibling()",    "cursor.nextSibling()",
        "cursor.nextSibling()", "cursor.nextSibling()",    "cursor.seekUp()",
        "cursor.seekUp()",      "cursor.getValue(cookie)"};
    EXPECT_EQ(requestCalls, *request->log);
}

TEST(ReplyGeneration, ReplyTakesWhatItInherits) {
    TreeDefault useTree;
    TreeMessage *request = fullRequest();
    Destroyer keepRequest{request};
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeMessage *tree = asTree(reply);
    ASSERT_NE(nullptr, tree);
    TreeNode const &root = *tree->data;
    EXPECT_EQ("packet", root.name);
    EXPECT_EQ(Calls({"origin", "session", "target", "dst", "cookie", "data"}), namesOf(root));
    EXPECT_EQ("agent-b", findChild(root, "origin")->value);
    EXPECT_EQ("agent-a", findChild(root, "target")->value);
    EXPECT_EQ(Calls({"agent", "route"}), namesOf(*findChild(root, "dst")));
    EXPECT_EQ("plain", findChild(root, "cookie")->value);
    EXPECT_TRUE(findChild(root, "data")->children.empty());
    EXPECT_EQ("", findChild(root, "data")->value);
    // The session is read through the outer form and written into the tree.
    EXPECT_EQ("held-session", findChild(root, "session")->value);
    EXPECT_EQ(0u, tree->strings.count("session"));
}

TEST(ReplyGeneration, HeaderValuesCopiedAndOthersLeftAtDefaults) {
    TreeDefault useTree;
    TreeMessage *request = fullRequest();
    Destroyer keepRequest{request};
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeMessage *tree = asTree(reply);
    ASSERT_NE(nullptr, tree);
    std::string id;
    EXPECT_EQ(0, reply->getID(id));
    EXPECT_EQ("id-42", id);
    EXPECT_FALSE(tree->lastIdFlag);
    int value = 0;
    EXPECT_EQ(0, reply->getVersion(value));
    EXPECT_EQ(40500, value);
    EXPECT_EQ(0, reply->getPriority(value));
    EXPECT_EQ(3, value);
    EXPECT_EQ(-1, reply->getType(value));
    EXPECT_EQ(-1, reply->getProgress(value));
    EXPECT_EQ(-1, reply->getLog(value));
    EXPECT_EQ(-1, reply->getTimeout(value));
    EXPECT_EQ(-1, reply->getTimeoutLimit(value));
    std::string uid;
    EXPECT_EQ(-1, reply->getUid(uid));
}

TEST(ReplyGeneration, MissingRequestValuesAreMissingInReply) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("packet");
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeMessage *tree = asTree(reply);
    ASSERT_NE(nullptr, tree);
    // No origin: no target. No src: no dst. No cookie: none. No session: none.
    EXPECT_EQ(Calls({"origin", "data"}), namesOf(*tree->data));
    EXPECT_TRUE(tree->strings.empty());
    EXPECT_TRUE(tree->ints.empty());
}

TEST(ReplyGeneration, RootIsPacketAndNamespaceIsSavedWhateverTheRequest) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("reply");
    request->data->ns = 205;
    addNode(*request->data, "origin", "agent-a");
    addNode(*request->data, "src");
    addNode(*request->data, "cookie", "c");
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeMessage *tree = asTree(reply);
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ("packet", tree->data->name);
    EXPECT_EQ(0, tree->data->ns);
    for (auto const &child : tree->data->children) {
        EXPECT_EQ(297, child->ns) << child->name;
    }
    EXPECT_EQ(Calls({"origin", "target", "dst", "cookie", "data"}), namesOf(*tree->data));
}

TEST(ReplyGeneration, SrcWithoutChildrenGivesEmptyDst) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("packet");
    addNode(*request->data, "src");
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeNode *dst = findChild(*asTree(reply)->data, "dst");
    ASSERT_NE(nullptr, dst);
    EXPECT_TRUE(dst->children.empty());
    // The request cursor climbed from src back to the root with one seekUp.
    EXPECT_EQ(Calls({"message.getSession", "cursor.getValue(session)", "cursor.getValue(origin)",
                     "cursor.firstChild(src)", "cursor.firstChild()", "cursor.seekUp()",
                     "cursor.getValue(cookie)", "cursor.seek(cookie)"}),
              *request->log);
}

TEST(ReplyGeneration, SrcOfHostsOnlyGivesEmptyDst) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("packet");
    TreeNode *src = addNode(*request->data, "src");
    addNode(*src, "host", "h1");
    addNode(*src, "host", "h2");
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeNode *dst = findChild(*asTree(reply)->data, "dst");
    ASSERT_NE(nullptr, dst);
    EXPECT_TRUE(dst->children.empty());
}

TEST(ReplyGeneration, PlainCookieEndsAtFirstZeroByte) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("packet");
    addNode(*request->data, "cookie", std::string("ab\0cd", 5));
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeNode *cookie = findChild(*asTree(reply)->data, "cookie");
    ASSERT_NE(nullptr, cookie);
    EXPECT_EQ("ab", cookie->value);
}

TEST(ReplyGeneration, StructuredCookieArrivesWhole) {
    TreeDefault useTree;
    TreeMessage *request = new TreeMessage;
    Destroyer keepRequest{request};
    request->create("packet");
    TreeNode *cookie = addNode(*request->data, "cookie");
    addNode(*cookie, "operation", "getStatus");
    TreeNode *ns = addNode(*cookie, "namespace", "urn:kvx");
    addNode(*ns, "inner", "deep");
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    TreeNode *copied = findChild(*asTree(reply)->data, "cookie");
    ASSERT_NE(nullptr, copied);
    EXPECT_EQ(Calls({"operation", "namespace"}), namesOf(*copied));
    EXPECT_EQ("getStatus", copied->children[0]->value);
    EXPECT_EQ("deep", copied->children[1]->children[0]->value);
    Calls const tail(useTree.factory->log->end() - 3, useTree.factory->log->end());
    EXPECT_EQ("cursor.deserializeToChild(0 0 cookie \n1 0 operation getStatus\n"
              "1 0 namespace urn:kvx\n2 0 inner deep\n)",
              tail[0]);
}

TEST(ReplyGeneration, NullFromFactoryGivesNoReply) {
    TreeDefault useTree;
    useTree.factory->failNewMessage = true;
    TreeMessage *request = fullRequest();
    Destroyer keepRequest{request};
    request->log->clear();
    EXPECT_EQ(nullptr, request->genReply("agent-b"));
    EXPECT_TRUE(request->log->empty());
}

TEST(ReplyGeneration, CursorAnswersTheWholeMessageFromAnywhere) {
    TreeDefault useTree;
    TreeMessage *request = fullRequest();
    Destroyer keepRequest{request};
    TreeCursor at(request);
    ASSERT_EQ(0, at.seek(std::string("src/agent")));
    KVXMessage *reply = at.genReply("agent-b");
    Destroyer keepReply{reply};
    ASSERT_NE(nullptr, asTree(reply));
    EXPECT_EQ("agent-a", reply->getTarget());
    EXPECT_EQ(Calls({"origin", "session", "target", "dst", "cookie", "data"}),
              namesOf(*asTree(reply)->data));
    EXPECT_EQ("agent", at.curName());
}

TEST(ReplyGeneration, CursorWithoutMessageGivesNoReply) {
    testdoubles::PathOnlyCursor nowhere;
    EXPECT_EQ(nullptr, nowhere.genReply("agent-b"));
}

// --- on the binary protocol ----------------------------------------------------

namespace {

// Names of the element children at `path` (relative to the root).
std::vector<std::string> binaryChildren(KVXMessage const *m, std::string const &path) {
    std::vector<std::string> names;
    KVXMessageIterator const *c = m->newIterator();
    if ((path.empty() || c->seek(path) == 0) && c->firstChild() == 0) {
        do {
            names.push_back(c->curName());
        } while (c->nextSibling() == 0);
    }
    delete c;
    return names;
}

KVXMessage *binaryRequest() {
    KVXMessage *m = KVXMsgFactory::createNew();
    EXPECT_EQ(0, m->create("packet"));
    EXPECT_EQ(0, m->setOrigin("agent-a"));
    EXPECT_EQ(0, m->setTarget("agent-x"));
    EXPECT_EQ(0, m->setID("id-42", false));
    EXPECT_EQ(0, m->setVersion(40500));
    EXPECT_EQ(0, m->setPriority(3));
    EXPECT_EQ(0, m->setType(7));
    EXPECT_EQ(0, m->setTimeout(30));
    EXPECT_EQ(0, m->setSession("kvx.40500.1.a.b.c"));
    KVXMessageIterator *c = m->newIterator();
    EXPECT_EQ(0, c->newChild(std::string("src")));
    EXPECT_EQ(0, c->putValue(std::string("h1"), std::string("host")));
    EXPECT_EQ(0, c->newChild(std::string("origin")));
    EXPECT_EQ(0, c->putValue(std::string("o1"), 0));
    EXPECT_EQ(0, c->seekUp());
    EXPECT_EQ(0, c->newChild(std::string("host")));
    EXPECT_EQ(0, c->putValue(std::string("h2"), 0));
    EXPECT_EQ(0, c->seekRoot());
    EXPECT_EQ(0, c->newChild(std::string("data")));
    EXPECT_EQ(0, c->putValue(std::string("payload"), std::string("origin")));
    delete c;
    return m;
}

} // namespace

TEST(ReplyGeneration, BinaryReplyInheritsRouteHeaderAndSession) {
    KVXMessage *request = binaryRequest();
    Destroyer keepRequest{request};
    KVXMessage *reply = request->genReply("agent-b");
    ASSERT_NE(nullptr, reply);
    Destroyer keepReply{reply};
    EXPECT_STREQ("KVXBinary", reply->messageType());
    EXPECT_EQ("agent-b", reply->getOrigin());
    EXPECT_EQ("agent-a", reply->getTarget());
    std::string text;
    EXPECT_EQ(0, reply->getID(text));
    EXPECT_EQ("id-42", text);
    int value = 0;
    EXPECT_EQ(0, reply->getVersion(value));
    EXPECT_EQ(40500, value);
    EXPECT_EQ(0, reply->getPriority(value));
    EXPECT_EQ(3, value);
    value = 99;
    EXPECT_EQ(-1, reply->getType(value));
    EXPECT_EQ(0, value);
    value = 99;
    EXPECT_EQ(-1, reply->getTimeout(value));
    EXPECT_EQ(99, value);
    EXPECT_EQ(0, reply->getSessionID(text));
    EXPECT_EQ("kvx.40500.1.a.b.c", text);
    EXPECT_EQ(std::vector<std::string>({"origin"}), binaryChildren(reply, "dst"));
    EXPECT_EQ(std::vector<std::string>(), binaryChildren(reply, "data"));
    std::vector<std::string> const top = binaryChildren(reply, "");
    EXPECT_EQ(std::vector<std::string>({"origin", "session", "target", "dst", "data"}), top);
}

TEST(ReplyGeneration, BinaryIdIsCopiedWithFlagFalse) {
    KVXMessage *request = binaryRequest();
    Destroyer keepRequest{request};
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    // With the flag false the id reaches the frame as attribute 102.
    KVXMessageIterator const *c = reply->newIterator();
    char *frame = nullptr;
    int size = 0;
    ASSERT_EQ(0, c->serialize(&frame, &size));
    KVXMessage *loaded = KVXMsgFactory::createNew(frame, size);
    std::free(frame);
    ASSERT_NE(nullptr, loaded);
    Destroyer keepLoaded{loaded};
    KVXMessageIterator const *l = loaded->newIterator();
    std::string id;
    EXPECT_EQ(0, l->getValue(id, 102));
    EXPECT_EQ("id-42", id);
    delete l;
    delete c;
}

TEST(ReplyGeneration, BinaryReplyElementsCarryProtocolNamespace) {
    KVXMessage *request = binaryRequest();
    Destroyer keepRequest{request};
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    KVXMessageIterator const *c = reply->newIterator();
    EXPECT_EQ(0, c->curNamespaceID());
    for (char const *name : {"origin", "target", "dst", "data"}) {
        ASSERT_EQ(0, c->seek(std::string("/") + name)) << name;
        EXPECT_EQ(297, c->curNamespaceID()) << name;
    }
    delete c;
}

TEST(ReplyGeneration, BinaryRequestWithoutOriginOrRouteOrCookie) {
    KVXMessage *request = KVXMsgFactory::createNew();
    Destroyer keepRequest{request};
    ASSERT_EQ(0, request->create("packet"));
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    EXPECT_EQ("", reply->getTarget());
    EXPECT_EQ(std::vector<std::string>({"origin", "data"}), binaryChildren(reply, ""));
}

TEST(ReplyGeneration, BinaryEmptySrcGivesEmptyDst) {
    KVXMessage *request = KVXMsgFactory::createNew();
    Destroyer keepRequest{request};
    ASSERT_EQ(0, request->create("packet"));
    KVXMessageIterator *c = request->newIterator();
    ASSERT_EQ(0, c->newChild(std::string("src")));
    delete c;
    KVXMessage *reply = request->genReply("agent-b");
    Destroyer keepReply{reply};
    EXPECT_EQ(std::vector<std::string>({"origin", "dst", "data"}), binaryChildren(reply, ""));
    EXPECT_EQ(std::vector<std::string>(), binaryChildren(reply, "dst"));
}

TEST(ReplyGeneration, BinaryPlainAndStructuredCookies) {
    KVXMessage *plain = KVXMsgFactory::createNew();
    Destroyer keepPlain{plain};
    ASSERT_EQ(0, plain->create("packet"));
    KVXMessageIterator *c = plain->newIterator();
    ASSERT_EQ(0, c->putValue(std::string("cookie-text"), std::string("cookie")));
    delete c;
    KVXMessage *reply = plain->genReply("agent-b");
    Destroyer keepReply{reply};
    KVXMessageIterator const *r = reply->newIterator();
    std::string value;
    EXPECT_EQ(0, r->getValue(value, std::string("cookie")));
    EXPECT_EQ("cookie-text", value);
    delete r;

    KVXMessage *structured = KVXMsgFactory::createNew();
    Destroyer keepStructured{structured};
    ASSERT_EQ(0, structured->create("packet"));
    c = structured->newIterator();
    ASSERT_EQ(0, c->newChild(std::string("cookie")));
    ASSERT_EQ(0, c->putValue(std::string("op"), std::string("origin")));
    ASSERT_EQ(0, c->putValue(std::string("urn:op"), std::string("target")));
    delete c;
    KVXMessage *structuredReply = structured->genReply("agent-b");
    Destroyer keepStructuredReply{structuredReply};
    r = structuredReply->newIterator();
    EXPECT_EQ(0, r->getValue(value, std::string("cookie/origin")));
    EXPECT_EQ("op", value);
    EXPECT_EQ(0, r->getValue(value, std::string("cookie/target")));
    EXPECT_EQ("urn:op", value);
    delete r;
    EXPECT_EQ(std::vector<std::string>({"origin", "target"}),
              binaryChildren(structuredReply, "cookie"));
}
