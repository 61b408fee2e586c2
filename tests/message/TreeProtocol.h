// A small working tree protocol for the tests of the message layer: a message
// whose elements are heap nodes shared between copies until a writer separates
// them, its cursor, and a factory that is not in the registry. It lets the
// generic operations run and be observed call by call without the binary
// protocol. Single-threaded; ownership as the library's contracts say.
#ifndef KVX_TESTS_MESSAGE_TREEPROTOCOL_H
#define KVX_TESTS_MESSAGE_TREEPROTOCOL_H

#include "message/StubDoubles.h"

#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

namespace testdoubles {

// One element of the tree protocol: a name, a text value, a namespace id and
// ordered children.
struct TreeNode {
    std::string name;
    std::string value;
    int ns = 0;
    std::vector<std::unique_ptr<TreeNode>> children;

    std::unique_ptr<TreeNode> clone() const {
        std::unique_ptr<TreeNode> out(new TreeNode);
        out->name = name;
        out->value = value;
        out->ns = ns;
        for (auto const &child : children) {
            out->children.push_back(child->clone());
        }
        return out;
    }
};

// The ids that the tree protocol knows; other names have none.
inline int treeIdOf(std::string const &name) {
    static std::map<std::string, int> const ids = {
        {"host", 1068},   {"data", 1307}, {"origin", 1337}, {"packet", 1398}, {"cookie", 1400},
        {"target", 1401}, {"src", 1649},  {"dst", 1652},    {"session", 1748}};
    auto const found = ids.find(name);
    return found == ids.end() ? 0 : found->second;
}

class TreeCursor;

// The tree protocol's message. Copies share the root (`data`) until a writer
// separates them, as the binary protocol shares its storage. Header values are
// held in the object. Text form: one line per element,
// "<depth> <ns> <name> <value>", depth counted from the subtree's top.
class TreeMessage : public KVXMessage {
public:
    static constexpr char const *MessageType = "TreeMessage";
    static int isComplete(char const *, int length) { return length; }
    static int isOfTheKind(char const *buffer) { return std::memcmp(buffer, "TREE", 4) == 0; }

    TreeMessage() : log(std::make_shared<std::vector<std::string>>()) {}

    TreeNode *data = nullptr;
    CallLog log;
    std::map<std::string, std::string> strings; // "id", "uid", "session" (held)
    std::map<std::string, int> ints;            // "version", "priority", "time", ...
    bool lastIdFlag = true;

    std::atomic<int> *counter() const { return referenceCount; }
    bool callMultiReference() const { return multiReference(); }

    int init(char const *buffer, int length) override {
        return deserialize(buffer, length, nullptr);
    }
    int create(char const *rootName) override {
        delete data;
        data = new TreeNode;
        data->name = rootName != nullptr ? rootName : "packet";
        return 0;
    }
    using KVXMessage::serialize;
    int serialize(char **buffer, int *size, KVXMessageIterator const *from,
                  int version) const override;
    int deserialize(KVXMessageIterator const *source, KVXMessageIterator *to) override;
    int deserialize(char const *buffer, int length, KVXMessageIterator *to) override;
    KVXMessage *newMessage() const override {
        TreeMessage *twin = new TreeMessage;
        twin->log = log;
        return twin;
    }
    KVXMessageIterator const *newIterator() const override;
    KVXMessageIterator *newIterator() override;

