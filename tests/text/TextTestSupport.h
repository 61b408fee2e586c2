// Test helpers for the text form: a message holder that destroys its message,
// and a reader of frame bytes that lists nodes in document order and resolves
// names through the frame's own name table, so that the parser's output can be
// checked byte-level without going through a cursor. Test-only; one thread.
#ifndef KVX_TESTS_TEXT_TEXTTESTSUPPORT_H
#define KVX_TESTS_TEXT_TEXTTESTSUPPORT_H

#include "binary/WireFormat.h"

#include <kvx/KVXBinary.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace TextTest {

// Owns one KVXBinary and gives it back with destroy().
class Message {
public:
    Message() : message(new KVX::KVXBinary()) {}
    ~Message() {
        if (message != nullptr)
            message->destroy();
    }
    Message(Message const &) = delete;
    Message &operator=(Message const &) = delete;
    KVX::KVXBinary *operator->() const { return message; }
    KVX::KVXBinary &operator*() const { return *message; }
    KVX::KVXBinary *get() const { return message; }

private:
    KVX::KVXBinary *message;
};

// Takes a malloc'ed text and frees it; an empty string stands for null.
inline std::string take(char *text, bool *wasNull = nullptr) {
    if (wasNull != nullptr)
        *wasNull = text == nullptr;
    if (text == nullptr)
        return std::string();
    std::string copy(text);
    std::free(text);
    return copy;
}

// One node of a frame as a test sees it.
struct NodeInfo {
    int depth;            // 0 for the root
    std::uint32_t offset; // frame offset of its header
    int id;
    unsigned kind;
    unsigned ns;
    std::uint32_t size;
    std::string value; // the value bytes of a leaf, its NUL included
};

// The nodes of a format 2 frame in document order.
inline std::vector<NodeInfo> nodesOf(std::string const &frame) {
    using namespace KVX::Internal;
    std::vector<NodeInfo> nodes;
    if (frame.size() < 20 || frameIsEmpty(frame.data()))
        return nodes;
    char const *base = frame.data();
    std::vector<std::uint64_t> ends;
    std::uint64_t offset = RootOffset;
    std::uint64_t rootEnd = RootOffset + nodeSize(load32(base + 16), load16(base + 12), 2);
    while (offset < rootEnd && offset + 12 <= frame.size()) {
        while (!ends.empty() && offset >= ends.back())
            ends.pop_back();
        NodeInfo info;
        info.depth = static_cast<int>(ends.size());
        info.offset = static_cast<std::uint32_t>(offset);
        info.id = loadInt32(base + offset);
        info.kind = load16(base + offset + 4);
        info.ns = load16(base + offset + 6);
        info.size = load32(base + offset + 8);
        std::uint64_t valueOffset = offset + headerSize(info.size, info.kind);
        std::uint64_t end = offset + nodeSize(info.size, info.kind, 2);
        if (isContainerKind(info.kind)) {
            ends.push_back(end);
            offset = valueOffset;
        } else {
            if (valueOffset + info.size <= frame.size())
                info.value.assign(base + valueOffset, info.size);
            offset = end;
        }
        nodes.push_back(info);
    }
    return nodes;
}

// The name that the frame's name table gives `id` in table kind `tableKind`
// (0 element, 1 namespace, 2 type), or "?" when it has none.
inline std::string nameOf(std::string const &frame, int id, int tableKind) {
    using namespace KVX::Internal;
    char const *base = frame.data();
    std::uint64_t offset =
        frameIsEmpty(base) ? 8 : 8 + nodeSize(load32(base + 16), load16(base + 12), 2);
    std::uint64_t end = offset + nameTableSize(base);
    while (offset + 12 <= end && end <= frame.size()) {
        int entryId = loadInt32(base + offset);
        int kind = loadInt32(base + offset + 4);
        std::uint32_t size = load32(base + offset + 8);
        if (size == 0)
            break;
        std::uint64_t valueOffset = offset + headerSize(size, 0);
        if (entryId == id && kind == tableKind)
            return std::string(base + valueOffset, size - 1);
        offset += nodeSize(size, 0, 2);
    }
    return "?";
}

// The whole frame of a message, by the allocating serialize at 40500.
inline std::string frameOf(KVX::KVXBinary &message) {
    char *bytes = nullptr;
    int length = 0;
    if (message.serialize(&bytes, &length, nullptr, 40500) != 0 || bytes == nullptr)
        return std::string();
    std::string frame(bytes, static_cast<std::size_t>(length));
    std::free(bytes);
    return frame;
}

// A value text without its terminating NUL.
inline std::string text(NodeInfo const &node) {
    std::string value = node.value;
    if (!value.empty() && value.back() == '\0')
        value.pop_back();
    return value;
}

inline std::string readFile(std::string const &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// A node to be encoded by hand, for frames that a cursor cannot or should not
// make (damaged sizes, attribute roots, odd kinds).
struct Draft {
    int id;
    unsigned kind;
    unsigned ns;
    std::string value; // leaf bytes as stored, NUL included where wanted
    std::vector<Draft> children;
};

inline Draft leaf(int id, unsigned kind, std::string const &value, unsigned ns = 0) {
    return Draft{id, kind, ns, value, {}};
}
inline Draft element(int id, std::vector<Draft> children, unsigned kind = 50, unsigned ns = 0) {
    return Draft{id, kind, ns, std::string(), std::move(children)};
}

// Appends the format 2 encoding of `node` to `out`.
inline void encode(Draft const &node, std::string &out) {
    using namespace KVX::Internal;
    std::string body;
    bool container = isContainerKind(node.kind);
    if (container) {
        for (Draft const &child : node.children)
            encode(child, body);
    } else {
        body = node.value;
    }
    std::uint32_t size = static_cast<std::uint32_t>(body.size());
    std::size_t start = out.size();
    out.resize(start + headerSize(size, node.kind), '\0');
    store32(&out[start], static_cast<std::uint32_t>(node.id));
    store16(&out[start + 4], static_cast<std::uint16_t>(node.kind));
    store16(&out[start + 6], static_cast<std::uint16_t>(node.ns));
    store32(&out[start + 8], size);
    out += body;
    out.resize(start + nodeSize(size, node.kind, 2), '\0');
}

// One name table entry: id, table kind and name.
struct Entry {
    int id;
    int kind;
    std::string name;
};

// A whole frame: head, `root` (none when `empty`), and the name table.
inline std::string frame(Draft const &root, std::vector<Entry> const &table, bool empty = false) {
    using namespace KVX::Internal;
    std::string out(8, '\0');
    if (!empty)
        encode(root, out);
    std::string entries;
    for (Entry const &entry : table) {
        std::string name = entry.name + std::string(1, '\0');
        std::uint32_t size = static_cast<std::uint32_t>(name.size());
        std::size_t start = entries.size();
        entries.resize(start + headerSize(size, 0), '\0');
        store32(&entries[start], static_cast<std::uint32_t>(entry.id));
        store32(&entries[start + 4], static_cast<std::uint32_t>(entry.kind));
        store32(&entries[start + 8], size);
        entries += name;
        entries.resize(start + nodeSize(size, 0, 2), '\0');
    }
    out += entries;
    store32(&out[0], FrameMagic);
    store32(&out[4], (FormatCurrent << FormatShift) |
                         static_cast<std::uint32_t>(entries.size() & NameTableMask) |
                         (empty ? FlagEmpty : 0u));
    return out;
}

} // namespace TextTest

#endif // KVX_TESTS_TEXT_TEXTTESTSUPPORT_H
