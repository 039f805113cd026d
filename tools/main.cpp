// main.cpp - entry point of the tqbase command-line tool: gathers the
// registered subcommands and runs the one named on the command line.
#include "command.h"

#include <tqbase/tqbase.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <utility>
#include <vector>

namespace tqtool {
namespace {
std::vector<std::pair<std::string, SetupFn>>& Registry() {
  static std::vector<std::pair<std::string, SetupFn>> r;
  return r;
}
int g_exitCode = 0;
std::string g_command;
}  // namespace

const std::string& CommandName() { return g_command; }

// The subcommand path named by the arguments (a command and, when it has
// one by that name, its subcommand).
void FindCommandName(CLI::App& app, int argc, char** argv) {
  CLI::App* at = &app;
  for (int i = 1; i < argc && i < 3; ++i) {
    try {
      at = at->get_subcommand(argv[i]);
    } catch (const CLI::Error&) {
      return;
    }
    g_command += (g_command.empty() ? "" : " ") + std::string(argv[i]);
  }
}

CommandRegistrar::CommandRegistrar(const char* order, SetupFn setup) {
  Registry().emplace_back(order, setup);
}
void ToolExit(int code) { g_exitCode = code; }

std::string LastErrorText(const char* fallback) {
  CString text;
  g_Error.GetLastError(text);
  return text.IsEmpty() ? std::string(fallback) : std::string(text.GetString());
}
int ExitCode() { return g_exitCode; }

void Examples(CLI::App* cmd, std::initializer_list<const char*> lines) {
  std::string text = cmd->get_footer();
  if (!text.empty()) text += "\n\n";
  text += "Examples:";
  for (const char* l : lines) text += std::string("\n  ") + l;
  cmd->footer(text);
}

}  // namespace tqtool

namespace {
// The library's debug trace (assertions, the leak report, shut-down lines)
// is for developers: the tool shows it on stderr only with TQBASE_TRACE=1.
void QuietTraceSink(const char*) {}
void StderrTraceSink(const char* text) {
  std::fputs(text, stderr);
  const size_t n = std::strlen(text);
  if (n > 0 && text[n - 1] != '\n') std::fputc('\n', stderr);
  std::fflush(stderr);
}
}  // namespace

int main(int argc, char** argv) {
  const char* trace = std::getenv("TQBASE_TRACE");
  tqSetTraceSink(trace && std::strcmp(trace, "1") == 0 ? &StderrTraceSink : &QuietTraceSink);
  CLI::App app{"tqbase - the tqBase library's command-line tool"};
  // Options are "--name" or "-n" on every platform; a word that starts
  // with '/' is a path (CLI11 would take it for an option on Windows).
  // Set before the commands are added: they inherit it.
  app.allow_windows_style_options(false);
  app.require_subcommand(1);
  auto& reg = tqtool::Registry();
  std::stable_sort(reg.begin(), reg.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& entry : reg) entry.second(app);
  tqtool::FindCommandName(app, argc, argv);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version end parsing with success; anything else is a
    // command line that does not parse: usage, exit status 2.
    return app.exit(e) == 0 ? 0 : 2;
  } catch (const std::bad_alloc&) {
    // A job larger than the machine: said, not a crash.
    std::fprintf(stderr, "tqbase %s: out of memory\n", tqtool::CommandName().c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tqbase %s: %s\n", tqtool::CommandName().c_str(), e.what());
    return 1;
  }
  return tqtool::ExitCode();
}
