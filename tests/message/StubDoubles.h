// Test doubles for the abstract message layer: a cursor that overrides only
// the abstract (path) forms and records every call, and a minimal message that
// records the internals calls of copy on write. Single-threaded; every object
// is owned as the library's contracts say.
#ifndef KVX_TESTS_MESSAGE_STUBDOUBLES_H
#define KVX_TESTS_MESSAGE_STUBDOUBLES_H

#include <kvx/KVXCommon.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace testdoubles {

using KVX::KVXMessage;
using KVX::KVXMessageIterator;

typedef std::shared_ptr<std::vector<std::string>> CallLog;

// A cursor that gives bodies only to what the abstract class leaves abstract.
// Every such call is written to the log as "name(arguments)" and returns the
// result scripted for its name (0 if none). Readers fill their output with a
// recognisable value when they succeed.
class PathOnlyCursor : public KVXMessageIterator {
public:
    using KVXMessageIterator::firstChild;
    using KVXMessageIterator::getValue;
    using KVXMessageIterator::getValueBase64;
    using KVXMessageIterator::getValueDouble;
    using KVXMessageIterator::getValueLongLong;
    using KVXMessageIterator::getValueTime;
    using KVXMessageIterator::getValueTimeZone;
    using KVXMessageIterator::newChild;
    using KVXMessageIterator::nextSibling;
    using KVXMessageIterator::putValue;
    using KVXMessageIterator::putValueBase64;
    using KVXMessageIterator::putValueDouble;
    using KVXMessageIterator::putValueLongLong;
    using KVXMessageIterator::putValueTime;
    using KVXMessageIterator::putValueTimeZone;
    using KVXMessageIterator::seek;

    explicit PathOnlyCursor(KVXMessage *m = nullptr)
        : KVXMessageIterator(m), log(std::make_shared<std::vector<std::string>>()),
          results(std::make_shared<std::map<std::string, int>>()),
          sequences(std::make_shared<std::map<std::string, std::deque<int>>>()) {}
    // Built through the base class's pointer-copy constructor.
    struct FromCursor {};
    PathOnlyCursor(FromCursor, KVXMessageIterator const *other)
        : KVXMessageIterator(other), log(std::make_shared<std::vector<std::string>>()),
          results(std::make_shared<std::map<std::string, int>>()),
          sequences(std::make_shared<std::map<std::string, std::deque<int>>>()) {}

    CallLog log;
    std::shared_ptr<std::map<std::string, int>> results;
    // Results taken one by one before the fixed result of the same name.
    std::shared_ptr<std::map<std::string, std::deque<int>>> sequences;
    std::string readText = "text"; // what getValue(string&, path) gives
    mutable int invalidations = 0;

    void script(std::string const &name, int result) { (*results)[name] = result; }
    void scriptSequence(std::string const &name, std::deque<int> const &values) {
        (*sequences)[name] = values;
    }
    int callValidateInternals() const { return validateInternals(); }

