// encode and decode: the road between a packet's XML text and its frame.
// encode parses text with fromText and writes the frame with serialize; decode
// loads a frame (or text) and writes the text form at a protocol version.
// The commands own their buffers; single-threaded.
#include "tools/Commands.h"

#include <cstdlib>
#include <memory>

namespace KVX {
namespace Tool {

namespace {

// Below this protocol version a peer gets the text form from serialize.
constexpr int LowestBinaryVersion = 40000;

void encode(InputOutput const &io) {
    std::string text = readInput(io.input);
    MessagePtr message = newMessage();
    // fromText reads up to the first NUL, which std::string supplies.
    int result = message->fromText(text.c_str());
    if (result != 0)
        throw CommandFailure("fromText failed (" + std::to_string(result) +
                             "): the XML text does not parse");
    writeOutput(io.output, frameOf(*message));
}

void decode(InputOutput const &io, int version) {
    MessagePtr message = loadPacket(readInput(io.input));
    if (version >= LowestBinaryVersion) {
        writeOutput(io.output, textOf(*message, version));
        return;
    }
    // An old peer's text is what serialize itself writes for it.
    char *text = nullptr;
    int length = 0;
    int result = message->serialize(&text, &length, nullptr, version);
    std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    if (result != 0 || text == nullptr)
        throw CommandFailure("serialize failed (" + std::to_string(result) + ") at version " +
                             std::to_string(version));
    writeOutput(io.output, std::string(text, static_cast<std::size_t>(length)));
}

} // namespace

void addTextCommands(CLI::App &app) {
    auto encodeIo = std::make_shared<InputOutput>();
    CLI::App *encodeCommand = app.add_subcommand(
        "encode", "XML text of a packet to a binary frame (fromText, then serialize)");
    addInputOutput(*encodeCommand, *encodeIo, "XML text of a packet");
    encodeCommand->footer("The frame is written whole, name table included, whatever version the\n"
                          "packet names.\n"
                          "Example:\n"
                          "  kvxmsg encode examples/packets/getinfo-request.xml -o request.bin");
    setAction(*encodeCommand, [encodeIo]() { encode(*encodeIo); });

    auto decodeIo = std::make_shared<InputOutput>();
    auto decodeVersion = std::make_shared<int>(40500);
    CLI::App *decodeCommand =
        app.add_subcommand("decode", "a frame (or XML text) to the XML text of the packet");
    addInputOutput(*decodeCommand, *decodeIo, "a frame or XML text");
    decodeCommand
        ->add_option("--version", *decodeVersion,
                     "protocol version of the reader, major*10000+minor*100+patch; below 40000 "
                     "the text is what serialize sends such a peer (no namespaces, no types)")
        ->option_text("N")
        ->capture_default_str();
    decodeCommand->footer("Examples:\n"
                          "  kvxmsg decode request.bin\n"
                          "  kvxmsg decode --version 39999 request.bin -o old-peer.xml");
    setAction(*decodeCommand, [decodeIo, decodeVersion]() { decode(*decodeIo, *decodeVersion); });
}

} // namespace Tool
} // namespace KVX
