#pragma once

#include <string>
#include <vector>

#include "client/commands/Commands.h"

// Commands that no operator types, exit values as in client/commands/Commands.h.

/// Prints the manual page ("man") or a completion script ("bash", "zsh", "fish") of the program's
/// commands.
[[nodiscard]] int RunGenerate(const std::string& kind);
/// Prints the names of the records that are served, one a line; nothing if the daemon does not
/// answer.
[[nodiscard]] int RunCompleteRecords(const CommonOptions& common);
/// The same for the labels of the records among `words`, which are those of a command line.
[[nodiscard]] int RunCompleteLabels(const CommonOptions& common,
                                    const std::vector<std::string>& words);
/// The same for the monitored applications.
[[nodiscard]] int RunCompleteApplications(const CommonOptions& common);
