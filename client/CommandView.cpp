#include "client/CommandView.h"

#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

namespace {

/// Empty for a flag or an argument.
std::string ValueOf(const CLI::Option& option) {
  if (option.get_positional() || option.get_items_expected_max() == 0) {
    return "";
  }
  const std::string text = option.get_option_text();
  return text.empty() ? "VALUE" : text;
}

OptionView ViewOf(const CLI::Option& option, const CommandLine& line) {
  OptionView view;
  view.isArgument = option.get_positional();
  view.name = view.isArgument ? option.get_name(true) : "--" + option.get_lnames().front();
  view.value = ValueOf(option);
  view.description = option.get_description();
  if (const auto found = line.choices.find(&option); found != line.choices.end()) {
    view.choices = found->second;
  }
  view.isRequired = option.get_required();
  view.isList = option.get_items_expected_max() > 1;
  return view;
}

CommandView ViewOf(const CLI::App& command, const CommandLine& line) {
  CommandView view;
  view.name = command.get_name();
  view.description = command.get_description();
  for (const CLI::Option* option : command.get_options()) {
    // Every command has a help of its own, of which one is told.
    const bool isRepeated = command.get_parent() != nullptr && option == command.get_help_ptr();
    if (!isRepeated) {
      (option->get_positional() ? view.arguments : view.options).push_back(ViewOf(*option, line));
    }
  }
  for (const CLI::App* subcommand : command.get_subcommands([](const CLI::App*) { return true; })) {
    const bool isHidden = subcommand->get_group().empty();
    if (!isHidden) {
      view.subcommands.push_back(ViewOf(*subcommand, line));
    }
  }
  return view;
}

}  // namespace

CommandView ProgramView() {
  CommandLine line;
  CLI::App app(kProgramText, kProgramName);
  BuildCommands(app, line);
  return ViewOf(app, line);
}
