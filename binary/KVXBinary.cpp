// KVXBinary: life of the concrete message. Construction, the two create forms,
// cursors, and how copies of one family share and separate their storage. The
// frame bytes belong to KVXBinaryInternals; this unit only hands the storage
// around. One thread at a time per message (see KVXBinary.h).
#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include "binary/KVXBinaryInternals.h"
#include "binary/WireFormat.h"

#include <kvx/KVXCommon.h>

#include <new>
#include <string>

namespace KVX {

namespace {

// Element "packet", the root of a message created without a name.
constexpr int PacketId = 1398;

// One pending header string of `target` takes the value of `source`: dropped
// when `source` has none, else made or overwritten as its setter would.
void copyPending(std::string *&target, std::string const *source) {
    if (source == nullptr) {
        delete target;
        target = nullptr;
    } else if (target == nullptr) {
        target = new std::string(*source);
    } else {
        *target = *source;
    }
}

// Drops one pending header string. The dirty flag is raised first so that a
// dropped value is known to be gone rather than merely unset.
void dropPending(std::string *&value, bool &dirty) {
    if (value != nullptr) {
        dirty = true;
        delete value;
        value = nullptr;
    }
}

} // namespace

char const *const KVXBinary::MessageType = "KVXBinary";
int KVXBinary::Policy = 0;

KVXBinary::KVXBinary()
    : KVXMessage(), policy(Policy), session(nullptr), sessionDirty(false), uid(nullptr),
      uidDirty(false), id(nullptr), idDirty(false), idLocal(false),
      internals(new (std::nothrow) KVXBinaryInternals()), cursorCount(0) {}

KVXBinary::~KVXBinary() {
    delete session;
    delete uid;
    delete id;
    // A message that still shares its storage has been through releaseInternals
    // (destroy does that first), so a non-null pointer here is ours alone.
    delete internals;
}

int KVXBinary::create(char const *rootName) {
    if (rootName == nullptr)
        return create(PacketId);
    if (internals == nullptr)
        return -1;
    // lookupId never allots: an unknown name leaves the document as it was.
    int const rootId = internals->ids.lookupId(Internal::CharArray(rootName));
    if (rootId == 0)
        return -1;
    return create(rootId);
}

int KVXBinary::create(int rootId) {
    resetHeaderData();
    if (internals == nullptr || internals->resetBuffer() != 0)
        return -1;
    BinaryPath path;
    return internals->append(path, rootId, Internal::KindStructure, nullptr, 0, false);
}

KVXMessage *KVXBinary::newMessage() const {
    return new (std::nothrow) KVXBinary();
}

KVXMessageIterator const *KVXBinary::newIterator() const {
    // Counted before the allocation: the count tells validateStamp whether more
    // than one cursor may be editing, and an attempt is enough to say so.
    ++cursorCount;
    return new (std::nothrow) KVXBinaryIterator(const_cast<KVXBinary *>(this));
}

KVXMessageIterator *KVXBinary::newIterator() {
    ++cursorCount;
    return new (std::nothrow) KVXBinaryIterator(this);
}

char const *KVXBinary::messageType() const {
    return MessageType;
}

int KVXBinary::isOfTheKind(char const *buffer) {
    KVX_ASSERT(buffer != nullptr); // the caller passed no buffer to probe
    if (buffer == nullptr)
        return 0;
    return Internal::load32(buffer) == Internal::FrameMagic ? 1 : 0;
}

void KVXBinary::assignInternals(KVXMessage const *other) {
    KVX_ASSERT(other != nullptr); // copy() hands over the message being shared
    KVXBinary const *source = dynamic_cast<KVXBinary const *>(other);
    KVX_ASSERT(source != nullptr || other == nullptr); // only a KVXBinary shares our storage
    // Called only on a fresh object made by copy(): its own storage has never
    // been shared, so it is freed without asking anyone.
    delete internals;
    internals = nullptr;
    if (source == nullptr)
        return;
    internals = source->internals;
    copyHeaderData(*source);
}

int KVXBinary::copyInternals() const {
    if (internals == nullptr)
        return -1;
    // The shared storage stays with the other members of the family; this object
    // keeps whatever deepCopy gave, even a failed (null or empty) copy.
    internals = internals->deepCopy();
    return (internals != nullptr && internals->buffer != nullptr) ? 0 : -1;
}

void KVXBinary::releaseInternals() {
    internals = nullptr;
}

void KVXBinary::resetHeaderData() {
    dropPending(id, idDirty);
    dropPending(session, sessionDirty);
    dropPending(uid, uidDirty);
    idLocal = false;
}

void KVXBinary::copyHeaderData(KVXBinary const &other) {
    copyPending(id, other.id);
    idDirty = other.idDirty;
    copyPending(session, other.session);
    sessionDirty = other.sessionDirty;
    copyPending(uid, other.uid);
    uidDirty = other.uidDirty;
    idLocal = false;
}

} // namespace KVX
