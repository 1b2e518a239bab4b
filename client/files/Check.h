#pragma once

#include <string>

struct CheckOptions {
  std::string file;
  std::string alarms = "alarms";  ///< the file of `check alarms`
  std::string kind;               ///< empty: the daemon's program tells it
  std::string daemon;             ///< path of the daemon's program; empty: see FindProgram
};

/// Becomes `qmtdmon --check`, which needs no running daemon. Returns kExitUsage, with a complaint,
/// only if it can't be started.
[[nodiscard]] int RunCheck(const CheckOptions& options);
