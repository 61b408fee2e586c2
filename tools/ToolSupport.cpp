// Shared plumbing of the kvxmsg commands: input, output, loading and writing a
// packet. Every library result that is not success becomes a CommandFailure
// whose text names the call and its result code. Single-threaded.
#include "tools/ToolSupport.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXMsgFactory.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace KVX {
namespace Tool {

namespace {

std::string systemError() {
    return std::strerror(errno);
}

// The library measures buffers in int; a larger input cannot be one frame.
int checkedLength(std::string const &bytes) {
    if (bytes.size() > static_cast<std::size_t>(INT_MAX))
        throw CommandFailure("input of " + std::to_string(bytes.size()) +
                             " bytes is larger than a frame can be");
    return static_cast<int>(bytes.size());
}

// Frees a block the library allocated with malloc when it leaves scope.
struct HeapText {
    char *text = nullptr;
    ~HeapText() { std::free(text); }
};

} // namespace

std::string readInput(std::string const &path) {
    bool standardInput = path == "-";
    std::FILE *file = standardInput ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        throw CommandFailure("cannot open " + path + ": " + systemError());
    std::string bytes;
    char block[65536];
    std::size_t got;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0)
        bytes.append(block, got);
    bool failed = std::ferror(file) != 0;
    int readErrno = errno;
    if (!standardInput)
        std::fclose(file);
    if (failed) {
        errno = readErrno;
        throw CommandFailure("cannot read " +
                             (standardInput ? std::string("standard input") : path) + ": " +
                             systemError());
    }
    return bytes;
}

void writeOutput(std::string const &path, std::string const &bytes) {
    bool standardOutput = path == "-";
    std::FILE *file = standardOutput ? stdout : std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        throw CommandFailure("cannot create " + path + ": " + systemError());
    bool failed = std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size();
    failed = (standardOutput ? std::fflush(file) : std::fclose(file)) != 0 || failed;
    if (failed)
        throw CommandFailure("cannot write " +
                             (standardOutput ? std::string("standard output") : path) + ": " +
                             systemError());
}

void MessageRelease::operator()(KVXMessage *message) const {
    if (message != nullptr)
        message->destroy();
}

bool isFrame(std::string const &bytes) {
    return bytes.size() >= 4 && KVXBinary::isOfTheKind(bytes.data()) != 0;
}

MessagePtr newMessage() {
    MessagePtr message(KVXMsgFactory::createNew());
    if (!message)
        throw CommandFailure("createNew failed (null)");
    return message;
}

MessagePtr loadPacket(std::string const &bytes) {
    int length = checkedLength(bytes);
    MessagePtr message = newMessage();
    if (!isFrame(bytes)) {
        // fromText needs a NUL-terminated text; std::string supplies the NUL.
        int result = message->fromText(bytes.c_str());
        if (result != 0)
            throw CommandFailure("fromText failed (" + std::to_string(result) +
                                 "): the input is neither a frame nor XML text that parses");
        return message;
    }
    if (KVXBinary::isComplete(bytes.data(), length) == 0) {
        int result = message->deserialize(bytes.data(), length);
        throw CommandFailure("deserialize failed (" + std::to_string(result) +
                             "): incomplete frame (" + std::to_string(length) + " bytes)");
    }
    // Cursor reads trust the inner sizes of a loaded frame, so a frame from
    // outside is checked whole before it is loaded.
    int faultOffset = 0;
    int verified = KVXBinary::verify(bytes.data(), length, &faultOffset);
    if (verified != 0)
        throw CommandFailure("verify failed (" + std::to_string(verified) + "): fault at offset " +
                             std::to_string(faultOffset));
    int result = message->deserialize(bytes.data(), length);
    if (result != 0)
        throw CommandFailure("deserialize failed (" + std::to_string(result) + ")");
    return message;
}

std::string frameOf(KVXMessage const &message) {
    unsigned __int64 size = 0;
    int result = message.serialize(nullptr, &size, nullptr);
    if (result != -2)
        throw CommandFailure("serialize failed (" + std::to_string(result) + ")");
    std::string frame(static_cast<std::size_t>(size), '\0');
    unsigned __int64 written = size;
    result = message.serialize(&frame[0], &written, nullptr);
    if (result != 0)
        throw CommandFailure("serialize failed (" + std::to_string(result) + ")");
    frame.resize(static_cast<std::size_t>(written));
    return frame;
}

std::string textOf(KVXMessage const &message, int version) {
    HeapText text;
    text.text = message.toText(nullptr, std::string(), version);
    if (text.text == nullptr)
        throw CommandFailure("toText failed (null)");
    return text.text;
}

std::string packetBytes(KVXMessage const &message, bool asText) {
    return asText ? textOf(message) : frameOf(message);
}

std::string withLineFeed(std::string text) {
    if (text.empty() || text.back() != '\n')
        text += '\n';
    return text;
}

} // namespace Tool
} // namespace KVX
