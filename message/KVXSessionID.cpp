// Session identifiers: creation and the field readers. Works only on the identifier's own
// characters. Stateless apart from the value; not synchronised.
#include <kvx/KVXSessionID.h>

#include <kvx/KVXCommon.h>
#include <kvx/KVXCore.h>

#include <cstdlib>

namespace KVX {

namespace {

// Room for the usual identifier: version, type, two endpoint names and a 32-digit unique id.
const std::string::size_type CreateReserve = 256;

// The field `index` (0 is the leading "kvx") counted from the left, when a dot
// closes it: the last field never counts. `out` is left alone otherwise.
bool leftField(std::string const &id, unsigned index, std::string &out) {
    std::string::size_type start = 0;
    for (unsigned i = 0; i < index; ++i) {
        std::string::size_type const dot = id.find('.', start);
        if (dot == std::string::npos)
            return false;
        start = dot + 1;
    }
    std::string::size_type const end = id.find('.', start);
    if (end == std::string::npos)
        return false;
    out = id.substr(start, end - start);
    return true;
}

} // namespace

KVXSessionID::KVXSessionID() = default;

KVXSessionID::KVXSessionID(std::string const &text) : std::string(text) {}

KVXSessionID::KVXSessionID(KVXSessionID const &other) = default;

KVXSessionID &KVXSessionID::operator=(KVXSessionID const &other) = default;

KVXSessionID::~KVXSessionID() = default;

void KVXSessionID::create(int version, int type, std::string const &eid,
                          std::string const &targetEid) {
    std::string unique;
    generateID(unique);

    reserve(CreateReserve);
    assign("kvx.");
    append(intToStr(version));
    append(1, '.');
    append(intToStr(type));
    append(1, '.');
    append(eid);
    append(1, '.');
    append(targetEid);
    append(1, '.');
    append(unique);
}

int KVXSessionID::getVersion() const {
    std::string field;
    // atoi, not a checked parse: a field that is not a number reads as 0 and is no error.
    return leftField(*this, 1, field) ? std::atoi(field.c_str()) : 0;
}

int KVXSessionID::getType() const {
    std::string field;
    return leftField(*this, 2, field) ? std::atoi(field.c_str()) : 0;
}

void KVXSessionID::getEID(std::string &out) const {
    leftField(*this, 3, out);
}

std::string KVXSessionID::getEID() const {
    std::string out;
    getEID(out);
    return out;
}

// The target is counted from the right on purpose, while the EID is counted from the left: a dot
// inside the EID leaves this reader right, a dot inside the unique id misleads it.
void KVXSessionID::getTargetEID(std::string &out) const {
    size_type q1 = rfind('.');
    if (q1 == npos || q1 == 0)
        return;
    size_type q2 = rfind('.', q1 - 1);
    if (q2 == npos)
        return;
    out = substr(q2 + 1, q1 - q2 - 1);
}

std::string KVXSessionID::getTargetEID() const {
    std::string out;
    getTargetEID(out);
    return out;
}

bool KVXSessionID::operator==(std::string const &other) const {
    return compareNoCase(*this, other, -1) == 0;
}

bool KVXSessionID::operator==(KVXSessionID const &other) const {
    // Through the string form, so both comparisons ignore case alike.
    return operator==(static_cast<std::string const &>(other));
}

bool KVXSessionID::operator!=(std::string const &other) const {
    return !operator==(other);
}

bool KVXSessionID::operator!=(KVXSessionID const &other) const {
    return !operator==(other);
}

} // namespace KVX
