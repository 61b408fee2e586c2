// Test helper: writes a frame byte by byte, node by node, in either node
// layout, so that the tool tests can hand kvxmsg frames of every kind, damaged
// ones included, without going through the library that writes them. Plain
// value type; one test at a time.
#ifndef KVX_TESTS_TOOLS_FRAMEBYTES_H
#define KVX_TESTS_TOOLS_FRAMEBYTES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace ToolTest {

class FrameBytes {
public:
    // `format` is the format byte: 2 the current layout, anything else legacy.
    explicit FrameBytes(unsigned frameFormat = 2) : format(frameFormat), bytes(8, '\0') {
        put32(0, 0xFEDCBA98u);
    }

    // Starts a container (kind 50 or a type id above 100); returns its offset.
    std::size_t open(int id, unsigned kind = 50, unsigned ns = 0) {
        std::size_t at = bytes.size();
        header(id, kind, ns, 0, true);
        return at;
    }
    // Ends the container at `at`: its size is what its children take.
    void close(std::size_t at) {
        put32(at + 8, static_cast<std::uint32_t>(bytes.size() - at - 16));
    }
    // A leaf whose value is `value` as given (add the NUL yourself).
    std::size_t leaf(int id, unsigned kind, std::string const &value, unsigned ns = 0) {
        std::size_t at = bytes.size();
        header(id, kind, ns, static_cast<std::uint32_t>(value.size()), value.size() == 8);
        bytes += value;
        bytes.resize(at + nodeSize(static_cast<std::uint32_t>(value.size()), value.size() == 8),
                     '\0');
        return at;
    }
    // Everything added from here on is the name table.
    void table() { tableStart = bytes.size(); }
    // A name table entry naming `id` in table kind `kind` (0, 1 or 2).
    std::size_t entry(int id, int kind, std::string const &name) {
        return leaf(id, static_cast<unsigned>(kind), name + '\0');
    }
    // The frame with its flags word: format, name table size, empty flag.
    std::string finish() {
        std::size_t tableSize = tableStart == 0 ? 0 : bytes.size() - tableStart;
        bool empty = bytes.size() == 8 || tableStart == 8;
        put32(4, (static_cast<std::uint32_t>(format) << 24) |
                     static_cast<std::uint32_t>(tableSize) | (empty ? 1u : 0u));
        return bytes;
    }

private:
    std::uint32_t nodeSize(std::uint32_t size, bool longHeader) const {
        if (format == 2)
            return ((longHeader ? 16 : 12) + size + 7) / 8 * 8;
        return (size + 12) / 8 * 8 + 8;
    }
    void header(int id, unsigned kind, unsigned ns, std::uint32_t size, bool longHeader) {
        std::size_t at = bytes.size();
        bytes.resize(at + (longHeader ? 16 : 12), '\0');
        put32(at, static_cast<std::uint32_t>(id));
        put16(at + 4, kind);
        put16(at + 6, ns);
        put32(at + 8, size);
    }
    void put16(std::size_t at, unsigned value) {
        bytes[at] = static_cast<char>(value & 0xFF);
        bytes[at + 1] = static_cast<char>((value >> 8) & 0xFF);
    }
    void put32(std::size_t at, std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            bytes[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
    }

    unsigned format;
    std::string bytes;
    std::size_t tableStart = 0;
};

} // namespace ToolTest

#endif // KVX_TESTS_TOOLS_FRAMEBYTES_H
