// soap-in, reply and soap-out: a SOAP request becomes a packet, the packet gets
// its reply from genReply (filled by the demonstration operator on request),
// and the reply becomes a SOAP response or fault. A fault of the converter is
// printed as the SOAP text a client would get. Single-threaded; the commands
// own messages, envelopes and texts.
#include "tools/Commands.h"
#include "tools/DemoHandler.h"

#include <kvx/KVXSoapConverter.h>

#include <cstdlib>
#include <memory>

namespace KVX {
namespace Tool {

namespace {

struct PacketOptions {
    InputOutput io;
    bool text = false;
};

// The converter's fault as the SOAP text a client would get, written where
// the command's output goes; returns its fault string for the failure line.
std::string writeFault(KVXSoapConverter const &converter, std::string const &output) {
    KVXSoapFault *fault = converter.getFault();
    if (fault == nullptr)
        return "no fault text (the envelope's namespace is no SOAP version)";
    std::unique_ptr<char, decltype(&std::free)> text(fault->toText(), &std::free);
    if (text)
        writeOutput(output, withLineFeed(text.get()));
    return fault->faultString;
}

void soapIn(PacketOptions const &options) {
    std::string request = readInput(options.io.input);
    MessagePtr message = newMessage();
    KVXSoapConverter converter;
    int result = converter.soapToKvxmsg(request.c_str(), *message);
    if (result != 0) {
        std::string reason = writeFault(converter, options.io.output);
        throw CommandFailure("soapToKvxmsg failed (" + std::to_string(result) + "): " + reason);
    }
    writeOutput(options.io.output, packetBytes(*message, options.text));
}

void reply(PacketOptions const &options, std::string const &origin, bool fill) {
    MessagePtr request = loadPacket(readInput(options.io.input));
    MessagePtr answer(request->genReply(origin));
    if (!answer)
        throw CommandFailure("genReply failed (null)");
    if (fill) {
        int filled = fillDemoAnswer(*request, *answer);
        if (filled != 0)
            throw CommandFailure("filling the reply failed (" + std::to_string(filled) +
                                 "): the reply has no data element");
    }
    writeOutput(options.io.output, packetBytes(*answer, options.text));
}

void soapOut(InputOutput const &io, std::string const &soap) {
    MessagePtr message = loadPacket(readInput(io.input));
    KVXSoapConverter converter;
    KVXSoapEnvelope *envelope = nullptr;
    SoapVersion version = soap == "1.2" ? SoapVersion12 : SoapVersion11;
    int result = converter.kvxmsgToSoap(*message, version, envelope);
    std::unique_ptr<KVXSoapEnvelope> owned(envelope);
    if (result != 0 || !owned) {
        std::string reason = writeFault(converter, io.output);
        throw CommandFailure("kvxmsgToSoap failed (" + std::to_string(result) + "): " + reason);
    }
    std::unique_ptr<char, decltype(&std::free)> text(owned->toText(), &std::free);
    if (!text)
        throw CommandFailure("toText of the envelope failed (null)");
    writeOutput(io.output, withLineFeed(text.get()));
}

void addTextFlag(CLI::App &command, PacketOptions &options) {
    command.add_flag("--text", options.text, "write the packet as XML text instead of a frame");
}

} // namespace

void addSoapCommands(CLI::App &app) {
    auto inOptions = std::make_shared<PacketOptions>();
    CLI::App *inCommand =
        app.add_subcommand("soap-in", "a SOAP 1.1 or 1.2 request to a packet (soapToKvxmsg)");
    addInputOutput(*inCommand, inOptions->io, "a SOAP request");
    addTextFlag(*inCommand, *inOptions);
    inCommand->footer(
        "The operation goes under data/<operator>, its name and namespace into the cookie.\n"
        "When the converter refuses the request, the SOAP fault it made is written instead\n"
        "and the exit status is 1.\n"
        "Examples:\n"
        "  kvxmsg soap-in examples/soap/getinfo-1.1.xml -o request.bin\n"
        "  kvxmsg soap-in --text examples/soap/getinfo-1.2-header.xml");
    setAction(*inCommand, [inOptions]() { soapIn(*inOptions); });

    auto replyOptions = std::make_shared<PacketOptions>();
    auto origin = std::make_shared<std::string>();
    auto fill = std::make_shared<bool>(false);
    CLI::App *replyCommand =
        app.add_subcommand("reply", "the reply genReply makes for a request packet");
    addInputOutput(*replyCommand, replyOptions->io, "the request, a frame or XML text");
    replyCommand->add_option("--origin", *origin, "the replying component, the reply's origin")
        ->option_text("NAME")
        ->required();
    replyCommand->add_flag("--fill", *fill,
                           "answer in data as a demonstration operator would: getinfo and "
                           "getuptime get values, any other operation an operator error");
    addTextFlag(*replyCommand, *replyOptions);
    replyCommand->footer("Examples:\n"
                         "  kvxmsg reply --origin agent request.bin -o reply.bin\n"
                         "  kvxmsg reply --origin agent --fill --text request.bin");
    setAction(*replyCommand,
              [replyOptions, origin, fill]() { reply(*replyOptions, *origin, *fill); });

    auto outIo = std::make_shared<InputOutput>();
    auto soap = std::make_shared<std::string>("1.1");
    CLI::App *outCommand = app.add_subcommand(
        "soap-out", "a reply packet to a SOAP response, or a fault when it holds an error");
    addInputOutput(*outCommand, *outIo, "the reply, a frame or XML text");
    outCommand->add_option("--soap", *soap, "SOAP version of the envelope")
        ->check(CLI::IsMember({"1.1", "1.2"}))
        ->option_text("1.1|1.2")
        ->capture_default_str();
    outCommand->footer(
        "A reply with an error gives a SOAP fault with the error as detail (exit status 0);\n"
        "when the converter cannot convert, its fault is written and the exit status is 1.\n"
        "Example:\n"
        "  kvxmsg soap-out --soap 1.2 reply.bin");
    setAction(*outCommand, [outIo, soap]() { soapOut(*outIo, *soap); });
}

} // namespace Tool
} // namespace KVX
