// The abstract packet, its cursor, and the reference-count base of factories.
// Every caller and the SOAP bridge work through these two classes only; the
// order of their virtual operations is part of the library's binary interface.
// A message and its cursors are for one thread at a time; only the shared
// reference counts are changed atomically.
#ifndef KVX_KVXMESSAGE_H
#define KVX_KVXMESSAGE_H

#include <kvx/KVXDefs.h>

#include <atomic>
#include <string>

#include <boost/intrusive_ptr.hpp>

namespace KVX {

class KVXMessage;
class KVXMessageIterator;
class KVXMsgFactory;

// Intrusive reference-count base, used with boost::intrusive_ptr. The count
// starts at 0 and is changed only by atomic increment and decrement; the object
// is deleted through the virtual destructor when it reaches 0.
class KVX_EXPORT KVXRefCounter {
public:
    KVXRefCounter();
    virtual ~KVXRefCounter();

    KVX_EXPORT friend void intrusive_ptr_add_ref(KVXRefCounter *object);
    KVX_EXPORT friend void intrusive_ptr_release(KVXRefCounter *object);

    // The current count, for tests and diagnostics.
    int referenceCountValue() const { return count.load(); }

private:
    KVXRefCounter(KVXRefCounter const &) = delete;
    KVXRefCounter &operator=(KVXRefCounter const &) = delete;

    std::atomic<int> count;
};

// The abstract packet. Released with destroy(), never by delete.
// Results: 0 success, -1 failure, unless an operation says otherwise.
class KVX_EXPORT KVXMessage {
public:
    // Allocates the shared counter with the value 1.
    KVXMessage();
    // Plain copies of the counter pointer: the count is not touched. Sharing a
    // message is done with copy(), not with these.
    KVXMessage(KVXMessage const &other);
    KVXMessage &operator=(KVXMessage const &other);

    // Loads the message from a whole serialized buffer of `length` bytes.
    virtual int init(char const *buffer, int length) = 0;
    // Starts an empty packet with the named root element.
    virtual int create(char const *rootName = nullptr) = 0;
    // Gives up this object's share of the data, then deletes the object.
    virtual void destroy();
    // Serializes into the caller's buffer of *size bytes and stores the size
    // written. A null buffer is a size query: the size needed goes to *size and
    // the result is -2. Here: -1, a message class must override it.
    virtual int serialize(char *buffer, unsigned __int64 *size,
                          KVXMessageIterator const *from = nullptr) const;
    // Allocates a buffer (malloc; the caller frees it), serializes into it and
    // stores pointer and size. `version` is the peer's protocol version.
    virtual int serialize(char **buffer, int *size, KVXMessageIterator const *from = nullptr,
                          int version = 40500) const = 0;
    // Loads the subtree at `source` as a new last child at `to`; a null `to`
    // replaces the whole message.
    virtual int deserialize(KVXMessageIterator const *source, KVXMessageIterator *to) = 0;
    virtual int deserialize(char const *buffer, int length, KVXMessageIterator *to = nullptr) = 0;
    // Text of the message or of the subtree at `from` (malloc; the caller frees
    // it), or null. Here: serialize at `version`, `namespaceBase` unused.
    virtual char *toText(KVXMessageIterator const *from = nullptr,
                         std::string const &namespaceBase = std::string(),
                         int version = 40500) const;
    // Writes the text form to a file. 0, or non-zero on failure.
    virtual int toTextFile(std::string const &path) const;
    // Loads from a NUL-terminated text at `to` (null: replace the whole message).
    virtual int fromText(char const *text, KVXMessageIterator *to = nullptr);
    // Loads the text form from a file. A short read returns the byte count.
    virtual int fromTextFile(std::string const &path);
    // A new empty message of the same class, owned by the caller.
    virtual KVXMessage *newMessage() const = 0;
    // Cursors at the root, owned by the caller; they must not outlive the message.
    virtual KVXMessageIterator const *newIterator() const = 0;
    virtual KVXMessageIterator *newIterator() = 0;
    // A second message that shares this one's data (the flag is not consulted).
    virtual KVXMessage *copy(bool deep = false) const;

