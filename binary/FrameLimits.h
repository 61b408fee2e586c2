// Hard bounds on what a frame may be: how deep its nodes nest, how long it and
// its names may grow. They are far beyond any legitimate packet and exist so
// that hostile input meets a failure code instead of a runaway walk or a size
// that wraps. Constant data only; usable from any thread.
#ifndef KVX_BINARY_FRAMELIMITS_H
#define KVX_BINARY_FRAMELIMITS_H

#include "binary/WireFormat.h"

#include <climits>
#include <cstdint>

namespace KVX {
namespace Internal {

// Deepest nesting of nodes in a frame, counting the root as depth 1. The
// verifier refuses a node at depth MaxNestingDepth + 1. The text form keeps
// the same bound for the elements it reads and writes (text/TextLimits.h).
constexpr std::uint32_t MaxNestingDepth = 10000;

// Longest frame: frame lengths travel as signed 32-bit numbers, and every node
// length is a multiple of 8, so the largest length an int can hold, rounded
// down to 8.
constexpr std::uint32_t MaxFrameLength =
    static_cast<std::uint32_t>(INT_MAX) / NodeAlignment * NodeAlignment;

// Largest name table: bits 3 to 23 of the flags word, 16,777,208 bytes. The
// format cannot describe more.
constexpr std::uint32_t MaxNameTableSize = NameTableMask;

// Longest name (without its NUL) that a name table entry may carry. Element
// names from text are at most 250 characters; namespace URIs and type names
// made of a URI and a local name are longer, but nowhere near 64 KiB.
constexpr std::uint32_t MaxTableNameLength = 65535;

static_assert(MaxFrameLength % NodeAlignment == 0, "frame lengths are multiples of 8");
static_assert(MaxFrameLength <= static_cast<std::uint32_t>(INT_MAX), "lengths are ints");

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_FRAMELIMITS_H
