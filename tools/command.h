// command.h - how the tqbase tool's subcommands plug in.
//
// Each tools/cmd_*.cpp defines one or more subcommands and registers them
// with a static TQ_REGISTER_COMMAND; main() builds the CLI11 app from the
// registry in registration-name order. A subcommand's setup function adds
// its options, examples and callback; the callback returns the exit code
// through ToolExit (0 success, 1 failure with a message on stderr naming
// the command, 2 wrong usage, as for a command line that does not parse).
#ifndef TQBASE_TOOLS_COMMAND_H
#define TQBASE_TOOLS_COMMAND_H

#include <CLI/CLI.hpp>

#include <functional>
#include <initializer_list>
#include <string>

namespace tqtool {

using SetupFn = void (*)(CLI::App& app);

struct CommandRegistrar {
  CommandRegistrar(const char* order, SetupFn setup);
};

// The text of the library's last error (g_Error), or fallback when none
// is recorded.
std::string LastErrorText(const char* fallback = "unknown error");

// Ends cmd's --help with its examples: "Examples:" and one command line
// each (every subcommand has some).
void Examples(CLI::App* cmd, std::initializer_list<const char*> lines);

// The command being run, as typed ("rle decode"), for error texts:
// "tqbase <command>: <text>".
const std::string& CommandName();

// Sets the process exit code that main() returns after the callbacks ran:
// 0 success, 1 failure (the message on stderr), 2 wrong usage.
void ToolExit(int code);
int ExitCode();

}  // namespace tqtool

#define TQ_REGISTER_COMMAND_CAT2(a, b) a##b
#define TQ_REGISTER_COMMAND_CAT(a, b) TQ_REGISTER_COMMAND_CAT2(a, b)
// order: a sort key that fixes where the command appears in --help.
#define TQ_REGISTER_COMMAND(order, setup) \
  static ::tqtool::CommandRegistrar TQ_REGISTER_COMMAND_CAT(s_tqCommand_, __LINE__)(order, setup)

#endif  // TQBASE_TOOLS_COMMAND_H
