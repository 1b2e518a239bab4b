#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

void AddViewCommands(CLI::App& app, CommandLine& line) {
  CLI::App* view = app.add_subcommand("view", "Show the host full screen, now and in the past");
  view->add_option("--every", line.view.everySeconds, "Seconds from look to look, 2 if not given")
      ->option_text("S");
  view->add_option("--at", line.view.at, "Begin with the kept rows of this time, as for history")
      ->option_text("TIME");
  TakeOneOf(view->add_option("--pane", line.view.pane, "The pane to begin with, 1 to 8")
                ->option_text("N"),
            line, {"1", "2", "3", "4", "5", "6", "7", "8"});
  view->callback([&] { line.run = [&] { return RunView(line.common, line.view); }; });
}
