// The bodies that the abstract message gives itself: sharing of data between
// message objects with copy on first write, the text-file round trip, and the
// header accessors that work through a cursor. Text and buffers handed out are
// C heap blocks owned by the caller. One message family may be released from
// several threads (the shared count is atomic); anything else is one thread.
#include <kvx/KVXMessage.h>

#include <kvx/KVXCommon.h>

#include "message/LengthLimits.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KVX {

namespace {

// Opens the file read-only and in binary mode.
constexpr int ReadBinaryFlags = 0x8000 | O_RDONLY;

// The version asked of toText when a message is written to a file.
constexpr int FileTextVersion = 40500;

// The largest file fromTextFile loads: its text, with the closing 0, must have
// a length that an int can carry to deserialize.
constexpr off_t MaxTextFileSize = INT_MAX - 1;

// Deletes a cursor whichever way the accessor leaves.
template <class Cursor> struct CursorHolder {
    Cursor *cursor;
    explicit CursorHolder(Cursor *c) : cursor(c) {}
    ~CursorHolder() { delete cursor; }
    CursorHolder(CursorHolder const &) = delete;
    CursorHolder &operator=(CursorHolder const &) = delete;
};

} // namespace

KVXMessage::KVXMessage() : referenceCount(new std::atomic<int>(1)) {}

KVXMessage::KVXMessage(KVXMessage const &other) : referenceCount(other.referenceCount) {}

KVXMessage &KVXMessage::operator=(KVXMessage const &other) {
    // A plain copy of the pointer: whatever this object counted before is
    // neither released nor decremented, exactly as the copy constructor.
    referenceCount = other.referenceCount;
    return *this;
}

KVXMessage::~KVXMessage() {
    // destroy() gives up a share before it deletes; a message deleted while
    // others still count on its data was deleted behind destroy()'s back.
    KVX_ASSERT(referenceCount == nullptr || referenceCount->load() == 0);
    delete referenceCount;
}

void KVXMessage::destroy() {
    if (referenceCount != nullptr && referenceCount->fetch_sub(1) - 1 != 0) {
        // Others still stand on the data: leave counter and data to them.
        referenceCount = nullptr;
        releaseInternals();
    }
    delete this;
}

int KVXMessage::serialize(char * /*buffer*/, unsigned __int64 * /*size*/,
                          KVXMessageIterator const * /*from*/) const {
    return -1;
}

char *KVXMessage::toText(KVXMessageIterator const *from, std::string const & /*namespaceBase*/,
                         int version) const {
    char *buffer = nullptr;
    int size = 0;
    if (serialize(&buffer, &size, from, version) != 0) {
        return nullptr;
    }
    return buffer;
}

int KVXMessage::toTextFile(std::string const &path) const {
    char *text = toText(nullptr, std::string(), FileTextVersion);
    if (text == nullptr) {
        return -1;
    }
    FILE *file = fopenU(path.c_str(), "w+");
    if (file == nullptr) {
        // The text is ours to free on this path too; nothing else can reach it.
        std::free(text);
        return -1;
    }
    std::size_t const length = std::strlen(text);
    std::fwrite(text, length, 1, file);
    int const result = std::ferror(file);
    std::free(text);
    std::fclose(file);
    return result;
}

int KVXMessage::fromText(char const *text, KVXMessageIterator *to) {
    KVX_ASSERT(text != nullptr); // the caller passed no text
    if (text == nullptr) {
        return -1;
    }
    std::size_t const length = std::strlen(text);
    if (!Internal::fitsIntLength(length)) {
        // The length would not survive the trip through deserialize's int.
        return -1;
    }
    return deserialize(text, static_cast<int>(length), to);
}

int KVXMessage::fromTextFile(std::string const &path) {
    int result = -1;
    int const fd = openU(path.c_str(), ReadBinaryFlags, 0);
    if (fd < 0) {
        return result;
    }
    struct stat info;
    if (::fstat(fd, &info) != 0 || info.st_size < 0 || info.st_size > MaxTextFileSize) {
        ::close(fd);
        return result;
    }
    std::size_t const size = static_cast<std::size_t>(info.st_size);
    char *buffer = static_cast<char *>(std::malloc(size + 1));
    if (buffer == nullptr) {
        ::close(fd);
        return result;
    }
    // The size bound above keeps the count within an int.
    result = static_cast<int>(::read(fd, buffer, size));
    if (result == static_cast<int>(size)) {
        buffer[size] = '\0';
        result = fromText(buffer, nullptr);
    }
    // A short read is reported as the number of bytes read: callers that test
    // for 0 see a failure, callers that test for a negative value do not.
    std::free(buffer);
    ::close(fd);
    return result;
}

