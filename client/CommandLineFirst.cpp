#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>

#include "client/CommandLine.h"
#include "client/ask/Errors.h"
#include "client/doctor/Doctor.h"
#include "client/show/Nearest.h"

namespace {

/// What one wants first: the command that it takes, and the line that tells of it.
struct FirstStep {
  const char* command;
  const char* line;
};

constexpr std::array<FirstStep, 9> kFirstSteps{{
    {"view", "qmtctl view                    the host on the full screen, now and then"},
    {"get", "qmtctl get PI                  the figures of the whole machine, now"},
    {"top", "qmtctl top                     the processes that load it most"},
    {"history", "qmtctl history PI --since 1h   what was kept of the last hour"},
    {"alarms", "qmtctl alarms                  what went wrong, the newest first"},
    {"report", "qmtctl report --since 1d       a summary of the last day"},
    {"status", "qmtctl status                  how the daemon is doing"},
    {"doctor", "qmtctl doctor                  what hinders it, and what to do"},
    {"help", "qmtctl help [COMMAND]          all commands, or one; \"man qmtctl\" has the rest"},
}};

/// Null if the command has no such command below it that a help names.
const CLI::App* FindCommand(const CLI::App& command, const std::string& word) {
  const std::vector<const CLI::App*> found = command.get_subcommands([&](const CLI::App* known) {
    return known->get_name() == word && !known->get_group().empty();
  });
  return found.empty() ? nullptr : found.front();
}

/// Prints the help of the command that the words lead to.
int RunHelp(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* command = &app;
  std::string above;
  for (const std::string& word : words) {
    const CLI::App* next = FindCommand(*command, word);
    if (next == nullptr) {
      throw UsageError(NoCommand(*command, word));
    }
    above += (above.empty() ? "" : " ") + command->get_name();
    command = next;
  }
  // The program's own help() would be that of the command which was chosen, this one.
  WriteOutput(words.empty() ? app.get_formatter()->make_help(command, command->get_name(),
                                                             CLI::AppFormatMode::Normal)
                            : command->help(above));
  return kExitDone;
}

}  // namespace

std::vector<std::string> SubcommandNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* subcommand : command.get_subcommands([](const CLI::App*) { return true; })) {
    if (!subcommand->get_group().empty()) {
      names.push_back(subcommand->get_name());
    }
  }
  return names;
}

std::string NoCommand(const CLI::App& command, const std::string& word) {
  Nearest nearest(word);
  for (const std::string& name : SubcommandNames(command)) {
    nearest.Add(name, name);
  }
  return "no command \"" + word + '"' + nearest.Question();
}

int RunFirstSteps(const CLI::App& app) {
  std::string text = "qmtctl asks the monitoring daemon of this host. What one wants first:\n";
  for (const FirstStep& step : kFirstSteps) {
    if (FindCommand(app, step.command) != nullptr) {
      text += std::string("  ") + step.line + '\n';
    }
  }
  WriteOutput(text);
  return kExitDone;
}

void AddFirstCommands(CLI::App& app, CommandLine& line) {
  CLI::App* doctor = app.add_subcommand("doctor", "Look for what hinders the daemon or its users");
  AddJson(doctor, line);
  doctor->callback([&] { line.run = [&] { return RunDoctor(line.common, line.json); }; });
  CLI::App* help = app.add_subcommand("help", "Show what there is to say of a command");
  help->add_option("COMMAND", line.words, "A command and its subcommand; all if not given")
      ->expected(0, 2);
  help->callback([&] { line.run = [&] { return RunHelp(app, line.words); }; });
}
