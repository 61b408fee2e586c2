// KVXCore: process services of the KVX family. Here: unique identifiers.
// Thread-safe.
#ifndef KVX_KVXCORE_H
#define KVX_KVXCORE_H

#include <kvx/KVXDefs.h>

#include <string>

namespace KVX {

// Replaces `id` with a new unique identifier: 32 lower-case hex digits from a
// good random source. It never holds a dot.
KVX_EXPORT void generateID(std::string &id);

} // namespace KVX

#endif // KVX_KVXCORE_H
