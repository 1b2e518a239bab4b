#pragma once

#include <string>

#include "client/commands/Commands.h"

/// "every 60 s".
[[nodiscard]] std::string EverySeconds(double seconds);

// The commands on the daemon's schedules; exit values and exceptions as in
// client/commands/Commands.h.

[[nodiscard]] int RunScheduleList(const CommonOptions& common, bool json);
/// Has the record collected every so many seconds from now on.
[[nodiscard]] int RunScheduleAdd(const CommonOptions& common, const std::string& record,
                                 long seconds);
[[nodiscard]] int RunScheduleRemove(const CommonOptions& common, const std::string& record);
