// The kvxmsg commands, grouped by concern. Each add* function registers its
// subcommands with their options, help text and examples on the top-level
// application; the callback of a subcommand does the work and throws
// CommandFailure on failure. Single-threaded.
#ifndef KVX_TOOLS_COMMANDS_H
#define KVX_TOOLS_COMMANDS_H

#include "tools/ToolSupport.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace KVX {
namespace Tool {

// encode, decode: XML text and frames.
void addTextCommands(CLI::App &app);
// dump, verify, split: frames as bytes.
void addFrameCommands(CLI::App &app);
// get, set: values by path.
void addValueCommands(CLI::App &app);
// soap-in, reply, soap-out: the SOAP road and reply generation.
void addSoapCommands(CLI::App &app);

// The INPUT positional (default "-") and the -o/--output option.
void addInputOutput(CLI::App &command, InputOutput &io, std::string const &inputHelp);

// Makes `work` the callback of `command`; while it runs, the command's name is
// the one failure messages and assertion reports carry.
void setAction(CLI::App &command, std::function<void()> work);

// The name of the command that is running, "kvxmsg" before any.
std::string const &currentCommand();

} // namespace Tool
} // namespace KVX

#endif // KVX_TOOLS_COMMANDS_H
