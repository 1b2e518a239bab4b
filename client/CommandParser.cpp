#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "client/CommandLine.h"
#include "client/ask/Errors.h"

namespace {

int RunGuarded(const CommandLine& line) {
  try {
    return line.run();
  } catch (const OutputClosed&) {
    return kExitDone;
  } catch (const UsageError& error) {
    Complain(error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    Complain(error.what());
    return kExitFailed;
  }
}

/// The parser's words; where it misses a command though a word stands in its place, that word.
std::string Reason(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
  }
  const std::vector<std::string> unknown = app.remaining(true);
  const bool isCommand = command->get_require_subcommand_min() > 0 && !unknown.empty() &&
                         !unknown.front().starts_with('-');
  return isCommand ? "no command \"" + unknown.front() + '"' : error.what();
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CommandLine line;
  CLI::App app(kProgramText, kProgramName);
  BuildCommands(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      Complain(Reason(app, error));
      std::cerr << "Run with --help for more information.\n";
      return kExitUsage;
    }
    static_cast<void>(app.exit(error));
    if (!std::cout.flush()) {
      Complain("cannot write the output");
      return kExitFailed;
    }
    return kExitDone;
  }
  return RunGuarded(line);
}