    KVXMessageIterator *newIterator(bool deep) const override {
        rec("newIterator", deep ? "true" : "false");
        return new PathOnlyCursor(*this);
    }
    int seekUp() const override { return rec("seekUp", ""); }
    int seek(std::string const &path) const override { return rec("seek", path); }
    int setNamespace(int id) override { return rec("setNamespace", std::to_string(id)); }
    int setNamespace(std::string const &name) override { return rec("setNamespace", name); }
    int setComplexType(int ns, int type) override {
        return rec("setComplexType", std::to_string(ns) + "," + std::to_string(type));
    }
    int setComplexType(std::string const &ns, std::string const &type) override {
        return rec("setComplexType", ns + "," + type);
    }
    int newChild(std::string const &name) override { return rec("newChild", name); }
    int firstChild() const override { return rec("firstChild", ""); }
    int firstChild(std::string const &name) const override { return rec("firstChild", name); }
    int nextSibling(std::string const &name) const override { return rec("nextSibling", name); }
    int nextSibling() const override { return rec("nextSibling", ""); }
    std::string const curName() const override {
        rec("curName", "");
        return "name";
    }
    std::string const curType() const override {
        rec("curType", "");
        return "type";
    }
    int serializeFromChild(char **, int *) const override { return rec("serializeFromChild", ""); }
    int deserializeToChild(char const *, int size) override {
        return rec("deserializeToChild", std::to_string(size));
    }
    int copyToChild(KVXMessageIterator const *) override { return rec("copyToChild", ""); }
    char *toTextFromChild() const override {
        rec("toTextFromChild", "");
        return nullptr;
    }
    int fromTextToChild(char const *text) override { return rec("fromTextToChild", text); }
    int deleteFromChild() override { return rec("deleteFromChild", ""); }
    int getValueBase64(std::string &value, std::string const &path) const override {
        return fill(rec("getValueBase64", path), value, std::string("YmFzZTY0"));
    }
    int getValue(int &value, std::string const &path) const override {
        return fill(rec("getValue(int)", path), value, 42);
    }
    int getValue(std::string &value, std::string const &path) const override {
        return fill(rec("getValue(string)", path), value, readText);
    }
    int getValueLongLong(__int64 &value, std::string const &path) const override {
        return fill(rec("getValueLongLong", path), value, static_cast<__int64>(1) << 40);
    }
    int getValueDouble(double &value, std::string const &path) const override {
        return fill(rec("getValueDouble", path), value, 2.5);
    }
    int getValueTime(__int64 &value, std::string const &path) const override {
        return fill(rec("getValueTime", path), value, static_cast<__int64>(86400));
    }
    int getValueTimeZone(__int64 &value, int &zone, std::string const &path) const override {
        int const result = rec("getValueTimeZone", path);
        if (result == 0) {
            value = 172800;
            zone = 60;
        }
        return result;
    }
    int putValueBase64(std::string const &value, std::string const &path) override {
        return rec("putValueBase64", value + "@" + path);
    }
    int putValue(int value, std::string const &path) override {
        return rec("putValue(int)", std::to_string(value) + "@" + path);
    }
    int putValue(std::string const &value, std::string const &path) override {
        return rec("putValue(string)", value + "@" + path);
    }
    int putValueLongLong(__int64 value, std::string const &path) override {
        return rec("putValueLongLong", std::to_string(value) + "@" + path);
    }
    int putValueDouble(double value, std::string const &path) override {
        return rec("putValueDouble", std::to_string(value) + "@" + path);
    }
    int putValueTime(__int64 value, std::string const &path) override {
        return rec("putValueTime", std::to_string(value) + "@" + path);
    }
    int putValueTimeZone(__int64 value, int zone, std::string const &path) override {
        return rec("putValueTimeZone",
                   std::to_string(value) + "," + std::to_string(zone) + "@" + path);
    }

protected:
    void invalidate() const override {
        ++invalidations;
        rec("invalidate", "");
    }

    int rec(std::string const &name, std::string const &args) const {
        log->push_back(name + "(" + args + ")");
        auto const queued = sequences->find(name);
        if (queued != sequences->end() && !queued->second.empty()) {
            int const next = queued->second.front();
            queued->second.pop_front();
            return next;
        }
        auto const found = results->find(name);
        return found == results->end() ? 0 : found->second;
    }

private:
    template <class T, class V> static int fill(int result, T &out, V const &value) {
        if (result == 0) {
            out = value;
        }
        return result;
    }
};

// A message that implements only what the abstract class leaves abstract. It
// records the internals calls of copy on write and exposes the shared counter.
class StubMessage : public KVXMessage {
public:
    // Shared by every StubMessage made from this one with newMessage.
    struct Record {
        int assigns = 0;
        int copies = 0;
        int releases = 0;
        int destructions = 0;
        int copyInternalsResult = 0;
        int serializeResult = 0;
        std::string serializeText = "stub text";
        int lastSerializeVersion = 0;
        KVXMessageIterator const *lastSerializeFrom = nullptr;
        std::string deserialized;
        int deserializeResult = 0;
        KVXMessageIterator *lastDeserializeTo = nullptr;
        bool newMessageFails = false;
        int initResult = 0;
        std::string initBuffer;
    };

    StubMessage() : record(std::make_shared<Record>()) {}
    explicit StubMessage(std::shared_ptr<Record> r) : record(std::move(r)) {}
    // The plain copy: it copies the counter pointer (and shares the record).
    StubMessage(StubMessage const &other) = default;

    std::shared_ptr<Record> record;