    int getVersion(int &v) const override { return getInt("version", v); }
    int setVersion(int v) override { return setInt("version", v); }
    int getTime(__int64 &) const override { return -1; }
    int setTime(__int64) override { return -1; }
    int getProgress(int &v) const override { return getInt("progress", v); }
    int setProgress(int v) override { return setInt("progress", v); }
    int getLog(int &v) const override { return getInt("log", v); }
    int setLog(int v) override { return setInt("log", v); }
    int getType(int &v) const override { return getInt("type", v); }
    int setType(int v) override { return setInt("type", v); }
    int getID(std::string &v) const override { return getString("id", v); }
    int setID(std::string const &v, bool flag) override {
        lastIdFlag = flag;
        return setString("id", v);
    }
    int getPriority(int &v) const override { return getInt("priority", v); }
    int setPriority(int v) override { return setInt("priority", v); }
    int getUid(std::string &v) const override { return getString("uid", v); }
    int setUid(std::string const &v) override { return setString("uid", v); }
    int getTimeout(int &v) const override { return getInt("timeout", v); }
    int setTimeout(int v) override { return setInt("timeout", v); }
    int getTimeoutLimit(int &v) const override { return getInt("timeoutLimit", v); }
    int setTimeoutLimit(int v) override { return setInt("timeoutLimit", v); }
    // The outer session form reads a value held outside the tree ("held
    // session") when there is one, as a protocol that caches it would.
    int getSession(std::string &v) const override {
        log->push_back("message.getSession");
        if (getString("session", v) == 0) {
            return 0;
        }
        return KVXMessage::getSession(v);
    }
    int setSessionID(std::string const &v) override {
        log->push_back("message.setSessionID");
        return KVXMessage::setSessionID(v);
    }
    char const *messageType() const override { return MessageType; }

protected:
    ~TreeMessage() override { delete data; }
    void assignInternals(KVXMessage const *other) override {
        TreeMessage const *source = static_cast<TreeMessage const *>(other);
        delete data;
        data = source->data;
        strings = source->strings;
        ints = source->ints;
    }
    int copyInternals() const override {
        if (data != nullptr) {
            const_cast<TreeMessage *>(this)->data = data->clone().release();
        }
        return 0;
    }
    void releaseInternals() override { data = nullptr; }

private:
    int getInt(std::string const &key, int &v) const {
        auto const found = ints.find(key);
        if (found == ints.end()) {
            return -1;
        }
        v = found->second;
        return 0;
    }
    int setInt(std::string const &key, int v) {
        ints[key] = v;
        return 0;
    }
    int getString(std::string const &key, std::string &v) const {
        auto const found = strings.find(key);
        if (found == strings.end()) {
            return -1;
        }
        v = found->second;
        return 0;
    }
    int setString(std::string const &key, std::string const &v) {
        strings[key] = v;
        return 0;
    }
};

// The tree protocol's cursor. The position is a chain of child indices from
// the root, so it survives the private copy that a writer makes. Every call is
// logged to the message's log as "cursor.name(arguments)".
class TreeCursor : public KVXMessageIterator {
public:
    using KVXMessageIterator::getValue;
    using KVXMessageIterator::getValueBase64;
    using KVXMessageIterator::getValueDouble;
    using KVXMessageIterator::getValueLongLong;
    using KVXMessageIterator::getValueTime;
    using KVXMessageIterator::getValueTimeZone;
    using KVXMessageIterator::nextSibling;
    using KVXMessageIterator::putValue;
    using KVXMessageIterator::putValueBase64;
    using KVXMessageIterator::putValueDouble;
    using KVXMessageIterator::putValueLongLong;
    using KVXMessageIterator::putValueTime;
    using KVXMessageIterator::putValueTimeZone;

    explicit TreeCursor(TreeMessage *m) : KVXMessageIterator(m) {
        if (m->data != nullptr) {
            path.push_back(0);
        }
    }

    // The position: 0 for the root, then child indices. Empty: no position.
    mutable std::vector<std::size_t> path;
    mutable std::vector<int> namespaces;
    mutable int invalidations = 0;

    TreeMessage *tree() const { return static_cast<TreeMessage *>(message); }
    TreeNode *node() const {
        if (path.empty() || tree()->data == nullptr) {
            return nullptr;
        }
        TreeNode *n = tree()->data;
        for (std::size_t i = 1; i < path.size(); ++i) {
            n = n->children[path[i]].get();
        }
        return n;
    }
    TreeNode *parentNode() const {
        if (path.size() < 2) {
            return nullptr;
        }
        std::vector<std::size_t> const saved = path;
        path.pop_back();
        TreeNode *p = node();
        path = saved;
        return p;
    }

