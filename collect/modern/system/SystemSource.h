#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/system/SystemSourceLINUX.h"

/// Reads the host's one row from /proc/stat, /proc/vmstat, /proc/meminfo, /proc/loadavg and
/// /proc/diskstats. Processes and users are counted in the rows of the run's own walk over
/// processes where it has taken place, else in a walk over /proc/PID/status; operations of disks in
/// the run's devices where it has read them. Never fails for a file that is missing: its figures
/// stay 0. Counters of the row's 32-bit words keep their low 32 bits.
class ModernSystemSource : public PtrSource<x_system, System, std::vector<System>> {
 public:
  ModernSystemSource() { ++s_statistics.constructed; }
  ~ModernSystemSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_system* record) override;

 private:
  /// Whether the file is there.
  [[nodiscard]] bool ReadStat(x_system& record);
  [[nodiscard]] bool ReadVmstat(x_system& record);
  [[nodiscard]] bool ReadLoadavg(x_system& record);
  void ReadMeminfo(x_system& record);
  void ReadDisks(x_system& record) const;
  void CountProcesses(x_system& record) const;

  inline static SourceStatistics s_statistics;

  std::string m_text;
};
