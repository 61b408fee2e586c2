// Packet header values of KVXBinary: attributes of the root and the `session`
// child, read and written through a cursor at the root, and the three pending
// strings (id, session, uid) that only saveChanges writes into the document.
// The pending strings belong to the message object. One thread at a time.
#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include "binary/KVXBinaryInternals.h"
#include "message/VersionText.h"

#include <cstdio>
#include <string>

namespace KVX {

namespace {

// Attribute ids of the packet head and the one header child element.
constexpr int VersionAttr = 101;      // "version", text "%d.%d.%d"
constexpr int IdAttr = 102;           // "id", text
constexpr int PriorityAttr = 103;     // "priority", integer
constexpr int TimeAttr = 104;         // "time", time stamp
constexpr int TypeAttr = 105;         // "type", integer
constexpr int ProgressAttr = 106;     // "progress", "on" or "off"
constexpr int TimeoutAttr = 107;      // "timeout", integer
constexpr int TimeoutLimitAttr = 108; // "timeout_limit", integer
constexpr int UidAttr = 109;          // "uid", text
constexpr int LogAttr = 110;          // "log", "on" or "off"
constexpr int SessionElement = 1748;  // child element "session" of the root

char const OnText[] = "on";
char const OffText[] = "off";

// The cursor at the root through which an accessor works. It is the
// message's own for the one call, not handed out, so it does not count in
// cursorCount and leaves the repair rule of other cursors as it was.
class RootCursor {
public:
    explicit RootCursor(KVXBinary const *message) : cursor(const_cast<KVXBinary *>(message)) {}
    // False when there is no current node to work at: a document without a
    // root (or without storage) has nowhere to keep header values.
    explicit operator bool() const { return !cursor.binaryPath().entries.empty(); }
    KVXBinaryIterator *operator->() { return &cursor; }
    KVXBinaryIterator &operator*() { return cursor; }

private:
    KVXBinaryIterator cursor;
};

// Reads an "on"/"off" attribute: 1 or 0, and any other text is a failure that
// leaves `value` alone.
int readSwitch(KVXBinaryIterator const &cursor, int attr, int &value) {
    std::string text;
    if (cursor.getAttr(text, attr) != 0)
        return -1;
    if (text == OnText) {
        value = 1;
        return 0;
    }
    if (text == OffText) {
        value = 0;
        return 0;
    }
    return -1;
}

// The setter rule of the pending strings: an equal value changes nothing, not
// even the dirty flag; a different or first value is stored and made dirty.
void setPending(std::string *&pending, bool &dirty, std::string const &value) {
    if (pending != nullptr) {
        if (*pending == value)
            return;
        *pending = value;
    } else {
        pending = new std::string(value);
    }
    dirty = true;
}

// The getter rule: a dirty value answers from the object (none: -1).
int getPending(std::string const *pending, std::string &out) {
    if (pending == nullptr)
        return -1;
    out = *pending;
    return 0;
}

} // namespace

int KVXBinary::getVersion(int &version) const {
    RootCursor cursor(this);
    std::string text;
    if (!cursor || cursor->getAttr(text, VersionAttr) != 0)
        return -1;
    version = parseVersionText(text.data(), text.size());
    return 0;
}

int KVXBinary::setVersion(int version) {
    char text[40];
    std::snprintf(text, sizeof text, "%d.%d.%d", version / 10000, (version / 100) % 100,
                  version % 100);
    RootCursor cursor(this);
    if (!cursor)
        return -1;
    int const result = cursor->putAttr(std::string(text), VersionAttr);
    // Set after the write: the write may have given this message storage of its
    // own, and the number belongs to that storage, not to the one it shared.
    if (internals != nullptr)
        internals->ids.version = version;
    return result;
}

int KVXBinary::getTime(__int64 &time) const {
    RootCursor cursor(this);
    return cursor ? cursor->getAttrTime(time, TimeAttr) : -1;
}

int KVXBinary::setTime(__int64 time) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttrTime(time, TimeAttr) : -1;
}