    KVXMessageIterator *newIterator(bool deep) const override {
        log("newIterator", deep ? "true" : "false");
        TreeCursor *twin = new TreeCursor(*this);
        if (deep) {
            twin->message = message->copy(false);
        }
        return twin;
    }
    int seekRoot() const override {
        log("seekRoot", "");
        return KVXMessageIterator::seekRoot();
    }
    int seekUp() const override {
        log("seekUp", "");
        if (!path.empty()) {
            path.pop_back();
        }
        return 0;
    }
    int seek(int id) const override {
        log("seek", std::to_string(id));
        if (id == 0) {
            return node() != nullptr ? 0 : -1;
        }
        return moveToChild([id](TreeNode const &n) { return treeIdOf(n.name) == id; }, 0);
    }
    int seek(std::string const &p) const override {
        log("seek", p);
        return seekPath(p);
    }
    int setNamespace(int id) override {
        log("setNamespace", std::to_string(id));
        if (validateInternals() != 0 || node() == nullptr) {
            return -1;
        }
        node()->ns = id;
        return 0;
    }
    int setNamespace(std::string const &name) override {
        log("setNamespace", name);
        return -1;
    }
    void saveNamespace(int id) override {
        log("saveNamespace", std::to_string(id));
        if (id != 0) {
            namespaces.push_back(id);
        } else if (!namespaces.empty()) {
            namespaces.pop_back();
        }
    }
    int setComplexType(int, int) override { return -1; }
    int setComplexType(std::string const &, std::string const &) override { return -1; }
    int newChild(int id) override {
        log("newChild", std::to_string(id));
        for (auto const &name :
             {"host", "data", "origin", "packet", "cookie", "target", "src", "dst", "session"}) {
            if (treeIdOf(name) == id) {
                return addChild(name);
            }
        }
        return -1;
    }
    int newChild(std::string const &name) override {
        log("newChild", name);
        return addChild(name);
    }
    int firstChild(int id) const override {
        log("firstChild", std::to_string(id));
        return seekQuiet(id);
    }
    int firstChild() const override {
        log("firstChild", "");
        return moveToChild([](TreeNode const &) { return true; }, 0);
    }
    int firstChild(std::string const &name) const override {
        log("firstChild", name);
        return moveToChild([&name](TreeNode const &n) { return n.name == name; }, 0);
    }
    int nextSibling(std::string const &name) const override {
        log("nextSibling", name);
        return moveToSibling([&name](TreeNode const &n) { return n.name == name; });
    }
    int nextSibling() const override {
        log("nextSibling", "");
        return moveToSibling([](TreeNode const &) { return true; });
    }
    std::string const curName() const override { return node() ? node()->name : std::string(); }
    std::string const curType() const override { return std::string(); }
    int curNamespaceID() const override { return node() ? node()->ns : -1; }
    int serializeFromChild(char **buffer, int *size) const override {
        log("serializeFromChild", "");
        return message->serialize(buffer, size, this, 40500);
    }
    int deserializeToChild(char const *buffer, int size) override {
        log("deserializeToChild", std::string(buffer, static_cast<std::size_t>(size)));
        if (validateInternals() != 0) {
            return -1;
        }
        return message->deserialize(buffer, size, this);
    }
    int copyToChild(KVXMessageIterator const *source) override {
        TreeCursor const *from = dynamic_cast<TreeCursor const *>(source);
        log("copyToChild", from != nullptr && from->node() ? from->node()->name : "?");
        if (from == nullptr || from->node() == nullptr || validateInternals() != 0 ||
            node() == nullptr) {
            return -1;
        }
        node()->children.push_back(from->node()->clone());
        return 0;
    }
    char *toTextFromChild() const override { return message->toText(this, std::string(), 40500); }
    int fromTextToChild(char const *text) override {
        if (validateInternals() != 0) {
            return -1;
        }
        return message->fromText(text, this);
    }
    int deleteFromChild() override {
        log("deleteFromChild", "");
        if (validateInternals() != 0) {
            return -1;
        }
        TreeNode *parent = parentNode();
        if (parent == nullptr) {
            return -1;
        }
        parent->children.erase(parent->children.begin() + static_cast<std::ptrdiff_t>(path.back()));
        path.pop_back();
        return 0;
    }
    int getValueBase64(std::string &, std::string const &) const override { return -1; }
    int getValue(int &value, std::string const &p) const override {
        std::string text;
        if (getValue(text, p) != 0) {
            return -1;
        }
        value = std::atoi(text.c_str());
        return 0;
    }
    int getValue(std::string &value, std::string const &p) const override {
        log("getValue", p);
        std::vector<std::size_t> const saved = path;
        if (seekPath(p) != 0) {
            return -1;
        }
        TreeNode *n = node();
        path = saved;
        // A container has no value of its own.
        if (!n->children.empty()) {
            return -1;
        }
        value = n->value;
        return 0;
    }
    int getValueLongLong(__int64 &, std::string const &) const override { return -1; }
    int getValueDouble(double &, std::string const &) const override { return -1; }
    int getValueTime(__int64 &, std::string const &) const override { return -1; }
    int getValueTimeZone(__int64 &, int &, std::string const &) const override { return -1; }
    int putValueBase64(std::string const &, std::string const &) override { return -1; }
    int putValue(int value, std::string const &p) override {
        return putValue(std::to_string(value), p);
    }
    int putValue(std::string const &value, std::string const &p) override {
        log("putValue", value + "@" + p);
        if (validateInternals() != 0) {
            return -1;
        }
        std::vector<std::size_t> const saved = path;
        if (seekPath(p) != 0) {
            // A missing single step is added, as the packet's setters need.
            if (p.empty() || p.find('/') != std::string::npos || addChild(p) != 0) {
                return -1;
            }
        }
        node()->value = value;
        node()->children.clear();
        path = saved;
        return 0;
    }
    int putValueLongLong(__int64, std::string const &) override { return -1; }
    int putValueDouble(double, std::string const &) override { return -1; }
    int putValueTime(__int64, std::string const &) override { return -1; }
    int putValueTimeZone(__int64, int, std::string const &) override { return -1; }

protected:
    void invalidate() const override { ++invalidations; }

private:
    void log(std::string const &name, std::string const &args) const {
        tree()->log->push_back("cursor." + name + "(" + args + ")");
    }
    int seekQuiet(int id) const {
        if (id == 0) {
            return node() != nullptr ? 0 : -1;
        }
        return moveToChild([id](TreeNode const &n) { return treeIdOf(n.name) == id; }, 0);
    }
    template <class Pred> int moveToChild(Pred pred, std::size_t from) const {
        TreeNode *n = node();
        if (n == nullptr) {
            return -1;
        }
        for (std::size_t i = from; i < n->children.size(); ++i) {
            if (pred(*n->children[i])) {
                path.push_back(i);
                return 0;
            }
        }
        return -1;
    }
    template <class Pred> int moveToSibling(Pred pred) const {
        TreeNode *parent = parentNode();
        if (parent == nullptr) {
            return -1;
        }
        for (std::size_t i = path.back() + 1; i < parent->children.size(); ++i) {
            if (pred(*parent->children[i])) {
                path.back() = i;
                return 0;
            }
        }
        return -1;
    }
    int seekPath(std::string const &p) const {
        std::vector<std::size_t> const saved = path;
        if (p.empty()) {
            return node() != nullptr ? 0 : -1;
        }
        std::size_t pos = 0;
        if (p[0] == '/') {
            if (path.empty()) {
                return -1;
            }
            path.resize(1);
            pos = 1;
        }
        while (pos < p.size()) {
            std::size_t const slash = p.find('/', pos);
            std::string const step =
                p.substr(pos, slash == std::string::npos ? std::string::npos : slash - pos);
            if (step.empty()) {
                return 0;
            }
            if (moveToChild([&step](TreeNode const &n) { return n.name == step; }, 0) != 0) {
                path = saved;
                return -1;
            }
            if (slash == std::string::npos) {
                break;
            }
            pos = slash + 1;
        }
        return 0;
    }
    int addChild(std::string const &name) {
        if (validateInternals() != 0 || node() == nullptr) {
            return -1;
        }
        TreeNode *n = node();
        std::unique_ptr<TreeNode> child(new TreeNode);
        child->name = name;
        child->ns = namespaces.empty() ? n->ns : namespaces.back();
        n->value.clear();
        n->children.push_back(std::move(child));
        path.push_back(n->children.size() - 1);
        return 0;
    }
};

inline KVXMessageIterator const *TreeMessage::newIterator() const {
    return new TreeCursor(const_cast<TreeMessage *>(this));
}

inline KVXMessageIterator *TreeMessage::newIterator() {
    return new TreeCursor(this);
}

inline void writeTree(std::ostringstream &out, TreeNode const &n, int depth) {
    out << depth << ' ' << n.ns << ' ' << n.name << ' ' << n.value << '\n';
    for (auto const &child : n.children) {
        writeTree(out, *child, depth + 1);
    }
}

inline int TreeMessage::serialize(char **buffer, int *size, KVXMessageIterator const *from,
                                  int version) const {
    log->push_back("message.serialize(" + std::to_string(version) + ")");
    if (saveChanges() != 0) {
        return -1;
    }
    TreeNode const *top = data;
    if (from != nullptr) {
        top = static_cast<TreeCursor const *>(from)->node();
    }
    if (top == nullptr) {
        return -1;
    }
    std::ostringstream out;
    writeTree(out, *top, 0);
    std::string const text = out.str();
    *buffer = static_cast<char *>(std::malloc(text.size() + 1));
    std::memcpy(*buffer, text.c_str(), text.size() + 1);
    *size = static_cast<int>(text.size());
    return 0;
}

inline int TreeMessage::deserialize(KVXMessageIterator const *source, KVXMessageIterator *to) {
    TreeCursor const *from = dynamic_cast<TreeCursor const *>(source);
    if (from == nullptr || from->node() == nullptr) {
        return -1;
    }
    if (to == nullptr) {
        delete data;
        data = from->node()->clone().release();
        return 0;
    }
    return static_cast<TreeCursor *>(to)->copyToChild(source);
}

inline int TreeMessage::deserialize(char const *buffer, int length, KVXMessageIterator *to) {
    log->push_back("message.deserialize");
    std::istringstream in(std::string(buffer, static_cast<std::size_t>(length)));
    std::string line;
    std::unique_ptr<TreeNode> top;
    std::vector<TreeNode *> open;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        int depth = -1;
        std::unique_ptr<TreeNode> n(new TreeNode);
        if (!(fields >> depth >> n->ns >> n->name)) {
            return -1;
        }
        fields.get();
        std::getline(fields, n->value);
        TreeNode *raw = n.get();
        if (!top) {
            if (depth != 0) {
                return -1;
            }
            top = std::move(n);
        } else {
            if (depth < 1 || static_cast<std::size_t>(depth) > open.size()) {
                return -1;
            }
            open.resize(static_cast<std::size_t>(depth));
            open.back()->children.push_back(std::move(n));
        }
        open.push_back(raw);
    }
    if (!top) {
        return -1;
    }
    if (to == nullptr) {
        delete data;
        data = top.release();
        return 0;
    }
    TreeNode *at = static_cast<TreeCursor *>(to)->node();
    if (at == nullptr) {
        return -1;
    }
    at->children.push_back(std::move(top));
    return 0;
}

// A factory for the tree protocol that is not in the registry.
class TreeFactory : public KVX::KVXMsgFactory {
public:
    CallLog log = std::make_shared<std::vector<std::string>>();
    int made = 0;
    bool failNewMessage = false;

    using KVX::KVXMsgFactory::newMessage;
    KVXMessage *newMessage() override {
        if (failNewMessage) {
            return nullptr;
        }
        ++made;
        TreeMessage *m = new TreeMessage;
        m->log = log;
        return m;
    }
    int isComplete(char const *, int length) override { return length; }
    bool isOfTheKind(char const *buffer) override { return TreeMessage::isOfTheKind(buffer) != 0; }
    std::string messageType() override { return TreeMessage::MessageType; }
    std::type_info const &messageClass() override { return typeid(TreeMessage); }
};

} // namespace testdoubles

#endif // KVX_TESTS_MESSAGE_TREEPROTOCOL_H
