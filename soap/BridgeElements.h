// Vocabulary ids of the packet elements that the SOAP bridge reads and writes,
// for both directions of the converter. Constants only; safe from any thread.
#ifndef KVX_SOAP_BRIDGEELEMENTS_H
#define KVX_SOAP_BRIDGEELEMENTS_H

namespace KVX {
namespace Internal {

constexpr int TargetId = 1401;  // "target"
constexpr int CookieId = 1400;  // "cookie"
constexpr int RequestId = 1322; // "request"
constexpr int NameId = 1026;    // "name"

} // namespace Internal
} // namespace KVX

#endif // KVX_SOAP_BRIDGEELEMENTS_H