KVXMessage *KVXMessage::copy(bool /*deep*/) const {
    if (referenceCount == nullptr) {
        return nullptr;
    }
    KVXMessage *twin = newMessage();
    if (twin == nullptr) {
        return nullptr;
    }
    delete twin->referenceCount;
    twin->referenceCount = referenceCount;
    referenceCount->fetch_add(1);
    twin->assignInternals(this);
    return twin;
}

int KVXMessage::saveChanges() const {
    return 0;
}

bool KVXMessage::multiReference() const {
    if (referenceCount == nullptr) {
        return false;
    }
    KVX_ASSERT(referenceCount->load() >= 1); // a share was given up twice
    return referenceCount->load() != 1;
}

int KVXMessage::hardcopy() const {
    if (referenceCount == nullptr || referenceCount->load() == 1) {
        return 0;
    }
    // The keeper holds one more share of the old data while the private copy is
    // made, so the data has an owner even if every other sharer goes away.
    struct Keeper {
        KVXMessage *message;
        ~Keeper() {
            if (message != nullptr) {
                message->destroy();
            }
        }
    } keeper{copy(false)};
    if (keeper.message == nullptr) {
        return -1;
    }
    // The new counter is taken before the data is replaced, so that a failed
    // allocation leaves this object exactly as it was.
    std::atomic<int> *own = new (std::nothrow) std::atomic<int>(1);
    if (own == nullptr) {
        return -1;
    }
    if (copyInternals() != 0) {
        delete own;
        return -1;
    }
    std::atomic<int> *old = referenceCount;
    referenceCount = own;
    old->fetch_sub(1);
    return 0;
}

std::string KVXMessage::getOrigin() const {
    CursorHolder<KVXMessageIterator const> holder(newIterator());
    std::string value;
    if (holder.cursor == nullptr || holder.cursor->getValue(value, std::string("origin")) != 0) {
        return std::string();
    }
    return value;
}

int KVXMessage::setOrigin(std::string const &origin) {
    CursorHolder<KVXMessageIterator> holder(newIterator());
    if (holder.cursor == nullptr) {
        return -1;
    }
    return holder.cursor->putValue(origin, std::string("origin"));
}

std::string KVXMessage::getTarget() const {
    CursorHolder<KVXMessageIterator const> holder(newIterator());
    std::string value;
    if (holder.cursor == nullptr || holder.cursor->getValue(value, std::string("target")) != 0) {
        return std::string();
    }
    return value;
}

int KVXMessage::setTarget(std::string const &target) {
    CursorHolder<KVXMessageIterator> holder(newIterator());
    if (holder.cursor == nullptr) {
        return -1;
    }
    return holder.cursor->putValue(target, std::string("target"));
}

int KVXMessage::addTarget(std::string const &target) {
    CursorHolder<KVXMessageIterator> holder(newIterator());
    if (holder.cursor == nullptr) {
        return -1;
    }
    int const result = holder.cursor->newChild(std::string("target"));
    if (result != 0) {
        return result;
    }
    return holder.cursor->putValue(target, 0);
}

int KVXMessage::getSession(std::string &session) const {
    return getSessionID(session);
}

int KVXMessage::setSession(std::string const &session) {
    return setSessionID(session);
}

int KVXMessage::getSessionID(std::string &session) const {
    CursorHolder<KVXMessageIterator const> holder(newIterator());
    if (holder.cursor == nullptr) {
        return -1;
    }
    return holder.cursor->getValue(session, std::string("session"));
}

int KVXMessage::setSessionID(std::string const &session) {
    CursorHolder<KVXMessageIterator> holder(newIterator());
    if (holder.cursor == nullptr) {
        return -1;
    }
    return holder.cursor->putValue(session, std::string("session"));
}

} // namespace KVX
