// kvxmsg: every road of the message library as one command. This file sets up
// the command line, runs the chosen command and turns any failure into one line
// on standard error and a non-zero exit status. Single-threaded.
#include "tools/Commands.h"

#include <kvx/KVXCommon.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace KVX {
namespace Tool {

namespace {

std::string commandName = "kvxmsg";

// Exit statuses: 1 a command failed, 2 the command line is wrong, 70 the
// library reported a programming fault (an assertion).
constexpr int ExitFailure = 1;
constexpr int ExitUsage = 2;
constexpr int ExitAssertion = 70;

// The library asserts only on caller bugs; should one fire, say where in one
// line and stop, instead of the default report and abort().
void reportAssertion(char const *expression, char const *file, int line) {
    std::fflush(stdout);
    std::fprintf(stderr, "kvxmsg: %s: internal assertion failed: %s (%s:%d)\n", commandName.c_str(),
                 expression, file, line);
    std::_Exit(ExitAssertion);
}

char const *const Overview =
    "kvxmsg: the roads of the KVXMessage library as commands.\n"
    "Every command reads a file or standard input (-) and writes standard output\n"
    "or the file given with -o. On failure it prints one line on standard error\n"
    "and exits with status 1 (2 for a wrong command line).";

char const *const Examples = "Examples:\n"
                             "  kvxmsg encode packet.xml -o packet.bin\n"
                             "  kvxmsg decode packet.bin\n"
                             "  kvxmsg dump packet.bin --json\n"
                             "  kvxmsg verify packet.bin\n"
                             "  kvxmsg split capture.raw pieces/\n"
                             "  kvxmsg get packet.bin data/server/uptime --as int\n"
                             "  kvxmsg soap-in request.xml | kvxmsg reply --origin agent --fill | "
                             "kvxmsg soap-out --soap 1.2\n"
                             "Run 'kvxmsg COMMAND --help' for the options of a command.";

} // namespace

void addInputOutput(CLI::App &command, InputOutput &io, std::string const &inputHelp) {
    command.add_option("INPUT", io.input, inputHelp + " ('-' or none: standard input)");
    command.add_option("-o,--output", io.output, "write to this file instead of standard output")
        ->option_text("FILE");
}

void setAction(CLI::App &command, std::function<void()> work) {
    std::string name = command.get_name();
    command.callback([name, work]() {
        commandName = name;
        work();
    });
}

std::string const &currentCommand() {
    return commandName;
}

} // namespace Tool
} // namespace KVX

int main(int argc, char **argv) {
    using namespace KVX::Tool;
    KVX::setAssertHandler(reportAssertion);

    CLI::App app(Overview, "kvxmsg");
    app.footer(Examples);
    app.require_subcommand(1);
    addTextCommands(app);
    addFrameCommands(app);
    addValueCommands(app);
    addSoapCommands(app);

    try {
        app.parse(argc, argv);
    } catch (CLI::Success const &done) {
        // --help of the tool or of a command: the text goes to standard output.
        return app.exit(done, std::cout, std::cerr);
    } catch (CLI::ParseError const &wrong) {
        std::string reason = wrong.what();
        std::replace(reason.begin(), reason.end(), '\n', ' ');
        std::cerr << "kvxmsg: " << reason << " (see kvxmsg --help)\n";
        return ExitUsage;
    } catch (CommandFailure const &failure) {
        std::fflush(stdout);
        std::cerr << "kvxmsg: " << currentCommand() << ": " << failure.what() << "\n";
        return ExitFailure;
    } catch (std::exception const &unexpected) {
        std::fflush(stdout);
        std::cerr << "kvxmsg: " << currentCommand() << ": " << unexpected.what() << "\n";
        return ExitFailure;
    }
    return 0;
}
