// Constants and little-endian access of the binary frame (docs/format.md).
// Every load and store of frame bytes goes through these helpers, so the
// format stays little-endian on any host and no access assumes alignment.
// Header only, stateless.
#ifndef KVX_BINARY_WIREFORMAT_H
#define KVX_BINARY_WIREFORMAT_H

#include <cstdint>
#include <cstring>

namespace KVX {
namespace Internal {

constexpr std::uint32_t FrameMagic = 0xFEDCBA98u;
constexpr std::uint32_t FrameHeadSize = 8;      // magic and flags word
constexpr std::uint32_t RootOffset = 8;         // the root node follows the head
constexpr std::uint32_t ShortHeaderSize = 12;   // id, kind, ns, size
constexpr std::uint32_t LongHeaderSize = 16;    // the same and 4 bytes of padding
constexpr std::uint32_t NodeAlignment = 8;      // every node starts at a multiple of 8
constexpr std::uint32_t MinimumFrameProbe = 20; // head plus one short header

// Flags word at frame offset 4.
constexpr std::uint32_t FlagEmpty = 0x00000001u;     // no root node
constexpr std::uint32_t FlagReserved = 0x00000006u;  // cleared on write, never read
constexpr std::uint32_t NameTableMask = 0x00FFFFF8u; // name table size in bytes
constexpr std::uint32_t FormatMask = 0xFF000000u;    // node layout
constexpr int FormatShift = 24;
constexpr unsigned FormatCurrent = 2;             // header length plus size, rounded up to 8
constexpr unsigned FormatLegacy = 0;              // size plus 12, rounded down to 8, plus 8
constexpr std::uint32_t FreshFlags = 0x02000001u; // format 2, empty, no name table

// Value kinds of a node; above 100 the kind is a complex type id.
enum Kind : unsigned short {
    KindUntyped = 0,    // text decided on reading, or nothing
    KindInt = 1,        // signed 32-bit
    KindString = 2,     // text with NUL
    KindLongLong = 3,   // signed 64-bit
    KindDouble = 4,     // IEEE 754 binary64
    KindBase64 = 5,     // raw octets and one counted NUL
    KindTime = 6,       // time text with NUL
    KindStructure = 50, // container
    KindXML = 51,       // raw XML fragment with NUL
};
constexpr unsigned short LastValueKind = 100; // kinds above this are type ids

// Name table entry kinds.
enum TableKind : int {
    TableElement = 0,   // element name
    TableNamespace = 1, // namespace URI
    TableType = 2,      // complex type name
};

// Ids 1 to 200 are attributes; 0 is a node without a name of its own.
constexpr int LastAttributeId = 200;

inline std::uint16_t load16(char const *p) {
    unsigned char const *b = reinterpret_cast<unsigned char const *>(p);
    return static_cast<std::uint16_t>(b[0] | (b[1] << 8));
}
inline std::uint32_t load32(char const *p) {
    unsigned char const *b = reinterpret_cast<unsigned char const *>(p);
    return static_cast<std::uint32_t>(b[0]) | (static_cast<std::uint32_t>(b[1]) << 8) |
           (static_cast<std::uint32_t>(b[2]) << 16) | (static_cast<std::uint32_t>(b[3]) << 24);
}
inline std::uint64_t load64(char const *p) {
    return static_cast<std::uint64_t>(load32(p)) |
           (static_cast<std::uint64_t>(load32(p + 4)) << 32);
}
inline std::int32_t loadInt32(char const *p) {
    return static_cast<std::int32_t>(load32(p));
}
inline std::int64_t loadInt64(char const *p) {
    return static_cast<std::int64_t>(load64(p));
}
inline double loadDouble(char const *p) {
    std::uint64_t bits = load64(p);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

inline void store16(char *p, std::uint16_t v) {
    p[0] = static_cast<char>(v & 0xFF);
    p[1] = static_cast<char>(v >> 8);
}
inline void store32(char *p, std::uint32_t v) {
    p[0] = static_cast<char>(v & 0xFF);
    p[1] = static_cast<char>((v >> 8) & 0xFF);
    p[2] = static_cast<char>((v >> 16) & 0xFF);
    p[3] = static_cast<char>(v >> 24);
}
inline void store64(char *p, std::uint64_t v) {
    store32(p, static_cast<std::uint32_t>(v));
    store32(p + 4, static_cast<std::uint32_t>(v >> 32));
}
inline void storeDouble(char *p, double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    store64(p, bits);
}

// A node is a container when its kind is 50 or a complex type id.
inline bool isContainerKind(unsigned kind) {
    return kind == KindStructure || kind > LastValueKind;
}

// Long header when the value is exactly 8 bytes or the node is a container, so
// that 8-byte values and first children lie at multiples of 8.
inline std::uint32_t headerSize(std::uint32_t size, unsigned kind) {
    return (size == 8 || isContainerKind(kind)) ? LongHeaderSize : ShortHeaderSize;
}

// Distance from a node's start to the next node's, by the frame's format byte.
// Computed in 64 bits: a damaged size must not wrap.
inline std::uint64_t nodeSize(std::uint32_t size, unsigned kind, unsigned format) {
    if (format == FormatCurrent)
        return (static_cast<std::uint64_t>(headerSize(size, kind)) + size + 7) / 8 * 8;
    return (static_cast<std::uint64_t>(size) + 12) / 8 * 8 + 8;
}

// Head fields of a frame. Requires: at least 8 readable bytes.
inline std::uint32_t frameFlags(char const *frame) {
    return load32(frame + 4);
}
inline bool frameIsEmpty(char const *frame) {
    return (frameFlags(frame) & FlagEmpty) != 0;
}
inline std::uint32_t nameTableSize(char const *frame) {
    return frameFlags(frame) & NameTableMask;
}
inline unsigned frameFormat(char const *frame) {
    return frameFlags(frame) >> FormatShift;
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_WIREFORMAT_H
