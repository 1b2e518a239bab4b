#include "client/CommandLine.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <utility>

#include "client/Generate.h"

namespace {

CLI::Option* AddRecords(CLI::App* command, CommandLine& line) {
  return command
      ->add_option("RECORD", line.records.records, "Record name, as in CPUP, 4:CPUP or 3:PD")
      ->required();
}

/// What is shown instead of what happens between two looks.
void AddLooks(CLI::App* command, CommandLine& line) {
  CLI::Option* sinceBoot = command->add_flag("--since-boot,--rates", line.records.rates,
                                             "Averages since the machine was started");
  command->add_flag("--raw", line.records.raw, "The record as it is, with totals since the start")
      ->excludes(sinceBoot);
}

void AddRowCommands(CLI::App& app, CommandLine& line) {
  CLI::App* get = app.add_subcommand("get", "Collect records now, all in one snapshot");
  CLI::App* last = app.add_subcommand("last", "Show the rows that the schedule made last");
  for (CLI::App* command : {get, last}) {
    AddRecords(command, line);
    AddFormats(command, line);
    AddChoice(command, line.records.choice);
  }
  AddLooks(get, line);
  get->add_option("--over", line.overSeconds, "Seconds from look to look, 1 if not given")
      ->excludes("--raw")
      ->excludes("--since-boot");
  get->callback([&] {
    line.run = [&] {
      line.records.format = ChosenFormat(line);
      return RunGet(line.common, line.records, line.overSeconds);
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
    AddChoice(command, line.records.choice);
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
          "From this time on: 90s, 1h30m, 2d or 1w ago, 18:30, or \"2026-11-25 07:30\"");
  addTime(history, "--until", line.history.until, "Up to this time, as of --since");
  history->add_option("--plot", line.history.plot, "Draw the field LABEL over time")
      ->option_text("LABEL")
      ->excludes("--json")
      ->excludes("--csv");
  addTime(show, "--at", line.history.at, "The time, as for history")->required();
}

void AddWatch(CLI::App& app, CommandLine& line) {
  CLI::App* watch = app.add_subcommand("watch", "Collect records again and again");
  AddRecords(watch, line);
  AddLooks(watch, line);
  AddChoice(watch, line.records.choice);
  AddJson(watch, line)->description("Print one JSON array a line");
  CLI::Option* every = watch->add_option("--every", line.watch.everySeconds,
                                         "Seconds from sample to sample, 0.1 or more");
  watch
      ->add_flag("--scheduled", line.watch.isScheduled,
                 "Show what the schedule makes, as it makes it; nothing is collected for it")
      ->excludes(every)
      ->excludes("--since-boot")
      ->excludes("--raw");
  TakeNumber(watch->add_option("--count", line.watch.count, "End after so many samples"), 1);
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
  TakeOneOf(
      top->add_option_function<std::string>("--by", setOrder, "cpu (if not given), memory or io")
          ->option_text("FIGURE"),
      line, {"cpu", "memory", "io"});
  top->add_option("--every", line.top.everySeconds, "Seconds from look to look, 2 if not given");
  TakeNumber(top->add_option("--count", line.top.count, "End after so many looks"), 1);
  TakeNumber(top->add_option("--rows", line.top.rows, "Processes to show of each look"), 1);
  top->callback([&] { line.run = [&] { return RunTop(line.common, line.top); }; });
}

void AddControlGroups(CLI::App& app, CommandLine& line) {
  CLI::App* groups = app.add_subcommand("cgroups", "Show the tree of control groups");
  groups->add_option("PATH", line.groups.path, "A group to show with those below it, else all");
  groups
      ->add_option("--sort", line.groups.sort,
                   "The order within each group: cpu, memory (if not given), io, processes, or "
                   "LABEL as in get")
      ->allow_extra_args(false)
      ->option_text("FIELD");
  TakeNumber(groups->add_option("--depth", line.groups.levels,
                                "Levels to show below the group, 0 for none"),
             0)
      ->option_text("N");
  groups->add_option("--over", line.groups.overSeconds, "Seconds from look to look, 1 if not given")
      ->option_text("S");
  groups->add_flag("--json", line.groups.json, "Print JSON");
  groups->callback([&] { line.run = [&] { return RunControlGroups(line.common, line.groups); }; });
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
  TakeOneOf(app.add_option_function<std::string>("--color", setColor, "auto, always or never")
                ->option_text("WHEN"),
            line, {"auto", "always", "never"});
  app.require_subcommand(1);
  app.fallthrough();
}

/// Commands of the installation and of the completions, which no help names.
void AddHiddenCommands(CLI::App& app, CommandLine& line) {
  CLI::App* generate = app.add_subcommand("generate")->group("");
  generate->add_option("KIND", line.item)
      ->required()
      ->check(CLI::IsMember({"man", "bash", "zsh", "fish"}));
  generate->callback([&] { line.run = [&] { return RunGenerate(line.item); }; });
  CLI::App* records = app.add_subcommand("complete-records")->group("");
  records->callback([&] { line.run = [&] { return RunCompleteRecords(line.common); }; });
  CLI::App* labels = app.add_subcommand("complete-labels")->group("");
  labels->add_option("WORD", line.words);
  labels->callback([&] { line.run = [&] { return RunCompleteLabels(line.common, line.words); }; });
  CLI::App* applications = app.add_subcommand("complete-applications")->group("");
  applications->callback([&] { line.run = [&] { return RunCompleteApplications(line.common); }; });
}

}  // namespace

Format ChosenFormat(const CommandLine& line) {
  return line.json ? Format::kJson : line.csv ? Format::kCsv : Format::kTable;
}

CLI::Option* AddJson(CLI::App* command, CommandLine& line) {
  return command->add_flag("--json", line.json, "Print JSON");
}

void AddChoice(CLI::App* command, ChoiceOptions& choice) {
  const auto add = [command](const char* name, std::vector<std::string>& texts, const char* help) {
    command->add_option(name, texts, help)->allow_extra_args(false);
  };
  add("--where", choice.where,
      "Rows with LABEL=VALUE, or != < <= > >= and ~ or !~ for a shell pattern");
  add("--sort", choice.sort, "Sort by LABEL, +LABEL ascending, -LABEL descending");
  add("--columns", choice.columns, "The columns LABEL,LABEL,... alone, in this order; * for all");
}

void AddFormats(CLI::App* command, CommandLine& line) {
  CLI::Option* json = AddJson(command, line);
  command->add_flag("--csv", line.csv, "Print comma-separated values")->excludes(json);
}

CLI::Option* TakeNumber(CLI::Option* option, std::uint64_t least, std::uint64_t most) {
  const auto read = [least, most](std::string& text) -> std::string {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < least ||
        number > most) {
      const std::string range =
          most == UINT64_MAX ? " of " + std::to_string(least) + " or more"
                             : " from " + std::to_string(least) + " to " + std::to_string(most);
      return '"' + text + "\" is no whole number" + range;
    }
    // The parser takes a number for octal that begins with a zero.
    text = std::to_string(number);
    return "";
  };
  return option->transform(CLI::Validator(read, ""));
}

CLI::Option* TakeOneOf(CLI::Option* option, CommandLine& line, std::vector<std::string> values) {
  option->check(CLI::IsMember(values).description(""));
  line.choices[option] = std::move(values);
  return option;
}

void BuildCommands(CLI::App& app, CommandLine& line) {
  AddCommonOptions(app, line);
  AddRowCommands(app, line);
  AddHistory(app, line);
  AddReportCommand(app, line);
  AddWatch(app, line);
  AddTop(app, line);
  AddViewCommands(app, line);
  AddControlGroups(app, line);
  AddOtherCommands(app, line);
  AddChangingCommands(app, line);
  AddFleetCommands(app, line);
  AddCaptureCommands(app, line);
  AddGateCommands(app, line);
  AddFirstCommands(app, line);
  AddHiddenCommands(app, line);
}
