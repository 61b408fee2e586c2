// Typed values of KVXBinaryIterator: the getters and setters of every family,
// by id and by path, with the fixed answer for each pair of stored kind and
// requested type. Values are read where they lie in the message's frame and
// copied out; writes go through the node operations of KVXBinaryInternals.
// One thread at a time per document and its cursors.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

#include <kvx/KVXCommon.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace KVX {

namespace {

using binary::Node;

// The largest value a setter hands to the node operations. Frame lengths are
// signed 32-bit numbers, so anything near 2 GiB would wrap a size field.
constexpr std::uint64_t LargestValue = 0x7FFFFFFFu - 64u;

// The kind, size and value bytes of the current node, read once from its
// header; the getters look at them several times.
class Leaf {
public:
    Leaf() : nodeKind(0), valueSize(0), bytes(nullptr) {}
    unsigned short kind() const { return nodeKind; }
    std::uint32_t size() const { return valueSize; }
    // Requires: filled by valueNode, which checked all `size` bytes.
    char const *value() const { return bytes; }
    // The value's text: its bytes up to the first NUL, never past `size`.
    std::size_t textLength() const {
        void const *nul = std::memchr(bytes, 0, valueSize);
        return nul != nullptr ? static_cast<std::size_t>(static_cast<char const *>(nul) - bytes)
                              : valueSize;
    }

private:
    unsigned short nodeKind;
    std::uint32_t valueSize;
    char const *bytes;

