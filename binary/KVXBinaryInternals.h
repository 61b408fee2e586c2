// KVXBinaryInternals: the storage behind a KVXBinary, shared by the messages of
// one copy family until a writer separates them: the frame buffer (malloc),
// its change counter, capacity, used length and id map. The node operations
// here are the only code that edits a frame; cursors, the text parser and
// grafting call them with a BinaryPath of their own. Not thread-safe.
#ifndef KVX_BINARY_KVXBINARYINTERNALS_H
#define KVX_BINARY_KVXBINARYINTERNALS_H

#include "binary/KVXProtocolIDMap.h"
#include "binary/Node.h"

#include <kvx/BinaryPath.h>

#include <cstdint>

namespace KVX {

class KVXBinaryInternals {
public:
    KVXBinaryInternals();
    ~KVXBinaryInternals();
    KVXBinaryInternals(KVXBinaryInternals const &) = delete;
    KVXBinaryInternals &operator=(KVXBinaryInternals const &) = delete;

    // A deep copy (capacity rounded up to 4096, stamp + 2), or null when out of
    // memory. A source with nothing used gives a copy with a null buffer.
    KVXBinaryInternals *deepCopy() const;

    // Growth rule for `n` more bytes: reallocates when capacity <= used + n, by
    // capacity when n < capacity, else by n rounded up to 4096. New bytes are
    // zeroed unless `zero` is false. False when realloc failed (buffer intact).
    bool grow(std::uint32_t n, bool zero = true);
    // First step of create: used 0, ids reset, capacity at least 8192 by the
    // reset rule, a fresh head written. 0 or -1.
    int resetBuffer();
    // Loads a whole frame by one copy (the framing of deserialize). 0 or -1.
    int loadFrame(char const *frame, std::uint32_t length);

    // Geometry of the frame in `buffer`.
    std::uint32_t rootEnd() const;  // end of the root section = start of the name table
    std::uint32_t frameEnd() const; // end of the frame computed from the head
    unsigned format() const;        // format byte
    binary::Node node(std::uint32_t offset) const; // view limited to `used`

    // Node operations (offsets are frame offsets).
    int append(BinaryPath &path, int id, unsigned short kind, void const *value,
               std::uint32_t length, bool terminate);
    int replaceValue(BinaryPath &path, unsigned short kind, void const *value, std::uint32_t length,
                     bool terminate);
    void remove(BinaryPath &path);
    std::uint32_t insertNode(std::uint32_t size, unsigned short kind, std::uint32_t offset);
    bool resizeNode(std::uint32_t newSize, unsigned short kind, std::uint32_t offset,
                    std::int64_t &delta);
    int addNameEntry(int id, int tableKind, char const *text, std::uint32_t length);
    int setNamespace(BinaryPath &path, int id);
    int setKind(BinaryPath &path, int typeId);
    int currentNamespace(BinaryPath const &path) const;

    char *buffer;
    std::uint32_t stamp;
    int capacity;
    int used;
    KVXProtocolIDMap ids;
};

} // namespace KVX

#endif // KVX_BINARY_KVXBINARYINTERNALS_H
