#pragma once

#include <string>

#include "client/CommandView.h"

// Completion scripts of a command tree for three shells: commands, options, the values of options
// that take one of a few, files, and the names of records, which are asked of the daemon.

[[nodiscard]] std::string BashCompletion(const CommandView& given);
[[nodiscard]] std::string ZshCompletion(const CommandView& given);
[[nodiscard]] std::string FishCompletion(const CommandView& given);
