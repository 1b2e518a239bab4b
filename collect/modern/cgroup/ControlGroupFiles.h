#pragma once

#include <string>
#include <string_view>
#include <vector>

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
/// What is kept of a group between two looks, as the kernel forgets devices that have gone.
struct GroupIoKept {
  struct Device {
    std::string name;
    ControlGroupIo io{0, 0, 0, 0};
  };
  std::vector<Device> devices;  ///< of the last look, by their names
  ControlGroupIo gone{0, 0, 0, 0};
};
/// io.stat of version 2, with what devices had counted that have gone or begun anew since `kept`
/// was kept: 0 for one that has always been empty, which has had no I/O.
void ParseGroupIoStat(std::string_view text, GroupIoKept& kept, ControlGroupIo& io);

/// What a file of blkio of version 1 counts, summed over devices.
struct BlkioSums {
  double read = 0;
  double write = 0;
};
[[nodiscard]] BlkioSums ParseBlkio(std::string_view text);

/// How many lines a list of ids has.
[[nodiscard]] double CountIds(std::string_view text);
