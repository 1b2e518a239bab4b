#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// A command tree as those who describe it see it: without what is hidden.

[[nodiscard]] inline bool IsHidden(const CLI::App& command) { return command.get_group().empty(); }

/// The subcommands in the order of their declaration.
[[nodiscard]] inline std::vector<const CLI::App*> SubcommandsOf(const CLI::App& command) {
  std::vector<const CLI::App*> commands;
  for (const CLI::App* subcommand : command.get_subcommands([](const CLI::App*) { return true; })) {
    if (!IsHidden(*subcommand)) {
      commands.push_back(subcommand);
    }
  }
  return commands;
}

/// The options with a dash in their names, or the arguments without, in the order of their
/// declaration.
[[nodiscard]] inline std::vector<const CLI::Option*> OptionsOf(const CLI::App& command,
                                                               bool arePositional) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : command.get_options()) {
    // Every command has a help of its own, of which one is told.
    const bool isRepeated = command.get_parent() != nullptr && option == command.get_help_ptr();
    if (option->get_positional() == arePositional && !isRepeated) {
      options.push_back(option);
    }
  }
  return options;
}

/// "--every", or "RECORD".
[[nodiscard]] inline std::string NameOf(const CLI::Option& option) {
  return option.get_positional() ? option.get_name(true) : "--" + option.get_lnames().front();
}

/// What stands for the value behind the name, as in "TIME"; empty for a flag.
[[nodiscard]] inline std::string ValueOf(const CLI::Option& option) {
  if (option.get_positional() || option.get_items_expected_max() == 0) {
    return "";
  }
  const std::string text = option.get_option_text();
  return text.empty() ? "VALUE" : text;
}
