// The demonstration operator behind `kvxmsg reply --fill`: it answers a
// request the way an agent's operator would, so that the SOAP road shows a
// real response or a real operator error. Fixed answers, no host lookups, so
// the output is the same on every machine. Single-threaded.
#ifndef KVX_TOOLS_DEMOHANDLER_H
#define KVX_TOOLS_DEMOHANDLER_H

#include <kvx/KVXMessage.h>

#include <string>

namespace KVX {
namespace Tool {

// Fills the `data` element that genReply left in `reply` with the answer to
// `request`: under an element named for the request's operator, either the
// values the operation asks for, or an `error` with `code` and `description`
// for an operation the demonstration does not know. Returns -1 (and changes
// nothing) when `reply` has no `data`, else 0.
int fillDemoAnswer(KVXMessage const &request, KVXMessage &reply);

} // namespace Tool
} // namespace KVX

#endif // KVX_TOOLS_DEMOHANDLER_H