    friend bool valueNode(KVXBinaryInternals const &doc, BinaryPath const &path, Leaf &out);
};

// The current node, when its header and value lie inside the frame. A node
// that does not (damaged sizes, stale offsets) is read as no value at all.
// Inlined into each getter: it runs on every typed read.
[[gnu::always_inline]] inline bool valueNode(KVXBinaryInternals const &doc, BinaryPath const &path,
                                             Leaf &out) {
    Internal::FrameView frame(doc);
    Node node(nullptr, 0, 0, 0);
    if (!Internal::currentNode(frame, path.entries, node))
        return false;
    std::uint32_t offset = node.offset;
    unsigned short kind = static_cast<unsigned short>(frame.kindAt(offset));
    std::uint32_t size = frame.sizeAt(offset);
    std::uint64_t at = static_cast<std::uint64_t>(offset) + Internal::headerSize(size, kind);
    if (at + size > frame.limit)
        return false;
    out.nodeKind = kind;
    out.valueSize = size;
    out.bytes = frame.base + at;
    return true;
}

// A NUL-terminated copy of a value's text only when the frame does not hold
// one: a value whose NUL is missing was damaged, and the C scanners below must
// not run past it.
class ValueText {
public:
    explicit ValueText(Leaf const &node) : text(node.value()) {
        std::size_t length = node.textLength();
        if (length == node.size()) {
            copy.assign(text, length);
            text = copy.c_str();
        }
    }
    char const *c_str() const { return text; }
    std::size_t length() const { return std::strlen(text); }

private:
    char const *text;
    std::string copy;
};

// Fills in place: the caller's string keeps its storage from one read to the
// next. clear and append, as the frame never overlaps the string, skip the
// overlap handling of assign.
void assignText(std::string &out, Leaf const &node) {
    out.clear();
    out.append(node.value(), node.textLength());
}

// strtol with the range of a 32-bit long: the result saturates at the int
// limits instead of wrapping when the text holds a larger number.
int textToInt(char const *text) {
    long long value = std::strtoll(text, nullptr, 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

// A read by path: the cursor goes there, reads with an id of 0 and comes back,
// whatever the read returned.
template <typename Read>
int readAt(KVXMessageIterator const &cursor, BinaryPath &path, std::string const &where,
           Read read) {
    std::vector<PathEntry> entries = path.entries;
    std::vector<int> namespaces = path.namespaces;
    if (cursor.seek(where) != 0)
        return -1;
    int result = read();
    path.entries = entries;
    path.namespaces = namespaces;
    return result;
}

// A write by path: the node is found, or created under the whole string as one
// name, written with an id of 0, and the cursor ends one level above it.
template <typename Write>
int writeAt(KVXMessageIterator &cursor, BinaryPath &path, std::string const &where, Write write) {
    if (cursor.seek(where) != 0 && cursor.newChild(where) != 0)
        return -1;
    int result = write();
    if (!path.entries.empty())
        path.entries.pop_back();
    return result;
}

// A number read by id: the child is found, a value of at least one byte is
// converted by `convert` (whose answer is the result), and a child read brings
// the cursor back to where it stood. A node without a value gives -1.
template <typename Convert>
int readNumber(KVXBinaryIterator const &cursor, KVXBinaryInternals const &internals,
               BinaryPath const &path, int id, Convert convert) {
    if (cursor.seek(id) != 0)
        return -1;
    Leaf node;
    int result = -1;
    if (valueNode(internals, path, node) && node.size() > 0)
        result = convert(node);
    if (id != 0)
        cursor.seekUp();
    return result;
}

// A stored number of `width` bytes is read only when the value holds them.
template <typename Load> int loadFixed(Leaf const &node, std::uint32_t width, Load load) {
    if (node.size() < width)
        return -1;
    load();
    return 0;
}

} // namespace

// --- getters by id --------------------------------------------------------

int KVXBinaryIterator::getValue(int &value, int id) const {
    return readNumber(*this, doc(), path, id, [&value](Leaf const &node) {
        switch (node.kind()) {
        case Internal::KindUntyped:
        case Internal::KindString:
            value = textToInt(ValueText(node).c_str());
            return 0;
        case Internal::KindInt:
            return loadFixed(node, 4, [&] { value = Internal::loadInt32(node.value()); });
        default:
            return -1;
        }
    });
}

int KVXBinaryIterator::getValueLongLong(__int64 &value, int id) const {
    return readNumber(*this, doc(), path, id, [&value](Leaf const &node) {
        switch (node.kind()) {
        case Internal::KindUntyped:
        case Internal::KindString:
            // sscanf answers 1, 0 for no number, EOF for nothing but blanks.
            return std::sscanf(ValueText(node).c_str(), "%lld", &value) - 1;
        case Internal::KindInt:
            return loadFixed(node, 4, [&] { value = Internal::loadInt32(node.value()); });
        case Internal::KindLongLong:
            return loadFixed(node, 8, [&] { value = Internal::loadInt64(node.value()); });
        default:
            return -1;
        }
    });
}

int KVXBinaryIterator::getValueDouble(double &value, int id) const {
    return readNumber(*this, doc(), path, id, [&value](Leaf const &node) {
        switch (node.kind()) {
        case Internal::KindUntyped:
        case Internal::KindString:
            return std::sscanf(ValueText(node).c_str(), "%lf", &value) - 1;
        case Internal::KindDouble:
            return loadFixed(node, 8, [&] { value = Internal::loadDouble(node.value()); });
        default:
            return -1;
        }
    });
}

int KVXBinaryIterator::getValue(std::string &value, int id) const {
    if (seek(id) != 0)
        return -1;
    int result = -1;
    Leaf node;
    if (valueNode(doc(), path, node)) {
        std::uint32_t size = node.size();
        switch (node.kind()) {
        case Internal::KindUntyped:
            if (size == 0)
                value.clear();
            else
                assignText(value, node);
            result = 0;
            break;
        case Internal::KindString:
            if (size == 0)
                return -1; // the cursor stays on the child
            assignText(value, node);
            result = 0;
            break;
        case Internal::KindInt:
            if (size >= 4) {
                value = intToStr(Internal::loadInt32(node.value()));
                result = 0;
            }
            break;
        case Internal::KindLongLong:
            if (size >= 8) {
                value = longlongToStr(Internal::loadInt64(node.value()));
                result = 0;
            }
            break;
        case Internal::KindDouble:
            if (size >= 8) {
                value = doubleToStr(Internal::loadDouble(node.value()));
                result = 0;
            }
            break;
        default:
            break;
        }
    }
    if (id != 0)
        seekUp();
    return result;
}

int KVXBinaryIterator::getValueBase64(std::string &value, int id) const {
    if (seek(id) != 0)
        return -1;
    int result = -1;
    Leaf node;
    if (valueNode(doc(), path, node)) {
        std::uint32_t size = node.size();
        if (node.kind() == Internal::KindUntyped) {
            if (size == 0) {
                value.clear();
                result = 0;
            } else {
                ValueText text(node);
                result = Base64::decode(text.c_str(), static_cast<int>(text.length()), &value);
            }
        } else if (node.kind() == Internal::KindBase64 && size > 0) {
            // The octets without the counted NUL behind them; NULs inside are data.
            value.assign(node.value(), size - 1);
            result = 0;
        }
    }
    if (id != 0)
        seekUp();
    return result;
}

int KVXBinaryIterator::getValueXML(std::string &value, int id) const {
    if (seek(id) != 0)
        return -1;
    int result = -1;
    Leaf node;
    if (valueNode(doc(), path, node) && node.kind() == Internal::KindXML) {
        if (node.size() == 0)
            return -1; // the cursor stays on the child
        assignText(value, node);
        result = 0;
    }
    if (id != 0)
        seekUp();
    return result;
}

namespace {

bool isTimeText(unsigned kind) {
    return kind == Internal::KindUntyped || kind == Internal::KindString ||
           kind == Internal::KindTime;
}

} // namespace

int KVXBinaryIterator::getValueTime(__int64 &value, int id) const {
    if (seek(id) != 0)
        return -1;
    int result = -1;
    Leaf node;
    if (valueNode(doc(), path, node) && node.size() > 0 && isTimeText(node.kind())) {
        // The parsed time is stored even when it is -1, the answer for no time.
        value = str2time(ValueText(node).c_str());
        result = value == -1 ? -1 : 0;
    }
    if (id != 0)
        seekUp();
    return result;
}

int KVXBinaryIterator::getValueTimeZone(__int64 &value, int &zone, int id) const {
    if (seek(id) != 0)
        return -1;
    int result = -1;
    Leaf node;
    if (valueNode(doc(), path, node) && node.size() > 0 && isTimeText(node.kind())) {
        value = str2time(ValueText(node).c_str(), zone);
        result = value == -1 ? -1 : 0;
    }
    if (id != 0)
        seekUp();
    return result;
}

// --- getters by path --------------------------------------------------------

int KVXBinaryIterator::getValue(int &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValue(value, 0); });
}