    // Header fields.
    virtual int getVersion(int &version) const = 0;
    virtual int setVersion(int version) = 0;
    virtual int getTime(__int64 &time) const = 0;
    virtual int setTime(__int64 time) = 0;
    virtual int getProgress(int &progress) const = 0;
    virtual int setProgress(int progress) = 0;
    virtual int getLog(int &log) const = 0;
    virtual int setLog(int log) = 0;
    virtual int getType(int &type) const = 0;
    virtual int setType(int type) = 0;
    virtual int getID(std::string &id) const = 0;
    virtual int setID(std::string const &id, bool flag = false) = 0;
    virtual int getPriority(int &priority) const = 0;
    virtual int setPriority(int priority) = 0;
    virtual int getUid(std::string &uid) const = 0;
    virtual int setUid(std::string const &uid) = 0;
    virtual int getTimeout(int &timeout) const = 0;
    virtual int setTimeout(int timeout) = 0;
    virtual int getTimeoutLimit(int &limit) const = 0;
    virtual int setTimeoutLimit(int limit) = 0;

    // The root's `origin` and `target` children; empty strings when missing.
    virtual std::string getOrigin() const;
    virtual int setOrigin(std::string const &origin);
    virtual std::string getTarget() const;
    virtual int setTarget(std::string const &target);
    // Always adds a further `target` element.
    virtual int addTarget(std::string const &target);
    // The session: getSession/setSession may hold it outside the tree;
    // getSessionID/setSessionID read and write the `session` child.
    virtual int getSession(std::string &session) const;
    virtual int setSession(std::string const &session);
    virtual int getSessionID(std::string &session) const;
    virtual int setSessionID(std::string const &session);
    // The protocol's name.
    virtual char const *messageType() const = 0;

protected:
    // Requires: the counter pointer is null or the count stands at 0.
    virtual ~KVXMessage();
    // Flushes values held outside the tree into it. Here: nothing, 0.
    virtual int saveChanges() const;
    // True while other objects share this data.
    virtual bool multiReference() const;
    // Takes over `other`'s data without copying it.
    virtual void assignInternals(KVXMessage const *other) = 0;
    // Replaces this object's data by a private copy of it.
    virtual int copyInternals() const = 0;
    // Forgets the shared data without freeing it.
    virtual void releaseInternals() = 0;
    // Makes this object's data its own again (copy on first write).
    virtual int hardcopy() const;

public:
    // A reply to this message, of the default protocol, owned by the caller.
    KVXMessage *genReply(std::string const &origin) const;

    // The default protocol's factory; the first call registers the binary protocol.
    static boost::intrusive_ptr<KVXMsgFactory> getFactory();
    // Replaces the default factory (null is accepted).
    static void setFactory(boost::intrusive_ptr<KVXMsgFactory> factory);
    // Makes the binary protocol the default; false if it is not registered yet.
    static bool initialize();
    // The default factory's framing answer for a received buffer.
    static int isComplete(char const *buffer, int length);

protected:
    // Shared among all objects on one body of data; null after giving up a share.
    mutable std::atomic<int> *referenceCount;

    friend class KVXMessageIterator;
};

// The abstract cursor. Deleted by whoever holds it; it does not own its message.
// An `int id` names the first child with that identifier (0: the current
// element); a path is relative, or absolute with a leading slash.
class KVX_EXPORT KVXMessageIterator {
public:
    explicit KVXMessageIterator(KVXMessage *message);
    explicit KVXMessageIterator(KVXMessageIterator const *other);
    KVXMessageIterator(KVXMessageIterator const &other);
    KVXMessageIterator &operator=(KVXMessageIterator const &other);

