// Test helpers for the cursor tests: owning handles for messages and cursors,
// a builder for hand-made frames (valid or deliberately damaged), and readers
// of node fields in a serialized frame. Test code only; one thread.
#ifndef KVX_TESTS_BINARY_CURSORTESTSUPPORT_H
#define KVX_TESTS_BINARY_CURSORTESTSUPPORT_H

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace cursortest {

// Element ids of the vocabulary used throughout the cursor tests.
enum : int {
    Packet = 1398,
    NodeId = 1008, // "node"
    IdId = 1010,   // "id"
    Restore = 1011,
    Server = 1012,
    Client = 1013,
    Remove = 1014,
    Prev = 1015,
    Setconf = 1016,
    Parameter = 1017,
    Value = 1018,
    Name = 1026,
    Session = 1748,
};

struct MessageRelease {
    void operator()(KVX::KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVX::KVXBinary, MessageRelease> Message;
typedef std::unique_ptr<KVX::KVXBinaryIterator> Cursor;

inline Message blankMessage() {
    return Message(new KVX::KVXBinary());
}

inline Message packet(int rootId = Packet) {
    Message message = blankMessage();
    EXPECT_EQ(0, message->create(rootId));
    return message;
}

// A cursor from the message's own newIterator, which counts it.
inline Cursor counted(KVX::KVXBinary &message) {
    return Cursor(static_cast<KVX::KVXBinaryIterator *>(message.newIterator()));
}

// A cursor made directly, which the message does not count.
inline Cursor uncounted(KVX::KVXBinary &message) {
    return Cursor(new KVX::KVXBinaryIterator(&message));
}

inline std::uint32_t offsetOf(KVX::KVXBinaryIterator const &cursor) {
    return cursor.binaryPath().entries.back().offset;
}

inline std::size_t depthOf(KVX::KVXBinaryIterator const &cursor) {
    return cursor.binaryPath().entries.size();
}

typedef std::vector<unsigned char> Bytes;

inline std::uint32_t load32(Bytes const &bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes.at(at)) |
           (static_cast<std::uint32_t>(bytes.at(at + 1)) << 8) |
           (static_cast<std::uint32_t>(bytes.at(at + 2)) << 16) |
           (static_cast<std::uint32_t>(bytes.at(at + 3)) << 24);
}
inline unsigned load16(Bytes const &bytes, std::size_t at) {
    return static_cast<unsigned>(bytes.at(at)) | (static_cast<unsigned>(bytes.at(at + 1)) << 8);
}

// The whole message as a frame, through the fixed-buffer serializer.
inline Bytes frameOf(KVX::KVXBinary const &message) {
    unsigned long long size = 0;
    EXPECT_EQ(-2, message.serialize(nullptr, &size, nullptr));
    Bytes bytes(static_cast<std::size_t>(size));
    if (size == 0)
        return bytes;
    EXPECT_EQ(0, message.serialize(reinterpret_cast<char *>(bytes.data()), &size, nullptr));
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

struct NodeFields {
    int id;
    unsigned kind;
    unsigned ns;
    std::uint32_t size;
};

inline NodeFields nodeAt(Bytes const &frame, std::uint32_t offset) {
    return NodeFields{static_cast<int>(load32(frame, offset)), load16(frame, offset + 4),
                      load16(frame, offset + 6), load32(frame, offset + 8)};
}

inline std::uint32_t headerSizeOf(NodeFields const &node) {
    return (node.size == 8 || node.kind == 50 || node.kind > 100) ? 16 : 12;
}
inline std::uint32_t nodeSizeOf(NodeFields const &node) {
    return (headerSizeOf(node) + node.size + 7) / 8 * 8;
}
inline std::uint32_t rootEndOf(Bytes const &frame) {
    if (load32(frame, 4) & 1)
        return 8;
    return 8 + nodeSizeOf(nodeAt(frame, 8));
}
inline std::uint32_t tableSizeOf(Bytes const &frame) {
    return load32(frame, 4) & 0x00FFFFF8u;
}

inline std::string valueText(Bytes const &frame, std::uint32_t offset) {
    NodeFields node = nodeAt(frame, offset);
    char const *at = reinterpret_cast<char const *>(frame.data()) + offset + headerSizeOf(node);
    return std::string(at, strnlen(at, node.size));
}

// Builds a format 2 frame node by node, without a name table, so that reading
// tests do not depend on the writers. Sizes of containers are patched when
// they are closed; raw() writes a header with whatever size it is given.
class FrameBuilder {
public:
    FrameBuilder() : bytes(8, 0) { put32(0, 0xFEDCBA98u); }

    FrameBuilder &open(int id, unsigned kind = 50, unsigned ns = 0) {
        std::size_t at = header(id, kind, ns, 0, 16);
        stack.push_back(at);
        return *this;
    }
    FrameBuilder &close() {
        std::size_t at = stack.back();
        stack.pop_back();
        put32(at + 8, static_cast<std::uint32_t>(bytes.size() - at - 16));
        return *this;
    }
    FrameBuilder &leaf(int id, unsigned kind, void const *value, std::uint32_t size,
                       unsigned ns = 0) {
        header(id, kind, ns, size, (size == 8 || kind == 50 || kind > 100) ? 16 : 12);
        unsigned char const *data = static_cast<unsigned char const *>(value);
        if (size != 0)
            bytes.insert(bytes.end(), data, data + size);
        pad();
        return *this;
    }
    FrameBuilder &text(int id, unsigned kind, std::string const &value, unsigned ns = 0) {
        return leaf(id, kind, value.c_str(), static_cast<std::uint32_t>(value.size() + 1), ns);
    }
    FrameBuilder &empty(int id, unsigned ns = 0) { return leaf(id, 0, nullptr, 0, ns); }
    FrameBuilder &int32(int id, int value) {
        unsigned char b[4];
        for (int i = 0; i < 4; ++i)
            b[i] = static_cast<unsigned char>(static_cast<std::uint32_t>(value) >> (8 * i));
        return leaf(id, 1, b, 4);
    }
    FrameBuilder &int64(int id, long long value) {
        unsigned char b[8];
        for (int i = 0; i < 8; ++i)
            b[i] = static_cast<unsigned char>(static_cast<unsigned long long>(value) >> (8 * i));
        return leaf(id, 3, b, 8);
    }
    FrameBuilder &float64(int id, double value) {
        unsigned char b[8];
        std::memcpy(b, &value, 8);
        return leaf(id, 4, b, 8);
    }
    // A header with any size, and `valueBytes` of raw content behind it.
    FrameBuilder &raw(int id, unsigned kind, unsigned ns, std::uint32_t size,
                      std::size_t headerLength, Bytes const &valueBytes) {
        header(id, kind, ns, size, headerLength);
        bytes.insert(bytes.end(), valueBytes.begin(), valueBytes.end());
        return *this;
    }
    // Overwrites the size field of the node at `offset`.
    FrameBuilder &patchSize(std::size_t offset, std::uint32_t size) {
        put32(offset + 8, size);
        return *this;
    }
    std::size_t here() const { return bytes.size(); }

    Bytes finish() {
        put32(4, 0x02000000u);
        return bytes;
    }

private:
    std::size_t header(int id, unsigned kind, unsigned ns, std::uint32_t size, std::size_t length) {
        std::size_t at = bytes.size();
        bytes.resize(at + length, 0);
        put32(at, static_cast<std::uint32_t>(id));
        bytes[at + 4] = static_cast<unsigned char>(kind & 0xFF);
        bytes[at + 5] = static_cast<unsigned char>(kind >> 8);
        bytes[at + 6] = static_cast<unsigned char>(ns & 0xFF);
        bytes[at + 7] = static_cast<unsigned char>(ns >> 8);
        put32(at + 8, size);
        return at;
    }
    void pad() {
        while (bytes.size() % 8 != 0)
            bytes.push_back(0);
    }
    void put32(std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i)
            bytes[at + i] = static_cast<unsigned char>(v >> (8 * i));
    }

    Bytes bytes;
    std::vector<std::size_t> stack;
};

// A message loaded from a hand-made frame.
inline Message loaded(Bytes const &frame) {
    Message message = blankMessage();
    EXPECT_EQ(0, message->init(reinterpret_cast<char const *>(frame.data()),
                               static_cast<int>(frame.size())));
    return message;
}

} // namespace cursortest

#endif // KVX_TESTS_BINARY_CURSORTESTSUPPORT_H
