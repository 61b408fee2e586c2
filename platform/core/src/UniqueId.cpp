// Unique identifiers: 128 random bits as 32 lower-case hex digits.
// Thread-safe: the kernel's random source needs no lock, and the last-resort
// generator uses only atomics and per-call state.
#include <kvx/KVXCore.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace KVX {

namespace {

constexpr std::size_t IdBytes = 16;
constexpr char HexDigits[] = "0123456789abcdef";

// getrandom() never blocks once the kernel pool is ready and is not subject
// to running out of file descriptors; a short read or a signal just asks again.
bool readGetrandom(unsigned char *buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = ::getrandom(buffer + done, size - done, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false; // ENOSYS on old kernels, EPERM under some sandboxes
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool readUrandom(unsigned char *buffer, std::size_t size) {
    int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = ::read(fd, buffer + done, size - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            ::close(fd);
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    ::close(fd);
    return true;
}

std::uint64_t splitMix64(std::uint64_t &state) {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// Only when the host offers no random source at all. The ids are then not
// unpredictable, but stay distinct: the second half is a process-wide counter,
// the first a mix of the clock, the process id and an address.
void fillFallback(unsigned char *buffer, std::size_t size) {
    static std::atomic<std::uint64_t> counter{0};
    std::uint64_t const count = counter.fetch_add(1);
    std::uint64_t state =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
        (static_cast<std::uint64_t>(::getpid()) << 32) ^
        static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&counter));
    std::uint64_t const words[2] = {splitMix64(state), count};
    std::memcpy(buffer, words, size < sizeof words ? size : sizeof words);
}

} // namespace

void generateID(std::string &id) {
    unsigned char bytes[IdBytes];
    if (!readGetrandom(bytes, sizeof bytes) && !readUrandom(bytes, sizeof bytes)) {
        fillFallback(bytes, sizeof bytes);
    }
    std::string text(2 * IdBytes, '0');
    for (std::size_t i = 0; i < IdBytes; ++i) {
        text[2 * i] = HexDigits[bytes[i] >> 4];
        text[2 * i + 1] = HexDigits[bytes[i] & 0x0F];
    }
    id.swap(text);
}

} // namespace KVX
