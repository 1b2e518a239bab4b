#include "client/CommandLine.h"

#include <CLI/CLI.hpp>
#include "client/commands/Schedules.h"

namespace {

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
  // A positional that must be there would take the word that names the subcommand.
  CLI::Option* file =
      check->add_option("FILE", line.check.file, "The file, which need not be in its place");
  TakeOneOf(check
                ->add_option("--kind", line.check.kind,
                             "workgroup, event, application, optional, ini or alarms")
                ->option_text("KIND"),
            line, {"workgroup", "event", "application", "optional", "ini", "alarms"});
  check->add_option("--daemon", line.check.daemon, "The program qmtdmon that reads the file")
      ->option_text("PATH");
  check->require_subcommand(0, 1);
  CLI::App* alarms = check->add_subcommand("alarms", "Check a file of alarms, of whatever name");
  alarms->add_option("FILE", line.check.alarms, "The file; `alarms` in this folder if not given");
  check->callback([&line, alarms, file] {
    if (!alarms->parsed() && file->empty()) {
      throw CLI::RequiredError("FILE");
    }
    if (alarms->parsed()) {
      if (!file->empty()) {
        throw CLI::ExcludesError("FILE", "alarms");
      }
      line.check.file = line.check.alarms;
      line.check.kind = "alarms";
    }
    line.run = [&line] { return RunCheck(line.check); };
  });
}

void AddWorkgroup(CLI::App& app, CommandLine& line) {
  CLI::App* workgroup = app.add_subcommand("workgroup", "Look at the workgroups");
  workgroup->require_subcommand(1);
  CLI::App* explain =
      workgroup->add_subcommand("explain", "Show which rule puts which process where");
  explain->add_option("NAME", line.explain.name, "A workgroup; all if not given");
  TakeNumber(explain->add_option("--pid", line.explain.pid, "A process; all if not given"), 0,
             INT32_MAX)
      ->option_text("N");
  explain->add_flag("--json", line.explain.json, "Print JSON");
  explain->callback([&] { line.run = [&] { return RunExplain(line.common, line.explain); }; });
}

void AddAppSet(CLI::App& app, CommandLine& line) {
  CLI::App* set = app.add_subcommand("set", "Change a condition of an application");
  set->add_option("NAME", line.value, "The application")->required();
  TakeNumber(set->add_option("N", line.condition, "The number of the condition, 1 to 15"), 1, 15)
      ->required();
  TakeOneOf(set->add_option("--kind", line.change.kind, "none, execute or command-line")
                ->option_text("KIND"),
            line, {"none", "execute", "command-line"});
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
  TakeNumber(
      add->add_option("SECONDS", line.seconds, "From one collection to the next, 1 to 86400"), 1,
      86400)
      ->required();
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
      TakeNumber(command->add_option("--limit", options.limit,
                                     "Rows that the agent takes, 1440 if not given"),
                 0)
          ->option_text("N");
    }
    TakeNumber(command->add_option("--wait", options.waitSeconds,
                                   "Seconds to wait for others, 10 if not given"),
               0, 3600)
        ->option_text("S");
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

}  // namespace

void AddChangingCommands(CLI::App& app, CommandLine& line) {
  AddSchedule(app, line);
  AddConfig(app, line);
  AddApp(app, line);
  AddWorkgroup(app, line);
  AddCheck(app, line);
  AddUserData(app, line);
}
