#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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
  std::uint64_t skippedBatches = 0;   ///< that were not looked at
  std::uint64_t commands = 0;         ///< that were started
  std::uint64_t commandFailures = 0;  ///< of these
  std::uint64_t droppedCommands = 0;  ///< that there was no room for
};
