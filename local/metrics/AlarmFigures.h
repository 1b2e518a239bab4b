#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What alarms have lost since the start.
struct AlarmLosses {
  std::uint64_t batches = 0;   ///< that they were not held against
  std::uint64_t leftOut = 0;   ///< rows whose key there was no room for
  std::uint64_t unkept = 0;    ///< alarms and captured rows that are not in the history
  std::uint64_t captures = 0;  ///< records whose rows could not be kept with an alarm

  bool operator==(const AlarmLosses&) const = default;
};

/// What there is to expose of alarms.
struct AlarmFigures {
  struct Alarm {
    std::string name;
    std::string severity;
    std::size_t active = 0;  ///< how many of its rows
  };
  std::vector<Alarm> alarms;
  // Since the start:
  std::uint64_t begun = 0;
  AlarmLosses losses;
  std::uint64_t commands = 0;         ///< that were started
  std::uint64_t commandFailures = 0;  ///< of these
  std::uint64_t droppedCommands = 0;  ///< that there was no room for
};
