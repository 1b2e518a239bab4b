#pragma once

#include <string>

#include "client/commands/Commands.h"

struct ExplainOptions {
  std::string name;  ///< of a workgroup, empty for all
  std::string pid;   ///< of a process, empty for all
  bool json = false;
};

/// Shows the daemon's report of its workgroups; the exit value.
[[nodiscard]] int RunExplain(const CommonOptions& common, const ExplainOptions& options);
