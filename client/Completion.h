#pragma once

#include <string>

struct CommandLine;
namespace CLI {
class App;
}

// Completion scripts of a command tree for three shells: commands, options, the values of options
// that take one of a few, files, and the names of records, which are asked of the daemon.
// `line` has the values.

[[nodiscard]] std::string BashCompletion(const CLI::App& tree, const CommandLine& line);
[[nodiscard]] std::string ZshCompletion(const CLI::App& tree, const CommandLine& line);
[[nodiscard]] std::string FishCompletion(const CLI::App& tree, const CommandLine& line);
