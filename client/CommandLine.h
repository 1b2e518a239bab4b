#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/commands/Alarms.h"
#include "client/commands/Applications.h"
#include "client/commands/Capture.h"
#include "client/commands/Certificate.h"
#include "client/commands/Commands.h"
#include "client/commands/Console.h"
#include "client/commands/ControlGroups.h"
#include "client/commands/Explain.h"
#include "client/commands/FullView.h"
#include "client/commands/History.h"
#include "client/commands/Push.h"
#include "client/commands/Replay.h"
#include "client/commands/Report.h"
#include "client/commands/Token.h"
#include "client/commands/Top.h"
#include "client/commands/UserData.h"
#include "client/files/Check.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

inline constexpr const char* kProgramName = "qmtctl";
inline constexpr const char* kProgramText = "Talks to the monitoring daemon qmtdmon";

/// The command line and the command that it chose.
struct CommandLine {
  CommonOptions common;
  RecordOptions records;
  double overSeconds = 1;
  WatchOptions watch;
  TopOptions top;
  ViewOptions view;
  ControlGroupOptions groups;
  CheckOptions check;
  ExplainOptions explain;
  HistoryOptions history;
  UserDataOptions userData;
  TokenOptions token;
  CertificateOptions certificate;
  CaptureOptions capture;
  ReplayOptions replay;
  AlarmOptions alarms;
  ReportOptions report;
  std::uint64_t alarm = 0;
  bool isPrinting = false;
  std::uint64_t condition = 0;
  long seconds = 0;
  ConditionChange change;
  bool json = false;
  bool csv = false;
  std::string item;
  std::string value;
  std::vector<std::string> words;
  std::function<int()> run;
  /// The values of options that take one of a few.
  std::map<const CLI::Option*, std::vector<std::string>> choices;
};

/// Parses the command line and runs the command that it names; the exit value.
[[nodiscard]] int RunCommandLine(int argc, char** argv);

/// Builds all commands into `app`; both outlive its parsing, after which `line.run` is the command
/// that was chosen.
void BuildCommands(CLI::App& app, CommandLine& line);

/// The part of it that changes things or looks at files.
void AddChangingCommands(CLI::App& app, CommandLine& line);
/// The full-screen view.
void AddViewCommands(CLI::App& app, CommandLine& line);
/// The part for alarms and for what is pushed.
void AddFleetCommands(CLI::App& app, CommandLine& line);
/// The report on what was kept.
void AddReportCommand(CLI::App& app, CommandLine& line);
/// The part for hosts in files.
void AddCaptureCommands(CLI::App& app, CommandLine& line);
/// The part for who asks over the network.
void AddGateCommands(CLI::App& app, CommandLine& line);
/// The part for who begins.
void AddFirstCommands(CLI::App& app, CommandLine& line);

/// Prints what one wants first; the exit value.
[[nodiscard]] int RunFirstSteps(const CLI::App& app);

/// The names of the commands below one, without those that no help names.
[[nodiscard]] std::vector<std::string> SubcommandNames(const CLI::App& command);
/// That there is no such command below `command`, and what comes nearest.
[[nodiscard]] std::string NoCommand(const CLI::App& command, const std::string& word);

// What several commands have.

[[nodiscard]] Format ChosenFormat(const CommandLine& line);
CLI::Option* AddJson(CLI::App* command, CommandLine& line);
/// Tables if neither is given.
void AddFormats(CLI::App* command, CommandLine& line);
/// Adds the options that say which rows and columns to show; each may be given again.
void AddChoice(CLI::App* command, ChoiceOptions& choice);
/// Has the option take a whole number of decimal digits in this range.
CLI::Option* TakeNumber(CLI::Option* option, std::uint64_t least, std::uint64_t most = UINT64_MAX);
/// Has the option take one of `values`, which its help names itself.
CLI::Option* TakeOneOf(CLI::Option* option, CommandLine& line, std::vector<std::string> values);
