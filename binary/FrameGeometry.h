// Geometry of a frame held in a buffer of known length: where its root section
// ends and how long the frame says it is. Pure functions over bytes that never
// read outside the length they are given. Header only, stateless.
#ifndef KVX_BINARY_FRAMEGEOMETRY_H
#define KVX_BINARY_FRAMEGEOMETRY_H

#include "binary/WireFormat.h"

#include <cstdint>

namespace KVX {
namespace Internal {

// End of the root section, which is also the start of the name table: 8 when
// the empty flag is set, else 8 + the root's node size. A root that would run
// past `length` (a damaged or half-removed frame) ends at `length`, so callers
// that add the name table size to this see a frame longer than its bytes.
// A null frame or one shorter than its head gives 8.
inline std::uint32_t rootSectionEnd(char const *frame, std::uint32_t length) {
    if (frame == nullptr || length < FrameHeadSize || frameIsEmpty(frame))
        return RootOffset;
    if (length < RootOffset + ShortHeaderSize)
        return length;
    std::uint64_t const end =
        RootOffset + nodeSize(load32(frame + RootOffset + 8), load16(frame + RootOffset + 4),
                              frameFormat(frame));
    return end < length ? static_cast<std::uint32_t>(end) : length;
}

// The frame-length rule over `available` bytes: 0 when more bytes are needed
// (fewer than 8, exactly 8, fewer than 20, or a root or frame longer than what
// is there), -1 when the magic is wrong, else the frame's length. The root
// header at offset 8 is read whatever the empty flag says.
inline std::int64_t measureFrame(char const *frame, std::uint64_t available) {
    if (frame == nullptr || available < FrameHeadSize)
        return 0;
    if (load32(frame) != FrameMagic)
        return -1;
    if (available < MinimumFrameProbe)
        return 0;
    std::uint64_t const rootSize = nodeSize(load32(frame + RootOffset + 8),
                                            load16(frame + RootOffset + 4), frameFormat(frame));
    if (RootOffset + rootSize > available)
        return 0;
    std::uint64_t const total =
        RootOffset + (frameIsEmpty(frame) ? 0 : rootSize) + nameTableSize(frame);
    if (total > available)
        return 0;
    return static_cast<std::int64_t>(total);
}

} // namespace Internal
} // namespace KVX

#endif // KVX_BINARY_FRAMEGEOMETRY_H
