#pragma once

#include <cstdint>
#include <string>

#include "client/commands/Commands.h"
#include "client/show/Render.h"

/// What the commands on user records have in common.
struct UserDataOptions {
  std::string kind;            ///< UPI, UPIB, UPD or UPDB
  std::string file;            ///< of rows; "-" is the standard input
  int waitSeconds = 10;        ///< for the guard of the agent's file
  std::uint64_t limit = 1440;  ///< what the agent takes of a file
  Format format = Format::kTable;
};

// The commands on files of user records, which are written and read on this machine, without the
// daemon. Faults go to the standard error as FILE:LINE: what, and then nothing is written. Each
// returns the exit value.

/// Replaces the records.
[[nodiscard]] int RunUserImport(const UserDataOptions& options);
/// Adds records behind those that are there.
[[nodiscard]] int RunUserAppend(const UserDataOptions& options);
[[nodiscard]] int RunUserCheck(const UserDataOptions& options);
[[nodiscard]] int RunUserShow(const CommonOptions& common, const UserDataOptions& options);
[[nodiscard]] int RunUserClear(const UserDataOptions& options);
