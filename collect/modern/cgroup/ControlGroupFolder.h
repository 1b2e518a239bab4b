#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "collect/modern/HostFolder.h"
#include "collect/modern/cgroup/ControlGroup.h"
#include "collect/modern/system/Pressure.h"

/// Reads the files of control groups' folders, with one buffer for all.
class ControlGroupFolder {
 public:
  /// Counts the group's own processes: kNotTold if the kernel does not list them. False if the
  /// folder is no group, or no more.
  [[nodiscard]] bool CountProcesses(const HostFolder& folder, double& processes);
  /// The group's own threads, by their list.
  [[nodiscard]] double CountThreads(const HostFolder& folder, bool isUnified);
  /// The threads of the group and all below it, where the controller of tasks is on.
  [[nodiscard]] double Threads(const HostFolder& folder);

  /// Read what the hierarchy's controllers tell and is not told yet; threads are left aside.
  void ReadVersion1(const HostFolder& folder, std::uint32_t controllers, ControlGroup& group);
  void ReadVersion2(const HostFolder& folder, std::uint32_t controllers, ControlGroup& group);
  /// Forgets what is kept of groups that no walk has read since the last call.
  static void EndWalk();

 private:
  [[nodiscard]] bool Read(const HostFolder& folder, const char* name);
  [[nodiscard]] double Number(const HostFolder& folder, const char* name);
  void ReadCpuAccounting(const HostFolder& folder, ControlGroupCpu& cpu);
  void ReadMemoryV1(const HostFolder& folder, ControlGroupMemory& memory);
  void ReadMemoryV2(const HostFolder& folder, ControlGroupMemory& memory);
  void ReadBlockIoV1(const HostFolder& folder, ControlGroupIo& io);
  void ReadBlkio(const HostFolder& folder, const char* recursive, const char* own, double& read,
                 double& write);
  void ReadPressure(const HostFolder& folder, const char* name, double& some, double& full,
                    PressureText (*parse)(std::string_view) = ParsePressure);

  std::string m_text;
};
