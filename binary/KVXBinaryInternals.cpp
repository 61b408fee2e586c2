// KVXBinaryInternals: the storage of a document, its growth, reset, deep copy
// and whole-frame load, and the geometry read from the frame's head. The buffer
// is a C heap block owned by this object; messages of one copy family share
// it. Not thread-safe.
#include "binary/KVXBinaryInternals.h"

#include "binary/FrameGeometry.h"
#include "binary/WireFormat.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

namespace KVX {

using namespace Internal;

namespace {

constexpr std::uint32_t Page = 4096; // growth and copy granularity

std::uint64_t roundUpToPage(std::uint64_t n) {
    return (n + Page - 1) / Page * Page;
}

// Reallocates `buffer` to `newCapacity` bytes; false (buffer intact) on
// failure. The new bytes are zeroed when `zero` is set.
bool reallocate(char *&buffer, int &capacity, std::uint64_t newCapacity, bool zero) {
    if (newCapacity > static_cast<std::uint64_t>(INT_MAX))
        return false;
    char *const grown = static_cast<char *>(std::realloc(buffer, newCapacity));
    if (grown == nullptr)
        return false;
    if (zero)
        std::memset(grown + capacity, 0, newCapacity - static_cast<std::uint64_t>(capacity));
    buffer = grown;
    capacity = static_cast<int>(newCapacity);
    return true;
}

} // namespace

KVXBinaryInternals::KVXBinaryInternals()
    : buffer(nullptr), stamp(0), capacity(0), used(0), ids(this), room(0), roomOpenings(0) {}

KVXBinaryInternals::~KVXBinaryInternals() {
    std::free(buffer);
}

KVXBinaryInternals *KVXBinaryInternals::deepCopy() const {
    KVXBinaryInternals *const copy = new (std::nothrow) KVXBinaryInternals();
    if (copy == nullptr)
        return nullptr;
    copy->stamp = stamp + 1;
    if (used < 1)
        return copy;
    std::uint64_t const size = roundUpToPage(static_cast<std::uint64_t>(used));
    char *const bytes = static_cast<char *>(std::calloc(size, 1));
    if (bytes == nullptr)
        return copy;
    copy->buffer = bytes;
    copy->capacity = static_cast<int>(size);
    ++copy->stamp;
    copy->used = used;
    try {
        copy->ids.copyFrom(ids);
    } catch (std::bad_alloc const &) {
        delete copy; // out of memory is reported as a null copy, not thrown
        return nullptr;
    }
    std::memcpy(copy->buffer, buffer, static_cast<std::size_t>(used));
    return copy;
}

bool KVXBinaryInternals::grow(std::uint32_t n, bool zero) {
    if (n == 0)
        return true;
    std::uint64_t const want = static_cast<std::uint64_t>(used > 0 ? used : 0) + n;
    if (static_cast<std::uint64_t>(capacity > 0 ? capacity : 0) > want)
        return true;
    // At least doubling in the common case; a request larger than the whole
    // buffer gets exactly its rounded size. Lengths are signed 32-bit, so a
    // capacity past INT_MAX is refused instead of wrapping.
    std::uint64_t const increment = n < static_cast<std::uint64_t>(capacity)
                                        ? static_cast<std::uint64_t>(capacity)
                                        : roundUpToPage(n);
    if (!reallocate(buffer, capacity, static_cast<std::uint64_t>(capacity) + increment, zero))
        return false;
    ++stamp;
    return true;
}

int KVXBinaryInternals::resetBuffer() {
    ++stamp;
    used = 0;
    room = 0;
    ids.reset();
    // Small buffers grow at every reset, so one of exactly 4096 bytes becomes
    // 8192 and the first create of a blank document gets 4096.
    if (capacity <= static_cast<int>(Page)) {
        std::uint64_t const increment =
            capacity < static_cast<int>(Page) ? Page : static_cast<std::uint64_t>(capacity);
        if (!reallocate(buffer, capacity, static_cast<std::uint64_t>(capacity) + increment, true))
            return -1;
        ++stamp;
    }
    if (buffer == nullptr)
        return -1;
    store32(buffer, FrameMagic);
    store32(buffer + 4, FreshFlags);
    used = static_cast<int>(FrameHeadSize);
    return 0;
}

int KVXBinaryInternals::loadFrame(char const *frame, std::uint32_t length) {
    used = 0;
    room = 0;
    if (frame == nullptr || length > static_cast<std::uint32_t>(INT_MAX) ||
        measureFrame(frame, length) != static_cast<std::int64_t>(length) || length == 0)
        return -1;
    // A frame that lies in this very buffer is copied aside first: growing may
    // move the buffer under it.
    std::vector<char> aside;
    std::less<char const *> const before;
    if (buffer != nullptr && !before(frame, buffer) && before(frame, buffer + capacity)) {
        aside.assign(frame, frame + length);
        frame = aside.data();
    }
    // The load rule is the growth rule with nothing in use, without zeroing:
    // every byte is overwritten by the frame.
    if (!grow(length, false))
        return -1;
    std::memcpy(buffer, frame, length);
    used = static_cast<int>(length);
    return 0;
}

} // namespace KVX
