// Case-insensitive comparison of texts, ASCII letters only.
// Stateless and thread-safe. Does not depend on the process locale.
#include <kvx/KVXCommon.h>

#include <algorithm>
#include <cstddef>

namespace KVX {

namespace {

unsigned char lowerAscii(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    return (u >= 'A' && u <= 'Z') ? static_cast<unsigned char>(u - 'A' + 'a') : u;
}

} // namespace

// Compares like strncasecmp over the first `n` characters, except that the
// texts' own lengths bound them rather than a NUL: embedded NULs compare as
// characters, and a text that ends first is the smaller.
int compareNoCase(std::string const &a, std::string const &b, int n) {
    std::size_t limitA = a.size();
    std::size_t limitB = b.size();
    if (n >= 0) {
        std::size_t limit = static_cast<std::size_t>(n);
        limitA = std::min(limitA, limit);
        limitB = std::min(limitB, limit);
    }
    std::size_t common = std::min(limitA, limitB);
    for (std::size_t i = 0; i < common; ++i) {
        unsigned char ca = lowerAscii(a[i]);
        unsigned char cb = lowerAscii(b[i]);
        if (ca != cb) {
            return ca < cb ? -1 : 1;
        }
    }
    if (limitA == limitB) {
        return 0;
    }
    return limitA < limitB ? -1 : 1;
}

} // namespace KVX
