#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "collect/Source.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "collect/modern/cpu/CpuList.h"

struct CpuinfoBlock;

/// Reads one row for each processor of /sys/devices/system/cpu/present, in the order of their
/// numbers, with what /proc/stat, /proc/interrupts and /proc/cpuinfo tell of it. One that `online`
/// of the same directory does not list has the on-line word 1 and no figures. A list that cannot be
/// read is that of the processors of /proc/stat. Fails as a whole only if neither tells any; a file
/// or column that is not there leaves its figures 0.
class ModernCpuSource : public PtrSource<x_cpu, CPU, std::vector<CPU>> {
 public:
  ModernCpuSource();
  ~ModernCpuSource() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_cpu* record) override;

 private:
  void Load();
  /// Makes the rows, with the times of the processors that have a line in /proc/stat.
  void LoadTimes();
  void LoadInterrupts();
  void LoadTypes();
  void TakeType(CpuinfoBlock& block);
  /// The processor's row; null for one that has none.
  [[nodiscard]] x_cpu* RowOf(std::uint32_t processor);

  inline static SourceStatistics s_statistics;

  std::vector<x_cpu> m_rows;
  std::vector<std::uint16_t> m_places;  ///< a row's place behind 1, by the processor's number
  std::size_t m_next = 0;
  bool m_isLoaded = false;
};
