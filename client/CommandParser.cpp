#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "client/CommandLine.h"
#include "client/ask/Errors.h"
#include "client/show/Nearest.h"

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

/// The command that was understood last.
const CLI::App& CommandOf(const CLI::App& app) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
  }
  return *command;
}

/// That there is no such option, and what comes nearest of those of the command and, as they may
/// stand behind it too, those above it.
std::string NoOption(const CLI::App& command, const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  Nearest nearest(name.starts_with("--") ? name.substr(2) : "");
  for (const CLI::App* place = &command; place != nullptr; place = place->get_parent()) {
    for (const CLI::Option* option : place->get_options()) {
      for (const std::string& known : option->get_lnames()) {
        nearest.Add(known, "--" + known);
      }
    }
  }
  return "no option \"" + name + '"' + nearest.Question();
}

/// The parser's words; where a word is no command or option, that word and what comes nearest.
std::string Reason(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = CommandOf(app);
  const std::vector<std::string> unknown = app.remaining(true);
  const auto option = std::ranges::find_if(
      unknown, [](const std::string& word) { return word.size() > 1 && word.starts_with('-'); });
  const bool hasCommands = !SubcommandNames(command).empty();
  if (hasCommands && !unknown.empty() && option != unknown.begin()) {
    return NoCommand(command, unknown.front());
  }
  if (option != unknown.end()) {
    return NoOption(command, *option);
  }
  return error.what();
}

/// One line, which says where there is more to read unless it asks a question.
std::string Advised(const CLI::App& app, const std::string& reason) {
  std::string path;
  for (const CLI::App* place = &CommandOf(app); place->get_parent() != nullptr;
       place = place->get_parent()) {
    path = ' ' + place->get_name() + path;
  }
  return reason.ends_with('?') ? reason : reason + "; \"qmtctl help" + path + "\" tells more";
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CommandLine line;
  CLI::App app(kProgramText, kProgramName);
  BuildCommands(app, line);
  if (argc == 1) {
    line.run = [&app] { return RunFirstSteps(app); };
    return RunGuarded(line);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      Complain(Advised(app, Reason(app, error)));
      return kExitUsage;
    }
    std::ostringstream text;
    static_cast<void>(app.exit(error, text, text));
    line.run = [&text] {
      WriteOutput(text.str());
      return kExitDone;
    };
    return RunGuarded(line);
  }
  return RunGuarded(line);
}
