#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Controllers that tell figures, as bits.
enum : std::uint32_t {
  kGroupCpu = 1U,
  kGroupCpuAccounting = 2U,
  kGroupMemory = 4U,
  kGroupBlockIo = 8U,
  kGroupPids = 16U,
  kAllGroupControllers = 31U,
};

/// A tree of control groups.
struct ControlGroupHierarchy {
  std::string mountPoint;  ///< plain absolute path
  bool isUnified = false;  ///< version 2
  bool isNamed = false;    ///< version 1: the service manager's, without controllers
  std::uint32_t controllers = 0;
};

/// The hierarchies that a text of /proc/PID/mountinfo has and that tell figures or the service
/// manager's groups, each once, where it shows the most, from mounts that a path reaches; at most
/// one of version 2, with the controllers that version 1 has not. Those come first whose lists of
/// processes are most likely whole.
[[nodiscard]] std::vector<ControlGroupHierarchy> ParseControlGroupMounts(std::string_view text);