    std::atomic<int> *counter() const { return referenceCount; }
    void setCounter(std::atomic<int> *c) { referenceCount = c; }
    bool callMultiReference() const { return multiReference(); }
    int callHardcopy() const { return hardcopy(); }
    int callSaveChanges() const { return saveChanges(); }

    int init(char const *buffer, int length) override {
        record->initBuffer.assign(buffer, static_cast<std::size_t>(length));
        return record->initResult;
    }
    int create(char const *) override { return 0; }
    int serialize(char **buffer, int *size, KVXMessageIterator const *from,
                  int version) const override {
        record->lastSerializeVersion = version;
        record->lastSerializeFrom = from;
        if (record->serializeResult != 0) {
            return record->serializeResult;
        }
        *buffer = static_cast<char *>(std::malloc(record->serializeText.size() + 1));
        std::memcpy(*buffer, record->serializeText.c_str(), record->serializeText.size() + 1);
        *size = static_cast<int>(record->serializeText.size());
        return 0;
    }
    using KVXMessage::serialize;
    int deserialize(KVXMessageIterator const *, KVXMessageIterator *) override { return -1; }
    int deserialize(char const *buffer, int length, KVXMessageIterator *to) override {
        record->deserialized.assign(buffer, static_cast<std::size_t>(length));
        record->lastDeserializeTo = to;
        return record->deserializeResult;
    }
    KVXMessage *newMessage() const override {
        return record->newMessageFails ? nullptr : new StubMessage(record);
    }
    KVXMessageIterator const *newIterator() const override {
        return new PathOnlyCursor(const_cast<StubMessage *>(this));
    }
    KVXMessageIterator *newIterator() override { return new PathOnlyCursor(this); }
    int getVersion(int &) const override { return -1; }
    int setVersion(int) override { return -1; }
    int getTime(__int64 &) const override { return -1; }
    int setTime(__int64) override { return -1; }
    int getProgress(int &) const override { return -1; }
    int setProgress(int) override { return -1; }
    int getLog(int &) const override { return -1; }
    int setLog(int) override { return -1; }
    int getType(int &) const override { return -1; }
    int setType(int) override { return -1; }
    int getID(std::string &) const override { return -1; }
    int setID(std::string const &, bool) override { return -1; }
    int getPriority(int &) const override { return -1; }
    int setPriority(int) override { return -1; }
    int getUid(std::string &) const override { return -1; }
    int setUid(std::string const &) override { return -1; }
    int getTimeout(int &) const override { return -1; }
    int setTimeout(int) override { return -1; }
    int getTimeoutLimit(int &) const override { return -1; }
    int setTimeoutLimit(int) override { return -1; }
    char const *messageType() const override { return "StubMessage"; }

protected:
    ~StubMessage() override { ++record->destructions; }
    void assignInternals(KVXMessage const *) override { ++record->assigns; }
    int copyInternals() const override {
        ++record->copies;
        return record->copyInternalsResult;
    }
    void releaseInternals() override { ++record->releases; }
};

// Reads the shared counter of any message; the member is protected, and a
// pointer to it taken through a derived class reaches it on any object.
struct CounterReader : KVXMessage {
    static std::atomic<int> *of(KVXMessage const *message) {
        return message->*(&CounterReader::referenceCount);
    }
};

// The count of a message's family, or -1 when it has given up its share.
inline int shareCount(KVXMessage const *message) {
    std::atomic<int> *const counter = CounterReader::of(message);
    return counter == nullptr ? -1 : counter->load();
}

// Installs an assertion handler that counts and returns, for one scope, and
// puts the previous handler back.
struct AssertRecorder {
    static int &count() {
        static int assertions = 0;
        return assertions;
    }
    static void record(char const *, char const *, int) { ++count(); }
    KVX::AssertHandler previous;
    AssertRecorder() : previous(KVX::setAssertHandler(&AssertRecorder::record)) { count() = 0; }
    ~AssertRecorder() { KVX::setAssertHandler(previous); }
    AssertRecorder(AssertRecorder const &) = delete;
    AssertRecorder &operator=(AssertRecorder const &) = delete;
};

// Releases a message at scope end.
struct Destroyer {
    KVXMessage *message;
    ~Destroyer() {
        if (message != nullptr) {
            message->destroy();
        }
    }
};

} // namespace testdoubles

#endif // KVX_TESTS_MESSAGE_STUBDOUBLES_H