int KVXBinaryIterator::getValue(std::string &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValue(value, 0); });
}

int KVXBinaryIterator::getValueBase64(std::string &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValueBase64(value, 0); });
}

int KVXBinaryIterator::getValueLongLong(__int64 &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValueLongLong(value, 0); });
}

int KVXBinaryIterator::getValueDouble(double &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValueDouble(value, 0); });
}

int KVXBinaryIterator::getValueTime(__int64 &value, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValueTime(value, 0); });
}

int KVXBinaryIterator::getValueTimeZone(__int64 &value, int &zone, std::string const &where) const {
    return readAt(*this, path, where, [&] { return getValueTimeZone(value, zone, 0); });
}

// --- setters ------------------------------------------------------------------

bool KVXBinaryIterator::put(int id, unsigned short kind, void const *data, unsigned int length,
                            bool terminate) {
    if (validateInternals() != 0)
        return true;
    // A setter needs a node to write to or under: the path is empty after
    // seekUp at the root, or on a document without a root.
    KVX_ASSERT(!path.entries.empty());
    if (path.entries.empty() || length > LargestValue)
        return true;
    KVXBinaryInternals &internals = doc();
    int result = -1;
    if (seek(id) != 0) {
        // No such child: it is appended under the current node. The append
        // itself refuses a parent that has no room for a child (a typed leaf,
        // or an element whose text is longer than an empty container's
        // header), with the frame untouched.
        if (internals.append(path, id, kind, data, length, terminate) != 0)
            return true; // no seekUp: a node that was placed keeps the cursor
        result = 0;
    } else {
        Internal::FrameView frame(internals);
        std::uint32_t offset = path.entries.back().offset;
        std::uint32_t bound = frame.enclosingEnd(path.entries, path.entries.size() - 1);
        // A node whose recorded size reaches past its parent is not resized:
        // moving "what lies behind it" would move bytes outside the frame.
        if (frame.usable(offset, bound) && frame.node(offset).end() <= bound)
            result = internals.replaceValue(path, kind, data, length, terminate);
    }
    if (id != 0)
        seekUp();
    return result != 0;
}

int KVXBinaryIterator::putValue(int value, int id) {
    char bytes[4];
    Internal::store32(bytes, static_cast<std::uint32_t>(value));
    return put(id, Internal::KindInt, bytes, sizeof bytes, false) ? 1 : 0;
}

int KVXBinaryIterator::putValueLongLong(__int64 value, int id) {
    char bytes[8];
    Internal::store64(bytes, static_cast<std::uint64_t>(value));
    return put(id, Internal::KindLongLong, bytes, sizeof bytes, false) ? 1 : 0;
}

