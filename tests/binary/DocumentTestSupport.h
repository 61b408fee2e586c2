// Test helpers for the document, framing, grafting and header value tests:
// owning handles for messages and cursors, a builder of hand-made frames in
// either layout with a name table, a cursor of a foreign protocol, and readers
// of frame bytes. Test code only; one thread.
#ifndef KVX_TESTS_BINARY_DOCUMENTTESTSUPPORT_H
#define KVX_TESTS_BINARY_DOCUMENTTESTSUPPORT_H

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace doctests {

// Vocabulary ids used by these tests.
enum : int {
    NodeElement = 1008,    // "node"
    IdElement = 1010,      // "id"
    RestoreElement = 1011, // "restore"
    ServerElement = 1012,  // "server"
    DataElement = 1307,    // "data"
    OriginElement = 1337,  // "origin"
    PacketElement = 1398,  // "packet"
    SessionElement = 1748, // "session"
};

typedef std::vector<char> Bytes;

struct MessageRelease {
    void operator()(KVX::KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVX::KVXBinary, MessageRelease> Message;
typedef std::unique_ptr<KVX::KVXMessage, MessageRelease> AnyMessage;
typedef std::unique_ptr<KVX::KVXBinaryIterator> Cursor;

inline Message blank() {
    return Message(new KVX::KVXBinary());
}

inline Message created(int rootId) {
    Message message = blank();
    EXPECT_EQ(0, message->create(rootId));
    return message;
}

inline Cursor cursorOn(KVX::KVXBinary &message) {
    return Cursor(static_cast<KVX::KVXBinaryIterator *>(message.newIterator()));
}

// The message of the worked example: root "node" with one child "id" = 42.
inline Message workedExample() {
    Message message = created(NodeElement);
    Cursor cursor = cursorOn(*message);
    EXPECT_EQ(0, cursor->putValue(42, IdElement));
    return message;
}

// The whole message through the fixed-buffer form.
inline Bytes frameOf(KVX::KVXBinary const &message) {
    unsigned long long size = 0;
    EXPECT_EQ(-2, message.serialize(nullptr, &size, nullptr));
    Bytes bytes(static_cast<std::size_t>(size));
    EXPECT_EQ(0, message.serialize(bytes.data(), &size, nullptr));
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

// The allocating form; `ok` tells whether it returned 0.
inline Bytes allocated(KVX::KVXBinary const &message, int version,
                       KVX::KVXMessageIterator const *from = nullptr, bool *ok = nullptr) {
    char *out = nullptr;
    int length = -1;
    int const result = message.serialize(&out, &length, from, version);
    if (ok != nullptr)
        *ok = result == 0;
    Bytes bytes;
    if (result == 0 && out != nullptr)
        bytes.assign(out, out + length);
    std::free(out);
    return bytes;
}

inline bool isBinary(Bytes const &bytes) {
    return bytes.size() >= 4 && KVX::KVXBinary::isOfTheKind(bytes.data()) == 1;
}

inline std::uint32_t load32(Bytes const &bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value =
            (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return value;
}
inline unsigned load16(Bytes const &bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes.at(at)) |
           (static_cast<unsigned>(static_cast<unsigned char>(bytes.at(at + 1))) << 8);
}
inline void store32(Bytes &bytes, std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes.at(at + static_cast<std::size_t>(i)) = static_cast<char>(value >> (8 * i));
}

inline std::uint32_t flagsOf(Bytes const &frame) {
    return load32(frame, 4);
}
inline std::uint32_t tableSizeOf(Bytes const &frame) {
    return flagsOf(frame) & 0x00FFFFF8u;
}

// The golden files of tests/data.
inline Bytes readDataFile(std::string const &name) {
    std::ifstream in(std::string(KVX_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Builds a frame by hand in either layout, with a name table behind the body.
// Containers get their size when closed; names are written newest first, as
// the library writes them.
class FrameMaker {
public:
    explicit FrameMaker(unsigned layout = 2) : format(layout), body(8, 0) {}

    FrameMaker &open(int id, unsigned kind = 50, unsigned ns = 0) {
        openNodes.push_back(header(body, id, kind, ns, 0, 16));
        return *this;
    }
    FrameMaker &close() {
        std::size_t const at = openNodes.back();
        openNodes.pop_back();
        store32(body, at + 8, static_cast<std::uint32_t>(body.size() - at - 16));
        return *this;
    }
    FrameMaker &leaf(int id, unsigned kind, void const *value, std::uint32_t size,
                     unsigned ns = 0) {
        node(body, id, kind, ns, value, size);
        return *this;
    }
    FrameMaker &text(int id, std::string const &value, unsigned kind = 2, unsigned ns = 0) {
        return leaf(id, kind, value.c_str(), static_cast<std::uint32_t>(value.size() + 1), ns);
    }
    FrameMaker &int32(int id, int value) {
        char bytes[4];
        for (int i = 0; i < 4; ++i)
            bytes[i] = static_cast<char>(static_cast<std::uint32_t>(value) >> (8 * i));
        return leaf(id, 1, bytes, 4);
    }
    // A name table entry; table kind 0 element, 1 namespace, 2 type.
    FrameMaker &name(int id, int tableKind, std::string const &text) {
        Bytes entry;
        node(entry, id, static_cast<unsigned>(tableKind), 0, text.c_str(),
             static_cast<std::uint32_t>(text.size() + 1));
        table.insert(table.begin(), entry.begin(), entry.end());
        return *this;
    }
    // Offset in the frame of the next body node.
    std::size_t here() const { return body.size(); }

    Bytes finish(bool empty = false) {
        Bytes frame = body;
        frame.insert(frame.end(), table.begin(), table.end());
        store32(frame, 0, 0xFEDCBA98u);
        store32(frame, 4,
                (format << 24) | static_cast<std::uint32_t>(table.size()) | (empty ? 1u : 0u));
        return frame;
    }

private:
    static std::size_t header(Bytes &bytes, int id, unsigned kind, unsigned ns, std::uint32_t size,
                              std::size_t length) {
        std::size_t const at = bytes.size();
        bytes.resize(at + length, 0);
        store32(bytes, at, static_cast<std::uint32_t>(id));
        bytes[at + 4] = static_cast<char>(kind & 0xFF);
        bytes[at + 5] = static_cast<char>(kind >> 8);
        bytes[at + 6] = static_cast<char>(ns & 0xFF);
        bytes[at + 7] = static_cast<char>(ns >> 8);
        store32(bytes, at + 8, size);
        return at;
    }
    void node(Bytes &bytes, int id, unsigned kind, unsigned ns, void const *value,
              std::uint32_t size) const {
        bool const longHeader = size == 8 || kind == 50 || kind > 100;
        std::size_t const at = header(bytes, id, kind, ns, size, longHeader ? 16 : 12);
        char const *data = static_cast<char const *>(value);
        if (size != 0)
            bytes.insert(bytes.end(), data, data + size);
        std::size_t const nodeSize =
            format == 2 ? ((longHeader ? 16 : 12) + size + 7) / 8 * 8 : (size + 12) / 8 * 8 + 8;
        bytes.resize(at + nodeSize, 0);
    }

    std::uint32_t format;
    Bytes body;
    Bytes table;
    std::vector<std::size_t> openNodes;
};

// The worked example in the legacy layout (format 0): the 4-byte child takes
// 24 bytes, so the root's size is 24. No "version" attribute.
inline Bytes legacyWorkedExample() {
    return FrameMaker(0)
        .open(NodeElement)
        .int32(IdElement, 42)
        .close()
        .name(NodeElement, 0, "node")
        .name(IdElement, 0, "id")
        .finish();
}

// A cursor of another protocol. Everything fails, except that it can hand
// over a frame given to it as its subtree's bytes.
class ForeignCursor : public KVX::KVXMessageIterator {
public:
    explicit ForeignCursor(Bytes bytes = Bytes())
        : KVX::KVXMessageIterator(static_cast<KVX::KVXMessage *>(nullptr)), frame(bytes) {}

    using KVX::KVXMessageIterator::firstChild;
    using KVX::KVXMessageIterator::getValue;
    using KVX::KVXMessageIterator::getValueBase64;
    using KVX::KVXMessageIterator::getValueDouble;
    using KVX::KVXMessageIterator::getValueLongLong;
    using KVX::KVXMessageIterator::getValueTime;
    using KVX::KVXMessageIterator::getValueTimeZone;
    using KVX::KVXMessageIterator::newChild;
    using KVX::KVXMessageIterator::nextSibling;
    using KVX::KVXMessageIterator::putValue;
    using KVX::KVXMessageIterator::putValueBase64;
    using KVX::KVXMessageIterator::putValueDouble;
    using KVX::KVXMessageIterator::putValueLongLong;
    using KVX::KVXMessageIterator::putValueTime;
    using KVX::KVXMessageIterator::putValueTimeZone;
    using KVX::KVXMessageIterator::seek;

    KVX::KVXMessageIterator *newIterator(bool) const override { return nullptr; }
    int seekUp() const override { return -1; }
    int seek(std::string const &) const override { return -1; }
    int setNamespace(int) override { return -1; }
    int setNamespace(std::string const &) override { return -1; }
    int setComplexType(int, int) override { return -1; }
    int setComplexType(std::string const &, std::string const &) override { return -1; }
    int newChild(std::string const &) override { return -1; }
    int firstChild() const override { return -1; }
    int firstChild(std::string const &) const override { return -1; }
    int nextSibling(std::string const &) const override { return -1; }
    int nextSibling() const override { return -1; }
    std::string const curName() const override { return std::string(); }
    std::string const curType() const override { return std::string(); }
    int serializeFromChild(char **buffer, int *size) const override {
        ++serializeCalls;
        if (frame.empty())
            return -1;
        *buffer = static_cast<char *>(std::malloc(frame.size()));
        std::memcpy(*buffer, frame.data(), frame.size());
        *size = static_cast<int>(frame.size());
        return 0;
    }
    int deserializeToChild(char const *, int) override { return -1; }
    int copyToChild(KVX::KVXMessageIterator const *) override { return -1; }
    char *toTextFromChild() const override { return nullptr; }
    int fromTextToChild(char const *) override { return -1; }
    int deleteFromChild() override { return -1; }
    int getValueBase64(std::string &, std::string const &) const override { return -1; }
    int getValue(int &, std::string const &) const override { return -1; }
    int getValue(std::string &, std::string const &) const override { return -1; }
    int getValueLongLong(__int64 &, std::string const &) const override { return -1; }
    int getValueDouble(double &, std::string const &) const override { return -1; }
    int getValueTime(__int64 &, std::string const &) const override { return -1; }
    int getValueTimeZone(__int64 &, int &, std::string const &) const override { return -1; }
    int putValueBase64(std::string const &, std::string const &) override { return -1; }
    int putValue(int, std::string const &) override { return -1; }
    int putValue(std::string const &, std::string const &) override { return -1; }
    int putValueLongLong(__int64, std::string const &) override { return -1; }
    int putValueDouble(double, std::string const &) override { return -1; }
    int putValueTime(__int64, std::string const &) override { return -1; }
    int putValueTimeZone(__int64, int, std::string const &) override { return -1; }

    mutable int serializeCalls = 0;

protected:
    void invalidate() const override {}

private:
    Bytes frame;
};

} // namespace doctests

#endif // KVX_TESTS_BINARY_DOCUMENTTESTSUPPORT_H