int KVXBinary::getProgress(int &progress) const {
    RootCursor cursor(this);
    return cursor ? readSwitch(*cursor, ProgressAttr, progress) : -1;
}

int KVXBinary::setProgress(int progress) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(std::string(progress != 0 ? OnText : OffText), ProgressAttr)
                  : -1;
}

int KVXBinary::getLog(int &log) const {
    RootCursor cursor(this);
    return cursor ? readSwitch(*cursor, LogAttr, log) : -1;
}

int KVXBinary::setLog(int log) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(std::string(log != 0 ? OnText : OffText), LogAttr) : -1;
}

int KVXBinary::getType(int &type) const {
    // The one getter that answers a missing value with a default as well.
    type = 0;
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(type, TypeAttr) : -1;
}

int KVXBinary::setType(int type) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(type, TypeAttr) : -1;
}

int KVXBinary::getID(std::string &value) const {
    if (idDirty)
        return getPending(id, value);
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(value, IdAttr) : -1;
}

int KVXBinary::setID(std::string const &value, bool flag) {
    setPending(id, idDirty, value);
    idLocal = flag;
    return 0;
}

int KVXBinary::getPriority(int &priority) const {
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(priority, PriorityAttr) : -1;
}

int KVXBinary::setPriority(int priority) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(priority, PriorityAttr) : -1;
}

int KVXBinary::getUid(std::string &value) const {
    if (uidDirty)
        return getPending(uid, value);
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(value, UidAttr) : -1;
}

int KVXBinary::setUid(std::string const &value) {
    setPending(uid, uidDirty, value);
    return 0;
}

int KVXBinary::getTimeout(int &timeout) const {
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(timeout, TimeoutAttr) : -1;
}

int KVXBinary::setTimeout(int timeout) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(timeout, TimeoutAttr) : -1;
}

int KVXBinary::getTimeoutLimit(int &limit) const {
    RootCursor cursor(this);
    return cursor ? cursor->getAttr(limit, TimeoutLimitAttr) : -1;
}

int KVXBinary::setTimeoutLimit(int limit) {
    RootCursor cursor(this);
    return cursor ? cursor->putAttr(limit, TimeoutLimitAttr) : -1;
}

int KVXBinary::getSession(std::string &value) const {
    if (sessionDirty) {
        // A dropped session reads as empty, and that is still an answer.
        value = session != nullptr ? *session : std::string();
        return 0;
    }
    int const result = getSessionID(value);
    return (result == 0 && value.empty()) ? -1 : result;
}

int KVXBinary::setSession(std::string const &value) {
    setPending(session, sessionDirty, value);
    return 0;
}

int KVXBinary::getSessionID(std::string &value) const {
    RootCursor cursor(this);
    return cursor ? cursor->getValue(value, SessionElement) : -1;
}

int KVXBinary::setSessionID(std::string const &value) {
    RootCursor cursor(this);
    return cursor ? cursor->putValue(value, SessionElement) : -1;
}

int KVXBinary::saveChanges() const {
    if (!idDirty && !sessionDirty && !uidDirty)
        return 0;
    // A dirty flag with no string is a value that was dropped: nothing to write,
    // and the flag goes down. A local id answers getID but never goes out, so
    // its flag stays raised and the cursor is made again at the next call.
    bool const writeId = idDirty && !idLocal && id != nullptr;
    bool const writeSession = sessionDirty && session != nullptr;
    bool const writeUid = uidDirty && uid != nullptr;
    RootCursor cursor(this);
    // A document without a root has nowhere to keep a value.
    if (!cursor && (writeId || writeSession || writeUid))
        return -1;
    if (idDirty && !idLocal) {
        if (writeId && cursor->putValue(*id, IdAttr) != 0)
            return -1;
        idDirty = false;
    }
    if (sessionDirty) {
        if (writeSession && cursor->putValue(*session, SessionElement) != 0)
            return -1;
        sessionDirty = false;
    }
    if (uidDirty) {
        if (writeUid && cursor->putValue(*uid, UidAttr) != 0)
            return -1;
        uidDirty = false;
    }
    return 0;
}

} // namespace KVX