int KVXBinaryIterator::putValueDouble(double value, int id) {
    char bytes[8];
    Internal::storeDouble(bytes, value);
    return put(id, Internal::KindDouble, bytes, sizeof bytes, false) ? 1 : 0;
}

int KVXBinaryIterator::putValue(char const *value, int length, int id) {
    if (length < 0)
        return 1;
    return put(id, Internal::KindString, value, static_cast<unsigned>(length), true) ? 1 : 0;
}

int KVXBinaryIterator::putValue(std::string const &value, int id) {
    if (value.size() > LargestValue)
        return 1;
    return putValue(value.data(), static_cast<int>(value.size()), id);
}

int KVXBinaryIterator::putValueBase64(char const *value, int length, int id) {
    if (length < 0)
        return 1;
    // The store puts the NUL behind the octets for this kind.
    return put(id, Internal::KindBase64, value, static_cast<unsigned>(length), false) ? 1 : 0;
}

int KVXBinaryIterator::putValueBase64(std::string const &value, int id) {
    if (value.size() > LargestValue)
        return 1;
    return putValueBase64(value.data(), static_cast<int>(value.size()), id);
}

int KVXBinaryIterator::putValueXML(std::string const &value, int id) {
    if (value.size() > LargestValue)
        return 1;
    // The string's own terminator is the value's NUL.
    return put(id, Internal::KindXML, value.c_str(), static_cast<unsigned>(value.size() + 1), false)
               ? 1
               : 0;
}

// The two time setters make the text before anything else; a time that has
// no text is the one setter failure reported as -1.
int KVXBinaryIterator::putValueTime(__int64 value, int id) {
    std::string text = time2str(value);
    if (text.empty())
        return -1;
    return put(id, Internal::KindTime, text.c_str(), static_cast<unsigned>(text.size() + 1), false)
               ? 1
               : 0;
}

int KVXBinaryIterator::putValueTimeZone(__int64 value, int zone, int id) {
    std::string text = time2strZone(value, zone);
    if (text.empty())
        return -1;
    return put(id, Internal::KindTime, text.c_str(), static_cast<unsigned>(text.size() + 1), false)
               ? 1
               : 0;
}

// --- setters by path ----------------------------------------------------------

int KVXBinaryIterator::putValue(int value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValue(value, 0); });
}

int KVXBinaryIterator::putValue(std::string const &value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValue(value, 0); });
}

int KVXBinaryIterator::putValueBase64(std::string const &value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValueBase64(value, 0); });
}

int KVXBinaryIterator::putValueLongLong(__int64 value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValueLongLong(value, 0); });
}

int KVXBinaryIterator::putValueDouble(double value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValueDouble(value, 0); });
}

int KVXBinaryIterator::putValueTime(__int64 value, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValueTime(value, 0); });
}

int KVXBinaryIterator::putValueTimeZone(__int64 value, int zone, std::string const &where) {
    return writeAt(*this, path, where, [&] { return putValueTimeZone(value, zone, 0); });
}

// --- attributes -----------------------------------------------------------------

// Looser than the getters: the bytes at the value offset are taken as text
// whatever the size and kind, and only then is the kind judged.
int KVXBinaryIterator::getAttr(std::string &value, int id) const {
    if (seek(id) != 0)
        return -1;
    Internal::FrameView frame(doc());
    Node node(nullptr, 0, 0, 0);
    bool present = Internal::currentNode(frame, path.entries, node);
    unsigned kind = 0;
    if (present) {
        std::uint32_t at = node.valueOffset();
        std::size_t room = at < frame.limit ? frame.limit - at : 0;
        value.assign(frame.base + at, room == 0 ? 0 : strnlen(frame.base + at, room));
        kind = node.kind();
    }
    if (id != 0)
        seekUp();
    return present && (kind == Internal::KindUntyped || kind == Internal::KindString) ? 0 : -1;
}

int KVXBinaryIterator::getAttr(int &value, int id) const {
    return getValue(value, id);
}

int KVXBinaryIterator::getAttrTime(__int64 &value, int id) const {
    return getValueTime(value, id);
}

int KVXBinaryIterator::putAttr(std::string const &value, int id) {
    if (value.size() > LargestValue)
        return 1;
    return putValue(value.data(), static_cast<int>(value.size()), id);
}

int KVXBinaryIterator::putAttr(int value, int id) {
    return putValue(value, id);
}

int KVXBinaryIterator::putAttrTime(__int64 value, int id) {
    return putValueTime(value, id);
}

} // namespace KVX
