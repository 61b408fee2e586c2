// dump, verify and split: commands that look at frames as bytes. dump prints
// the annotated layout (FrameDump), verify asks the library's frame verifier,
// split cuts a stream with the framing rule of isComplete. They never load a
// message, so any bytes are safe to give them. Single-threaded.
#include "tools/Commands.h"
#include "tools/FrameDump.h"

#include <kvx/KVXBinary.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace KVX {
namespace Tool {

namespace {

int bufferLength(std::string const &bytes) {
    if (bytes.size() > static_cast<std::size_t>(INT_MAX))
        throw CommandFailure("input of " + std::to_string(bytes.size()) +
                             " bytes is larger than the framing rule can measure");
    return static_cast<int>(bytes.size());
}

void dump(InputOutput const &io, bool json) {
    std::string bytes = readInput(io.input);
    FrameLayout layout = analyseFrame(bytes.data(), bytes.size());
    writeOutput(io.output, json ? renderLayoutJson(layout) : renderLayoutText(layout));
    if (layout.fault.found)
        throw CommandFailure("fault at offset " + std::to_string(layout.fault.offset) + ": " +
                             layout.fault.reason);
}

void verify(InputOutput const &io) {
    std::string bytes = readInput(io.input);
    int length = bufferLength(bytes);
    int faultOffset = 0;
    int result = KVXBinary::verify(bytes.data(), length, &faultOffset);
    if (result != 0) {
        writeOutput(io.output, "fault at offset " + std::to_string(faultOffset) + "\n");
        throw CommandFailure("verify failed (" + std::to_string(result) + "): fault at offset " +
                             std::to_string(faultOffset));
    }
    int frameLength = KVXBinary::isComplete(bytes.data(), length);
    std::string report = "ok: " + std::to_string(frameLength) + " bytes";
    if (frameLength < length)
        report += " (" + std::to_string(length - frameLength) + " trailing bytes not part of it)";
    writeOutput(io.output, report + "\n");
}

std::string counted(std::size_t count, char const *noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string pieceName(std::size_t index, char const *extension) {
    char name[32];
    std::snprintf(name, sizeof name, "%04zu.%s", index, extension);
    return name;
}

void writePiece(std::filesystem::path const &file, char const *data, std::size_t size) {
    writeOutput(file.string(), std::string(data, size));
}

void split(InputOutput const &io, std::string const &directory) {
    std::string bytes = readInput(io.input);
    int length = bufferLength(bytes);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error || !std::filesystem::is_directory(directory))
        throw CommandFailure("cannot create directory " + directory +
                             (error ? ": " + error.message() : std::string(": not a directory")));
    std::filesystem::path const folder(directory);
    std::string report;
    std::size_t frames = 0, texts = 0;
    int offset = 0;
    while (offset < length) {
        char const *piece = bytes.data() + offset;
        int remaining = length - offset;
        int pieceLength = KVXBinary::isComplete(piece, remaining);
        std::size_t index = frames + texts + 1;
        if (pieceLength <= 0 || pieceLength > remaining) {
            // More bytes would be needed: the stream ends inside a piece.
            std::string name = pieceName(index, "part");
            writePiece(folder / name, piece, static_cast<std::size_t>(remaining));
            report += "incomplete: " + std::to_string(remaining) + " bytes at offset " +
                      std::to_string(offset) + " written to " + name + "\n";
            writeOutput(io.output, report);
            throw CommandFailure("trailing incomplete piece of " + std::to_string(remaining) +
                                 " bytes at offset " + std::to_string(offset) + " (isComplete " +
                                 std::to_string(pieceLength) + ")");
        }
        bool frame = remaining >= 4 && KVXBinary::isOfTheKind(piece) != 0;
        std::string name = pieceName(index, frame ? "bin" : "xml");
        std::string what;
        if (frame) {
            ++frames;
            int faultOffset = 0;
            what = KVXBinary::verify(piece, pieceLength, &faultOffset) == 0
                       ? "frame, verified"
                       : "frame, fault at offset " + std::to_string(faultOffset);
            writePiece(folder / name, piece, static_cast<std::size_t>(pieceLength));
        } else {
            // A text ends at its NUL; the file holds the text without it.
            ++texts;
            what = "text";
            writePiece(folder / name, piece, static_cast<std::size_t>(pieceLength - 1));
        }
        report += name + "  offset " + std::to_string(offset) + "  " + std::to_string(pieceLength) +
                  " bytes  " + what + "\n";
        offset += pieceLength;
    }
    report += counted(frames + texts, "piece") + ": " + counted(frames, "frame") + ", " +
              counted(texts, "text") + " in " + directory + "\n";
    writeOutput(io.output, report);
}

} // namespace

void addFrameCommands(CLI::App &app) {
    auto dumpIo = std::make_shared<InputOutput>();
    auto dumpJson = std::make_shared<bool>(false);
    CLI::App *dumpCommand =
        app.add_subcommand("dump", "a frame's annotated layout: head, every node, the name table");
    addInputOutput(*dumpCommand, *dumpIo, "a frame");
    dumpCommand->add_flag("--json", *dumpJson, "one JSON object instead of tables");
    dumpCommand->footer(
        "Each node shows its offset, depth, id and name, kind, namespace id, size, node size,\n"
        "value and namespace URI; names come from the frame's name table, else from the\n"
        "vocabulary. A damaged frame is listed up to its first fault, which ends the listing\n"
        "as 'fault at offset X: reason' (exit status 1).\n"
        "Examples:\n"
        "  kvxmsg dump request.bin\n"
        "  kvxmsg dump --json request.bin -o request.json");
    setAction(*dumpCommand, [dumpIo, dumpJson]() { dump(*dumpIo, *dumpJson); });

    auto verifyIo = std::make_shared<InputOutput>();
    CLI::App *verifyCommand = app.add_subcommand(
        "verify", "check that a frame is complete and every node and name entry is consistent");
    addInputOutput(*verifyCommand, *verifyIo, "a frame");
    verifyCommand->footer("Prints 'ok: N bytes', or 'fault at offset X' and exits with status 1.\n"
                          "Example:\n"
                          "  kvxmsg verify request.bin");
    setAction(*verifyCommand, [verifyIo]() { verify(*verifyIo); });

    auto splitIo = std::make_shared<InputOutput>();
    auto splitDirectory = std::make_shared<std::string>();
    CLI::App *splitCommand = app.add_subcommand(
        "split", "cut a stream of frames and NUL-terminated texts into one file per piece");
    splitCommand->add_option("INPUT", splitIo->input, "the stream ('-': standard input)")
        ->required();
    splitCommand->add_option("DIR", *splitDirectory, "directory for the pieces (created)")
        ->required();
    splitCommand->add_option("-o,--output", splitIo->output, "write the report to this file")
        ->option_text("FILE");
    splitCommand->footer(
        "Pieces are cut where isComplete says: a frame by its head, a text at its NUL.\n"
        "They go to DIR/0001.bin (frames) or DIR/0001.xml (texts, without the NUL). A\n"
        "trailing incomplete piece goes to DIR/NNNN.part and the exit status is 1.\n"
        "Example:\n"
        "  kvxmsg split capture.raw pieces/");
    setAction(*splitCommand, [splitIo, splitDirectory]() { split(*splitIo, *splitDirectory); });
}

} // namespace Tool
} // namespace KVX
