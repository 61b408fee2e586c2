// Entity replacement in element text: the five named XML entities and numeric
// character references written as UTF-8. Pure functions on caller-owned
// strings; safe from any thread.
#ifndef KVX_TEXT_ENTITIES_H
#define KVX_TEXT_ENTITIES_H

#include <string>

namespace KVX {
namespace Internal {

// Replaces every "&name;" in `text` by entity(name). Returns 0, with `text`
// rewritten (unchanged when it holds no '&'), or -1 when a '&' has no ';'
// behind it or an entity is unknown; `text` is then left as it was.
int unescape(std::string &text);

// The text of one entity, given its name without '&' and ';': "lt", "gt",
// "amp", "apos" and "quot" (case-sensitive), "#" and a decimal number or "#x"
// and a hexadecimal one, read as far as digits go and encoded as UTF-8.
// Empty for anything else, for "#X", and for numbers at or above 1,114,112.
// The number 0 gives one NUL byte; surrogates are encoded like any number.
std::string entity(std::string const &name);

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_ENTITIES_H
