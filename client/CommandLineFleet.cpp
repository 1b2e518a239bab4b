#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

namespace {

void AddAlarms(CLI::App& app, CommandLine& line) {
  CLI::App* alarms = app.add_subcommand("alarms", "List the alarms, the newest first");
  const std::vector<CLI::Option*> own{
      alarms
          ->add_option("--since", line.alarms.since,
                       "Those that were active from this time on, as history takes it")
          ->option_text("TIME"),
      alarms->add_option("--until", line.alarms.until, "Up to this time")->option_text("TIME"),
      alarms->add_flag("--active", line.alarms.isActive, "Those that are active now")};
  AddJson(alarms, line);
  alarms->require_subcommand(0, 1);
  CLI::App* show =
      alarms->add_subcommand("show", "Show an alarm, and the rows that were kept with it");
  TakeNumber(show->add_option("ID", line.alarm, "The alarm's number, as `alarms` shows it"), 0)
      ->required();
  AddJson(show, line);
  show->callback(
      [&] { line.run = [&] { return RunAlarmShow(line.common, line.alarm, line.json); }; });
  CLI::App* rules = alarms->add_subcommand("rules", "Print the alarms as rules for Prometheus");
  rules->callback([&] { line.run = [&] { return RunAlarmRules(line.common); }; });
  // A subcommand's callback comes before that of its command.
  alarms->callback([&line, alarms, rules, own] {
    if (alarms->get_subcommands().empty()) {
      line.run = [&line] { return RunAlarms(line.common, line.alarms, line.json); };
      return;
    }
    const std::string subcommand = alarms->get_subcommands().front()->get_name();
    for (const CLI::Option* option : own) {
      if (option->count() != 0) {
        throw CLI::ExcludesError(option->get_name(), subcommand);
      }
    }
    if (line.json && rules->parsed()) {
      throw CLI::ExcludesError("--json", subcommand);
    }
  });
}

void AddPush(CLI::App& app, CommandLine& line) {
  CLI::App* push = app.add_subcommand("push", "Look at what is pushed to other servers");
  push->require_subcommand(1);
  CLI::App* status = push->add_subcommand("status", "Show how pushing to each target goes");
  AddJson(status, line);
  status->callback([&] { line.run = [&] { return RunPushStatus(line.common, line.json); }; });
  CLI::App* test =
      push->add_subcommand("test", "Send targets an empty request, and show the answer");
  test->add_option("NAME", line.value, "A target; all if not given");
  test->callback([&] { line.run = [&] { return RunPushTest(line.common, line.value); }; });
}

}  // namespace

void AddFleetCommands(CLI::App& app, CommandLine& line) {
  AddAlarms(app, line);
  AddPush(app, line);
}