    virtual ~KVXMessageIterator();
    virtual KVXMessage *getMessage() const;
    virtual KVXMessageIterator *newIterator(bool deep = false) const = 0;
    virtual int seekRoot() const;
    virtual int seekUp() const = 0;
    virtual int seek(int id) const;
    virtual int seek(std::string const &path) const = 0;
    virtual int seekPresence(int id) const;
    virtual int seekPresence(std::string const &path) const;
    virtual int setNamespace(int id) = 0;
    virtual int setNamespace(std::string const &name) = 0;
    virtual void saveNamespace(int id);
    virtual void saveNamespace(std::string const &name);
    virtual int setComplexType(int namespaceId, int typeId) = 0;
    virtual int setComplexType(std::string const &namespaceName, std::string const &typeName) = 0;
    virtual int newChild(int id);
    virtual int newChild(std::string const &name) = 0;
    virtual int putChild(int id);
    virtual int putChild(std::string const &name);
    virtual int firstChild(int id) const;
    virtual int firstChild() const = 0;
    virtual int firstChild(std::string const &name) const = 0;
    virtual int nextSibling(int id) const;
    virtual int nextSibling(std::string const &name) const = 0;
    virtual int nextSibling() const = 0;
    virtual std::string const curName() const = 0;
    virtual std::string const curType() const = 0;
    virtual int curNamespaceID() const;
    virtual int serializeFromChild(char **buffer, int *size) const = 0;
    virtual int deserializeToChild(char const *buffer, int size) = 0;
    virtual int copyToChild(KVXMessageIterator const *source) = 0;
    virtual char *toTextFromChild() const = 0;
    virtual int fromTextToChild(char const *text) = 0;
    virtual int deleteFromChild() = 0;
    virtual int deleteChild(int id);
    virtual char *toText() const;
    virtual int serialize(char **buffer, int *size, int version = 40500) const;
    virtual int getValueBase64(std::string &value, int id = 0) const;
    virtual int getValueBase64(std::string &value, std::string const &path) const = 0;
    virtual int getValue(bool &value, int id = 0) const;
    virtual int getValue(int &value, int id = 0) const;
    virtual int getValue(std::string &value, int id = 0) const;
    virtual int getValue(bool &value, std::string const &path) const;
    virtual int getValue(int &value, std::string const &path) const = 0;
    virtual int getValue(std::string &value, std::string const &path) const = 0;
    virtual int getValueLongLong(__int64 &value, int id = 0) const;
    virtual int getValueLongLong(__int64 &value, std::string const &path) const = 0;
    virtual int getValueDouble(double &value, int id = 0) const;
    virtual int getValueDouble(double &value, std::string const &path) const = 0;
    virtual int getValueTime(__int64 &value, int id = 0) const;
    virtual int getValueTime(__int64 &value, std::string const &path) const = 0;
    virtual int getValueTimeZone(__int64 &value, int &zone, int id = 0) const;
    virtual int getValueTimeZone(__int64 &value, int &zone, std::string const &path) const = 0;
    virtual int putValueBase64(std::string const &value, int id = 0);
    virtual int putValueBase64(char const *value, int length, int id = 0);
    virtual int putValueBase64(std::string const &value, std::string const &path) = 0;
    virtual int putValue(int value, int id = 0);
    virtual int putValue(std::string const &value, int id = 0);
    virtual int putValue(char const *value, int length, int id = 0);
    virtual int putValue(int value, std::string const &path) = 0;
    virtual int putValue(std::string const &value, std::string const &path) = 0;
    virtual int putValueLongLong(__int64 value, int id = 0);
    virtual int putValueLongLong(__int64 value, std::string const &path) = 0;
    virtual int putValueDouble(double value, int id = 0);
    virtual int putValueDouble(double value, std::string const &path) = 0;
    virtual int putValueTime(__int64 value, int id = 0);
    virtual int putValueTime(__int64 value, std::string const &path) = 0;
    virtual int putValueTimeZone(__int64 value, int zone, int id = 0);
    virtual int putValueTimeZone(__int64 value, int zone, std::string const &path) = 0;

protected:
    // Drops whatever the cursor holds that depends on the old data.
    virtual void invalidate() const = 0;

public:
    // A reply to the whole message; the cursor's position plays no part.
    KVXMessage *genReply(std::string const &origin) const;
    // The root's `origin`, wherever the cursor stands.
    int getOrigin(std::string &origin) const;
    // Gives every element below the current one the namespace `id`.
    int setNamespaceChild(int id);

protected:
    // Copy on first write: separates shared data before a writer edits.
    int validateInternals() const;

    KVXMessage *message;
};

} // namespace KVX

#endif // KVX_KVXMESSAGE_H
