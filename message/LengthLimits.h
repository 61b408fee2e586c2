// The one test by which the message layer hands a size_t length to an
// operation that takes an int: a length that an int cannot carry is refused,
// never cut short. Header only, stateless.
#ifndef KVX_MESSAGE_LENGTHLIMITS_H
#define KVX_MESSAGE_LENGTHLIMITS_H

#include <climits>
#include <cstddef>

namespace KVX {
namespace Internal {

// True when `length` can be passed on as an int without change.
inline bool fitsIntLength(std::size_t length) {
    return length <= static_cast<std::size_t>(INT_MAX);
}

} // namespace Internal
} // namespace KVX

#endif // KVX_MESSAGE_LENGTHLIMITS_H
