#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <string>

#include "client/Applications.h"
#include "client/Check.h"
#include "client/Commands.h"
#include "client/Errors.h"
#include "client/History.h"
#include "client/ReportText.h"
#include "client/Schedules.h"
#include "client/Top.h"
#include "client/UserData.h"

namespace {

/// The command line and the command that it chose.
struct CommandLine {
  CommonOptions common;
  RecordOptions records;
  WatchOptions watch;
  TopOptions top;
  CheckOptions check;
  ExplainOptions explain;
  HistoryOptions history;
  UserDataOptions userData;
  std::uint64_t condition = 0;
  long seconds = 0;
  ConditionChange change;
  bool json = false;
  bool csv = false;
  std::string item;
  std::string value;
  std::function<int()> run;
};

Format ChosenFormat(const CommandLine& line) {
  return line.json ? Format::kJson : line.csv ? Format::kCsv : Format::kTable;
}

CLI::Option* AddJson(CLI::App* command, CommandLine& line) {
  return command->add_flag("--json", line.json, "Print JSON");
}

CLI::Option* AddRecords(CLI::App* command, CommandLine& line) {
  return command
      ->add_option("RECORD", line.records.records, "Record name, as in CPUP, 4:CPUP or 3:PD")
      ->required();
}

void AddRates(CLI::App* command, CommandLine& line) {
  command->add_flag("--rates", line.records.rates, "Averages since the machine was started");
}

/// Options that say which rows and columns to show; each may be given again.
void AddChoice(CLI::App* command, CommandLine& line) {
  ChoiceOptions& choice = line.records.choice;
  const auto add = [command](const char* name, std::vector<std::string>& texts, const char* help) {
    command->add_option(name, texts, help)->allow_extra_args(false);
  };
  add("--where", choice.where, "Rows with LABEL=VALUE, or != < <= > >= and ~ for a shell pattern");
  add("--sort", choice.sort, "Sort by LABEL, +LABEL ascending, -LABEL descending");
  add("--columns", choice.columns, "The columns LABEL,LABEL,... alone, in this order");
}

/// Tables if neither is given.
void AddFormats(CLI::App* command, CommandLine& line) {
  CLI::Option* json = AddJson(command, line);
  command->add_flag("--csv", line.csv, "Print comma-separated values")->excludes(json);
}

void AddRowCommands(CLI::App& app, CommandLine& line) {
  CLI::App* get = app.add_subcommand("get", "Collect records now, all in one snapshot");
  CLI::App* last = app.add_subcommand("last", "Show the rows that the schedule made last");
  for (CLI::App* command : {get, last}) {
    AddRecords(command, line);
    AddFormats(command, line);
    AddChoice(command, line);
  }
  AddRates(get, line);
  get->callback([&] {
    line.run = [&] {
      line.records.format = ChosenFormat(line);
      return RunGet(line.common, line.records);
    };
  });
  last->callback([&] {
    line.run = [&] {
      line.records.format = ChosenFormat(line);
      return RunLast(line.common, line.records);
    };
  });
}

void AddHistory(CLI::App& app, CommandLine& line) {
  CLI::App* history = app.add_subcommand("history", "Show the rows that the daemon has kept");
  CLI::App* show = app.add_subcommand("show", "Show the kept rows of the time nearest to another");
  for (CLI::App* command : {history, show}) {
    AddRecords(command, line)->expected(1);
    AddFormats(command, line);
    AddChoice(command, line);
    command->callback([&line] {
      line.run = [&line] {
        line.history.what = line.records;
        line.history.what.format = ChosenFormat(line);
        return RunHistory(line.common, line.history);
      };
    });
  }
  const auto addTime = [](CLI::App* command, const char* name, std::string& text,
                          const char* help) {
    return command->add_option(name, text, help)->option_text("TIME");
  };
  addTime(history, "--since", line.history.since,
          "From this time on: 90s, 30m, 6h or 2d ago, or a date as in \"2026-11-25 07:30\"");
  addTime(history, "--until", line.history.until, "Up to this time");
  history->add_option("--plot", line.history.plot, "Draw the field LABEL over time")
      ->option_text("LABEL")
      ->excludes("--json")
      ->excludes("--csv");
  addTime(show, "--at", line.history.at, "The time, as for history")->required();
}

void AddWatch(CLI::App& app, CommandLine& line) {
  CLI::App* watch = app.add_subcommand("watch", "Collect records again and again");
  AddRecords(watch, line);
  AddRates(watch, line);
  AddChoice(watch, line);
  AddJson(watch, line)->description("Print one JSON array a line");
  CLI::Option* every = watch->add_option("--every", line.watch.everySeconds,
                                         "Seconds from sample to sample, 0.1 or more");
  watch
      ->add_flag("--scheduled", line.watch.isScheduled,
                 "Show what the schedule makes, as it makes it; nothing is collected for it")
      ->excludes(every)
      ->excludes("--rates");
  watch->add_option("--count", line.watch.count, "End after so many samples")
      ->check(CLI::Range(std::uint64_t{1}, UINT64_MAX));
  watch->callback([&, every] {
    if (every->empty() && !line.watch.isScheduled) {
      throw CLI::RequiredError("--every or --scheduled");
    }
    line.run = [&] {
      line.watch.what = line.records;
      line.watch.what.format = line.json ? Format::kJsonLine : Format::kTable;
      return RunWatch(line.common, line.watch);
    };
  });
}

void AddTop(CLI::App& app, CommandLine& line) {
  CLI::App* top = app.add_subcommand("top", "Show the processes that load the machine most");
  const auto setOrder = [&](const std::string& order) {
    line.top.order = order == "memory" ? TopOrder::kMemory
                     : order == "io"   ? TopOrder::kIo
                                       : TopOrder::kCpu;
  };
  top->add_option_function<std::string>("--by", setOrder, "cpu (if not given), memory or io")
      ->check(CLI::IsMember({"cpu", "memory", "io"}).description(""))
      ->option_text("FIGURE");
  const CLI::Range positive(std::uint64_t{1}, UINT64_MAX);
  top->add_option("--every", line.top.everySeconds, "Seconds from look to look, 2 if not given");
  top->add_option("--count", line.top.count, "End after so many looks")->check(positive);
  top->add_option("--rows", line.top.rows, "Processes to show of each look")->check(positive);
  top->callback([&] { line.run = [&] { return RunTop(line.common, line.top); }; });
}

void AddOtherCommands(CLI::App& app, CommandLine& line) {
  CLI::App* records = app.add_subcommand("records", "List the records of the daemon");
  AddJson(records, line);
  records->callback([&] { line.run = [&] { return RunRecords(line.common, line.json); }; });

  CLI::App* schema = app.add_subcommand("schema", "Show the layout of a record");
  AddRecords(schema, line)->expected(1);
  AddJson(schema, line);
  schema->callback([&] {
    line.run = [&] { return RunSchema(line.common, line.records.records.front(), line.json); };
  });

  CLI::App* status = app.add_subcommand("status", "Show how the daemon is doing");
  AddJson(status, line);
  status->callback([&] { line.run = [&] { return RunStatus(line.common, line.json); }; });
}

void AddConfig(CLI::App& app, CommandLine& line) {
  CLI::App* config = app.add_subcommand("config", "Show the agent's settings, or change one");
  CLI::Option* json = AddJson(config, line);
  config->require_subcommand(0, 1);
  CLI::App* set = config->add_subcommand("set", "Change a setting");
  set->add_option("ID", line.item, "The item's number, as `config` shows it")->required();
  set->add_option("VALUE", line.value, "The new value; -- in front lets it begin with a dash")
      ->required();
  // A subcommand's callback comes before that of its command.
  set->callback(
      [&] { line.run = [&] { return RunConfigSet(line.common, line.item, line.value); }; });
  config->callback([&line, json, config] {
    if (config->get_subcommands().empty()) {
      line.run = [&line] { return RunConfig(line.common, line.json); };
    } else if (json->count() != 0) {
      throw CLI::ExcludesError("--json", "set");
    }
  });
}

void AddCheck(CLI::App& app, CommandLine& line) {
  CLI::App* check = app.add_subcommand("check", "Check a file that the agent reads");
  check->add_option("FILE", line.check.file, "The file, which need not be in its place")
      ->required();
  check->add_option("--kind", line.check.kind, "workgroup, event, application, optional or ini")
      ->check(
          CLI::IsMember({"workgroup", "event", "application", "optional", "ini"}).description(""))
      ->option_text("KIND");
  check->add_option("--daemon", line.check.daemon, "The program qmtdmon that reads the file")
      ->option_text("PATH");
  check->callback([&] { line.run = [&] { return RunCheck(line.check); }; });
}

void AddWorkgroup(CLI::App& app, CommandLine& line) {
  CLI::App* workgroup = app.add_subcommand("workgroup", "Look at the workgroups");
  workgroup->require_subcommand(1);
  CLI::App* explain =
      workgroup->add_subcommand("explain", "Show which rule puts which process where");
  explain->add_option("NAME", line.explain.name, "A workgroup; all if not given");
  explain->add_option("--pid", line.explain.pid, "A process; all if not given")
      ->check(CLI::NonNegativeNumber.description(""))
      ->option_text("N");
  explain->add_flag("--json", line.explain.json, "Print JSON");
  explain->callback([&] { line.run = [&] { return RunExplain(line.common, line.explain); }; });
}

void AddAppSet(CLI::App& app, CommandLine& line) {
  CLI::App* set = app.add_subcommand("set", "Change a condition of an application");
  set->add_option("NAME", line.value, "The application")->required();
  set->add_option("N", line.condition, "The number of the condition, 1 to 15")
      ->required()
      ->check(CLI::Range(1, 15).description(""));
  set->add_option("--kind", line.change.kind, "none, execute or command-line")
      ->check(CLI::IsMember({"none", "execute", "command-line"}).description(""))
      ->option_text("KIND");
  set->add_option("--name", line.change.name, "What a program or command line must match")
      ->option_text("PATTERN");
  set->add_option("--range", line.change.range, "How many processes there must be, as 1-3")
      ->option_text("A-B");
  set->callback([&] {
    line.run = [&] { return RunAppSet(line.common, line.value, line.condition, line.change); };
  });
}

void AddApp(CLI::App& parent, CommandLine& line) {
  CLI::App* app =
      parent.add_subcommand("app", "Look at the monitored applications, or change them");
  app->require_subcommand(1);
  app->add_subcommand("list", "Show the applications, their conditions and how they do")
      ->callback([&] { line.run = [&] { return RunAppList(line.common); }; });
  CLI::App* add = app->add_subcommand("add", "Add an application without conditions");
  CLI::App* remove = app->add_subcommand("delete", "Delete an application");
  for (CLI::App* command : {add, remove}) {
    command->add_option("NAME", line.value, "The application")->required();
  }
  add->callback([&] { line.run = [&] { return RunAppAdd(line.common, line.value); }; });
  remove->callback([&] { line.run = [&] { return RunAppDelete(line.common, line.value); }; });
  AddAppSet(*app, line);
}

void AddSchedule(CLI::App& app, CommandLine& line) {
  CLI::App* schedule = app.add_subcommand("schedule", "Look at the schedules, or change them");
  schedule->require_subcommand(1);
  CLI::App* list = schedule->add_subcommand("list", "Show the schedules and how they do");
  AddJson(list, line);
  list->callback([&] { line.run = [&] { return RunScheduleList(line.common, line.json); }; });
  CLI::App* add = schedule->add_subcommand("add", "Have a record collected again and again");
  CLI::App* remove = schedule->add_subcommand("remove", "End the schedule of a record");
  for (CLI::App* command : {add, remove}) {
    command->add_option("RECORD", line.item, "Record name, as in CPUP")->required();
  }
  add->add_option("SECONDS", line.seconds, "From one collection to the next, 1 to 86400")
      ->required()
      ->check(CLI::Range(1, 86400).description(""));
  add->callback(
      [&] { line.run = [&] { return RunScheduleAdd(line.common, line.item, line.seconds); }; });
  remove->callback([&] { line.run = [&] { return RunScheduleRemove(line.common, line.item); }; });
}

void AddUserData(CLI::App& app, CommandLine& line) {
  CLI::App* data = app.add_subcommand("userdata", "Feed figures of your own to the agent");
  data->require_subcommand(1);
  UserDataOptions& options = line.userData;
  const auto add = [&](const char* name, const char* help, bool hasFile,
                       const std::function<int()>& run) {
    CLI::App* command = data->add_subcommand(name, help);
    command->add_option("KIND", options.kind, "UPI, UPIB, UPD or UPDB")->required();
    if (hasFile) {
      command->add_option("FILE", options.file, "Rows as CSV or JSON; - is the standard input")
          ->required();
      command->add_option("--limit", options.limit, "Rows that the agent takes, 1440 if not given")
          ->option_text("N");
    }
    command
        ->add_option("--wait", options.waitSeconds, "Seconds to wait for others, 10 if not given")
        ->option_text("S")
        ->check(CLI::Range(0, 3600).description(""));
    command->callback([&line, run] { line.run = run; });
    return command;
  };
  add("import", "Replace the records by rows", true, [&] { return RunUserImport(options); });
  add("append", "Add rows behind the records", true, [&] { return RunUserAppend(options); });
  add("check", "Look for faults in rows", true, [&] { return RunUserCheck(options); });
  add("clear", "Remove all records", false, [&] { return RunUserClear(options); });
  CLI::App* show = add("show", "Show the records", false, [&line] {
    line.userData.format = ChosenFormat(line);
    return RunUserShow(line.common, line.userData);
  });
  AddFormats(show, line);
}

void AddCommonOptions(CLI::App& app, CommandLine& line) {
  line.common.socket = DefaultSocket();
  app.set_version_flag("--version", "qmtctl " QMT_VERSION);
  app.add_option("--socket", line.common.socket, "The control socket of the daemon")
      ->option_text("PATH")
      ->check([](const std::string& path) { return path.empty() ? "the path is empty" : ""; });
  const auto setColor = [&](const std::string& when) {
    line.common.color = when == "always"  ? ColorMode::kAlways
                        : when == "never" ? ColorMode::kNever
                                          : ColorMode::kAuto;
  };
  app.add_option_function<std::string>("--color", setColor, "auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
      ->option_text("WHEN");
  app.require_subcommand(1);
  app.fallthrough();
}

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

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  CommandLine line;
  CLI::App app("Talks to the monitoring daemon qmtdmon", "qmtctl");
  AddCommonOptions(app, line);
  AddRowCommands(app, line);
  AddHistory(app, line);
  AddWatch(app, line);
  AddTop(app, line);
  AddOtherCommands(app, line);
  AddSchedule(app, line);
  AddConfig(app, line);
  AddApp(app, line);
  AddWorkgroup(app, line);
  AddCheck(app, line);
  AddUserData(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool isDone = app.exit(error) == 0;
    if (!std::cout.flush()) {
      Complain("cannot write the output");
      return kExitFailed;
    }
    return isDone ? kExitDone : kExitUsage;
  }
  return RunGuarded(line);
}
