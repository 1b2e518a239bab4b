#pragma once

#include <cstdint>
#include <string>

#include "client/commands/Commands.h"
#include "client/looks/ProcessLooks.h"

struct TopOptions {
  TopOrder order = TopOrder::kCpu;
  double everySeconds = 2;
  std::uint64_t count = 0;  ///< looks to show, 0 for no end
  std::uint64_t rows = 0;   ///< processes to show of each look; 0 for the screen's height, or all
};

/// Shows the processes that load the machine most, look after look, until Ctrl-C, the key "q", or
/// the last look; the exit value. Throws as the commands of client/commands/Commands.h do.
[[nodiscard]] int RunTop(const CommonOptions& common, const TopOptions& options);
