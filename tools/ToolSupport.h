// Shared plumbing of the kvxmsg commands: reading a file or standard input,
// writing a file or standard output, loading a packet from a frame or XML text,
// writing it back, and the one failure type every command throws. The tool owns
// every byte it reads; messages are released with destroy(). Single-threaded.
#ifndef KVX_TOOLS_TOOLSUPPORT_H
#define KVX_TOOLS_TOOLSUPPORT_H

#include <kvx/KVXMessage.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace KVX {
namespace Tool {

// A failed command. main() prints "kvxmsg: <command>: <what()>" as one line on
// standard error and exits with status 1; the text names the library's result
// code where a library call failed.
class CommandFailure : public std::runtime_error {
public:
    explicit CommandFailure(std::string const &reason) : std::runtime_error(reason) {}
};

// Options every command has: where the bytes come from and where they go.
struct InputOutput {
    std::string input = "-";  // a path, or "-" for standard input
    std::string output = "-"; // a path, or "-" for standard output
};

// The whole content of `path` ("-": standard input), byte for byte.
std::string readInput(std::string const &path);
// Writes `bytes` to `path` ("-": standard output), replacing a file.
void writeOutput(std::string const &path, std::string const &bytes);

// Releases a message the way the library requires: destroy(), never delete.
struct MessageRelease {
    void operator()(KVXMessage *message) const;
};
typedef std::unique_ptr<KVXMessage, MessageRelease> MessagePtr;

// True when the bytes start with the frame magic.
bool isFrame(std::string const &bytes);

// A new empty message of the default protocol.
MessagePtr newMessage();

// A packet from `bytes`: a frame is verified with KVXBinary::verify and then
// loaded with deserialize; anything else is taken for XML text and parsed with
// fromText. Throws CommandFailure naming the failing call and its result.
MessagePtr loadPacket(std::string const &bytes);

// The whole message as a frame, by the fixed-buffer serialize (always binary,
// whatever version the packet carries).
std::string frameOf(KVXMessage const &message);
// The whole message as XML text, by toText at `version`.
std::string textOf(KVXMessage const &message, int version = 40500);
// frameOf or textOf(40500), as `asText` asks.
std::string packetBytes(KVXMessage const &message, bool asText);

// Adds the line feed that a text meant for a terminal or a file ends with,
// unless the text already ends with one.
std::string withLineFeed(std::string text);

} // namespace Tool
} // namespace KVX

#endif // KVX_TOOLS_TOOLSUPPORT_H
