#pragma once

#include <cstdint>
#include <string>

#include "client/commands/Commands.h"

struct AlarmOptions {
  std::string since;  ///< times as typed; empty: not given
  std::string until;
  bool isActive = false;  ///< only those that are active
};

// The commands on alarms. Each returns the exit value.

/// Lists alarms, the newest first; complains of definitions that are off.
[[nodiscard]] int RunAlarms(const CommonOptions& common, const AlarmOptions& options, bool json);
/// Shows an alarm and the rows that were kept with it.
[[nodiscard]] int RunAlarmShow(const CommonOptions& common, std::uint64_t id, bool json);
/// Prints the rules of a monitoring system that the definitions come to.
[[nodiscard]] int RunAlarmRules(const CommonOptions& common);
