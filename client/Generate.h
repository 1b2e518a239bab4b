#pragma once

#include <string>

#include "client/Commands.h"

struct CommandLine;
namespace CLI {
class App;
}

// Commands that no operator types, exit values as in client/Commands.h.

/// Prints the manual page ("man") or a completion script ("bash", "zsh", "fish") of the tree.
[[nodiscard]] int RunGenerate(const CLI::App& tree, const CommandLine& line,
                              const std::string& kind);
/// Prints the names of the records that are served, one a line; nothing if the daemon does not
/// answer.
[[nodiscard]] int RunCompleteRecords(const CommonOptions& common);
