#pragma once

#include <string>

struct CheckOptions {
  std::string file;
  std::string kind;    ///< empty: the daemon's program tells it
  std::string daemon;  ///< path of the daemon's program; empty: see RunCheck
};

/// Becomes `qmtdmon --check`, which needs no running daemon. Its program is looked for beside this
/// one, then in PATH. Returns kExitUsage, with a complaint, only if it can't be started.
[[nodiscard]] int RunCheck(const CheckOptions& options);
