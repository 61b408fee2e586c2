// The demonstration operator of `kvxmsg reply --fill`. It reads the request
// only through a read-only cursor and writes the reply through another, the
// way an operator of the agent works on the packets genReply hands it.
// Single-threaded; both messages belong to the caller.
#include "tools/DemoHandler.h"

#include <algorithm>
#include <cctype>
#include <memory>

namespace KVX {
namespace Tool {

namespace {

// Fixed values, so that the demonstration prints the same on every machine.
char const *const DemoHostName = "demo-agent";
char const *const DemoSystem = "Linux";
constexpr int DemoUptimeSeconds = 86400;
constexpr int NotSupportedCode = 501;

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

struct Request {
    std::string operatorName; // element under `data`, named for the operator
    std::string operation;    // lower-cased, as the SOAP bridge keeps it in the cookie
    std::string space;        // the operation's namespace URI, from the cookie when there
};

Request readRequest(KVXMessage const &request) {
    Request found;
    std::unique_ptr<KVXMessageIterator const> cursor(request.newIterator());
    // A request from the SOAP bridge names its operation in cookie/request.
    if (cursor->getValue(found.operation, "cookie/request") != 0)
        found.operation.clear();
    if (cursor->getValue(found.space, "cookie/name") != 0)
        found.space.clear();
    if (cursor->seek("data") == 0 && cursor->firstChild() == 0) {
        found.operatorName = cursor->curName();
        if (found.operation.empty() && cursor->firstChild() == 0)
            found.operation = cursor->curName();
    }
    if (found.operatorName.empty())
        found.operatorName = lowerCase(request.getTarget());
    if (found.operatorName.empty())
        found.operatorName = "system";
    found.operation = lowerCase(found.operation);
    return found;
}

} // namespace

int fillDemoAnswer(KVXMessage const &request, KVXMessage &reply) {
    Request asked = readRequest(request);
    std::unique_ptr<KVXMessageIterator> cursor(reply.newIterator());
    if (cursor->seek("data") != 0 || cursor->newChild(asked.operatorName) != 0)
        return -1;
    // The answer is given in the operation's namespace, as the client asked in it.
    if (!asked.space.empty())
        cursor->saveNamespace(asked.space);
    int failed = 0;
    if (asked.operation == "getinfo") {
        failed |= cursor->putValue(std::string(DemoHostName), std::string("hostname"));
        failed |= cursor->putValue(std::string(DemoSystem), std::string("os"));
        failed |= cursor->putValue(DemoUptimeSeconds, std::string("uptime"));
    } else if (asked.operation == "getuptime") {
        failed |= cursor->putValue(DemoUptimeSeconds, std::string("uptime"));
    } else {
        // What an operator answers to an operation it does not have: an
        // `error` under its own element, which the SOAP bridge turns into a fault.
        failed |= cursor->newChild(std::string("error"));
        failed |= cursor->putValue(NotSupportedCode, std::string("code"));
        failed |= cursor->putValue("operation '" + asked.operation + "' is not supported by the " +
                                       asked.operatorName + " operator",
                                   std::string("description"));
    }
    return failed != 0 ? -1 : 0;
}

} // namespace Tool
} // namespace KVX
