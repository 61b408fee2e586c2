// The bodies that the abstract cursor gives itself. They reach the document
// only through the cursor's own virtual slots, so they serve every message
// class. A cursor does not own its message; text and frames it hands out are C
// heap blocks owned by the caller. One cursor is for one thread at a time.
#include <kvx/KVXMessage.h>

#include <kvx/KVXCommon.h>

#include "message/LengthLimits.h"

#include <cstddef>
#include <memory>

namespace KVX {

namespace {

// The version asked of the message when a cursor writes the whole message.
constexpr int WholeMessageVersion = 40500;

// The boolean reading of a value: "0", the empty text and "false" are false,
// compared exactly, so "False", "00" and "off" read as true.
bool textToBool(std::string const &text) {
    return !(text.empty() || text == "0" || text == "false");
}

} // namespace

KVXMessageIterator::KVXMessageIterator(KVXMessage *msg) : message(msg) {}

KVXMessageIterator::KVXMessageIterator(KVXMessageIterator const *other)
    : message(other != nullptr ? other->message : nullptr) {
    KVX_ASSERT(other != nullptr); // the caller gave no cursor to copy
}

KVXMessageIterator::KVXMessageIterator(KVXMessageIterator const &other) : message(other.message) {}

KVXMessageIterator &KVXMessageIterator::operator=(KVXMessageIterator const &other) {
    message = other.message;
    return *this;
}

KVXMessageIterator::~KVXMessageIterator() {}

KVXMessage *KVXMessageIterator::getMessage() const {
    return message;
}

int KVXMessageIterator::seekRoot() const {
    return seek(std::string("/"));
}

int KVXMessageIterator::seek(int /*id*/) const {
    return -1;
}

int KVXMessageIterator::seekPresence(int id) const {
    if (seek(id) != 0) {
        return -1;
    }
    // seek(0) names the current element and has not moved.
    if (id == 0) {
        return 0;
    }
    seekUp();
    return 0;
}

int KVXMessageIterator::seekPresence(std::string const &path) const {
    if (seek(path) != 0) {
        return -1;
    }
    if (path.empty()) {
        return 0;
    }
    // One level only, whatever the depth of the path: callers pass single names.
    seekUp();
    return 0;
}

void KVXMessageIterator::saveNamespace(int /*id*/) {}

void KVXMessageIterator::saveNamespace(std::string const & /*name*/) {}

int KVXMessageIterator::newChild(int /*id*/) {
    return -1;
}

int KVXMessageIterator::putChild(int id) {
    if (seek(id) != 0 && newChild(id) != 0) {
        return -1;
    }
    seekUp();
    return 0;
}

int KVXMessageIterator::putChild(std::string const &name) {
    if (seek(name) != 0 && newChild(name) != 0) {
        return -1;
    }
    seekUp();
    return 0;
}

int KVXMessageIterator::firstChild(int /*id*/) const {
    return -1;
}

int KVXMessageIterator::nextSibling(int /*id*/) const {
    return -1;
}

int KVXMessageIterator::curNamespaceID() const {
    return -1;
}

int KVXMessageIterator::deleteChild(int id) {
    // Each round removes one child; deleteFromChild leaves the cursor on the
    // parent, where the next firstChild starts again. An id of 0 would delete
    // the current node and then climb; that is outside the contract.
    while (firstChild(id) == 0) {
        if (deleteFromChild() != 0) {
            return -1;
        }
    }
    return 0;
}

char *KVXMessageIterator::toText() const {
    if (message == nullptr) {
        return nullptr;
    }
    return message->toText(nullptr, std::string(), WholeMessageVersion);
}

int KVXMessageIterator::serialize(char **buffer, int *size, int version) const {
    if (message == nullptr) {
        return -1;
    }
    return message->serialize(buffer, size, nullptr, version);
}

// The id forms below know no ids of their own: only id 0, the current element,
// can be reached, as the path form with an empty path.

int KVXMessageIterator::getValueBase64(std::string &value, int id) const {
    return id != 0 ? -1 : getValueBase64(value, std::string());
}

int KVXMessageIterator::getValue(bool &value, int id) const {
    if (id == 0) {
        return getValue(value, std::string());
    }
    std::string text;
    int const result = getValue(text, id);
    if (result != 0) {
        return result;
    }
    value = textToBool(text);
    return 0;
}

int KVXMessageIterator::getValue(int &value, int id) const {
    return id != 0 ? -1 : getValue(value, std::string());
}

int KVXMessageIterator::getValue(std::string &value, int id) const {
    return id != 0 ? -1 : getValue(value, std::string());
}

int KVXMessageIterator::getValue(bool &value, std::string const &path) const {
    std::string text;
    int const result = getValue(text, path);
    if (result != 0) {
        return result;
    }
    value = textToBool(text);
    return 0;
}

int KVXMessageIterator::getValueLongLong(__int64 &value, int id) const {
    return id != 0 ? -1 : getValueLongLong(value, std::string());
}

int KVXMessageIterator::getValueDouble(double &value, int id) const {
    return id != 0 ? -1 : getValueDouble(value, std::string());
}

int KVXMessageIterator::getValueTime(__int64 &value, int id) const {
    return id != 0 ? -1 : getValueTime(value, std::string());
}

int KVXMessageIterator::getValueTimeZone(__int64 &value, int &zone, int id) const {
    return id != 0 ? -1 : getValueTimeZone(value, zone, std::string());
}

// The two string writers hand a non-zero id to the (char const *, int, int)
// form, so that a concrete cursor overrides just that one to serve both.

int KVXMessageIterator::putValueBase64(std::string const &value, int id) {
    if (id == 0) {
        return putValueBase64(value, std::string());
    }
    // A length that an int cannot carry is refused, not cut short.
    if (!Internal::fitsIntLength(value.size())) {
        return -1;
    }
    return putValueBase64(value.data(), static_cast<int>(value.size()), id);
}

int KVXMessageIterator::putValueBase64(char const * /*value*/, int /*length*/, int /*id*/) {
    return -1;
}

int KVXMessageIterator::putValue(int value, int id) {
    return id != 0 ? -1 : putValue(value, std::string());
}

int KVXMessageIterator::putValue(std::string const &value, int id) {
    if (id == 0) {
        return putValue(value, std::string());
    }
    if (!Internal::fitsIntLength(value.size())) {
        return -1;
    }
    return putValue(value.data(), static_cast<int>(value.size()), id);
}

int KVXMessageIterator::putValue(char const * /*value*/, int /*length*/, int /*id*/) {
    return -1;
}

int KVXMessageIterator::putValueLongLong(__int64 value, int id) {
    return id != 0 ? -1 : putValueLongLong(value, std::string());
}

int KVXMessageIterator::putValueDouble(double value, int id) {
    return id != 0 ? -1 : putValueDouble(value, std::string());
}

int KVXMessageIterator::putValueTime(__int64 value, int id) {
    return id != 0 ? -1 : putValueTime(value, std::string());
}

int KVXMessageIterator::putValueTimeZone(__int64 value, int zone, int id) {
    return id != 0 ? -1 : putValueTimeZone(value, zone, std::string());
}

int KVXMessageIterator::getOrigin(std::string &origin) const {
    // Absolute, so the cursor may stand anywhere.
    return getValue(origin, std::string("/origin"));
}

int KVXMessageIterator::setNamespaceChild(int id) {
    // A pre-order walk of the subtree below the current element with one
    // second cursor and a depth count, not one nested call and one cursor per
    // level: the depth of a document is set by its sender and must reach
    // neither the call stack nor a stack of cursor copies. Every element gets
    // the same setNamespace calls, in the same order, as a recursive walk.
    std::unique_ptr<KVXMessageIterator> const walker(newIterator(false));
    if (!walker) {
        return -1;
    }
    std::size_t depth = 0;
    if (walker->firstChild() == 0) {
        depth = 1;
    }
    while (depth != 0) {
        walker->setNamespace(id);
        if (walker->firstChild() == 0) {
            ++depth;
            continue;
        }
        // A leaf: move on to the next sibling, climbing out of every level
        // whose elements are all done. Level 1 is the children of the start.
        while (depth != 0 && walker->nextSibling() != 0) {
            if (--depth != 0) {
                walker->seekUp();
            }
        }
    }
    return 0;
}

int KVXMessageIterator::validateInternals() const {
    if (message != nullptr && message->multiReference()) {
        if (message->hardcopy() != 0) {
            return -1;
        }
        invalidate();
    }
    return message != nullptr ? 0 : -1;
}

} // namespace KVX
