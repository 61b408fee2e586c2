// Test helpers for the storage and node operations of a binary document: a
// fresh document made the way create does it, frame bytes as a vector, and
// hand-made frames. Used by one test thread at a time.
#ifndef KVX_TESTS_BINARY_INTERNALSTESTSUPPORT_H
#define KVX_TESTS_BINARY_INTERNALSTESTSUPPORT_H

#include "binary/KVXBinaryInternals.h"
#include "binary/WireFormat.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace KVXTest {

using Bytes = std::vector<unsigned char>;

// The `used` bytes of the document's frame.
inline Bytes frameOf(KVX::KVXBinaryInternals const &doc) {
    if (doc.buffer == nullptr || doc.used <= 0)
        return Bytes();
    return Bytes(doc.buffer, doc.buffer + doc.used);
}

// What create(rootId) does below the message: a reset buffer and a
// KindStructure root appended at an empty path. `path` ends on the root.
inline int makeDocument(KVX::KVXBinaryInternals &doc, int rootId, KVX::BinaryPath &path) {
    if (doc.resetBuffer() != 0)
        return -1;
    path = KVX::BinaryPath();
    return doc.append(path, rootId, KVX::Internal::KindStructure, nullptr, 0, false);
}

// Little-endian pieces of a hand-made frame.
inline void put32(Bytes &out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<unsigned char>((v >> (8 * i)) & 0xFF));
}
inline void put16(Bytes &out, std::uint16_t v) {
    out.push_back(static_cast<unsigned char>(v & 0xFF));
    out.push_back(static_cast<unsigned char>(v >> 8));
}
inline void putText(Bytes &out, std::string const &text) {
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(0);
}
inline void padTo(Bytes &out, std::size_t length) {
    out.resize(length, 0);
}

inline std::uint32_t read32(Bytes const &bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes[at]) |
           (static_cast<std::uint32_t>(bytes[at + 1]) << 8) |
           (static_cast<std::uint32_t>(bytes[at + 2]) << 16) |
           (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
}
inline std::uint16_t read16(Bytes const &bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

// The 80-byte frame of a "node" root holding the integer element "id" = 42.
inline Bytes workedExampleFrame() {
    return Bytes{
        0x98, 0xBA, 0xDC, 0xFE, 0x28, 0x00, 0x00, 0x02, // magic, flags 0x02000028
        0xF0, 0x03, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00, // root 1008, KindStructure, ns 0
        0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // size 16, long header padding
        0xF2, 0x03, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, // child 1010, KindInt, ns 0
        0x04, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, // size 4, value 42
        0xF2, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // table entry 1010, kind 0
        0x03, 0x00, 0x00, 0x00, 0x69, 0x64, 0x00, 0x00, // size 3, "id", padding
        0xF0, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // table entry 1008, kind 0
        0x05, 0x00, 0x00, 0x00, 0x6E, 0x6F, 0x64, 0x65, // size 5, "node"
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // NUL, padding to 80
    };
}

} // namespace KVXTest

#endif // KVX_TESTS_BINARY_INTERNALSTESTSUPPORT_H
