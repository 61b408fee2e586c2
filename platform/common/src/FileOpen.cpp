// open() and fopen() for UTF-8 paths. On POSIX a path is bytes, so it is
// handed over unchanged. Stateless and thread-safe.
#include <kvx/KVXCommon.h>

#include <fcntl.h>

namespace KVX {

namespace {

// Asks for binary mode. It must not reach open(): on some targets the same
// bit is an open flag with its own meaning (O_DIRECTORY on ARM, for one).
constexpr int BinaryModeFlag = 0x8000;

} // namespace

int openU(char const *path, int flags, int mode) {
    KVX_ASSERT(path != nullptr); // the caller passed no path
    if (path == nullptr) {
        return -1;
    }
    return ::open(path, flags & ~BinaryModeFlag, mode);
}

FILE *fopenU(char const *path, char const *mode) {
    KVX_ASSERT(path != nullptr && mode != nullptr); // the caller passed no path or mode
    if (path == nullptr || mode == nullptr) {
        return nullptr;
    }
    return std::fopen(path, mode);
}

} // namespace KVX
