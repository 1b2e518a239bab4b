#pragma once

#include <string>
#include <vector>

// A command tree as those who describe it see it: without what is hidden, in the order of its
// declaration.

/// An option, or an argument without a dash in its name.
struct OptionView {
  std::string name;   ///< "--every", or "RECORD"
  std::string value;  ///< what stands for the value behind the name, as in "TIME"; empty for a flag
  std::string description;
  std::vector<std::string> choices;  ///< the values of one that takes one of a few
  bool isArgument = false;
  bool isRequired = false;
  bool isList = false;  ///< takes more than one value
};

struct CommandView {
  std::string name;
  std::string description;
  std::vector<OptionView> options;
  std::vector<OptionView> arguments;
  std::vector<CommandView> subcommands;
};

/// The tree of the whole program.
[[nodiscard]] CommandView ProgramView();
