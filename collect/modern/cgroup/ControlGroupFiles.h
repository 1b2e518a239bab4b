#pragma once

#include <string_view>

#include "collect/modern/cgroup/ControlGroup.h"

// The files of a control group's folder. Each function takes what a text tells of figures that are
// not told yet; lines of other keys, or without a whole number, are passed over.

/// cpu.stat of either version.
void ParseGroupCpuStat(std::string_view text, ControlGroupCpu& cpu);
/// cpuacct.stat of version 1.
void ParseGroupCpuTicks(std::string_view text, ControlGroupCpu& cpu);
/// memory.stat of version 2.
void ParseGroupMemoryStat(std::string_view text, ControlGroupMemory& memory);
/// memory.stat of version 1: of the group and those below it if it tells that, else of itself.
void ParseGroupMemoryStatV1(std::string_view text, ControlGroupMemory& memory);
/// memory.events of version 2, memory.oom_control of version 1.
/// Seconds of cpuacct.usage, which has nanoseconds; kNotTold for none.
[[nodiscard]] double ParseGroupUsage(std::string_view text);
void ParseGroupMemoryEvents(std::string_view text, ControlGroupMemory& memory);
/// io.stat of version 2: 0 for an empty one, which has had no I/O.
void ParseGroupIoStat(std::string_view text, ControlGroupIo& io);

/// What a file of blkio of version 1 counts, summed over devices.
struct BlkioSums {
  double read = 0;
  double write = 0;
};
[[nodiscard]] BlkioSums ParseBlkio(std::string_view text);

/// How many lines a list of ids has.
[[nodiscard]] double CountIds(std::string_view text);
