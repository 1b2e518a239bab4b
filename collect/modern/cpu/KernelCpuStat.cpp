#include "collect/modern/cpu/KernelCpuStat.h"

#include "collect/modern/HostLines.h"

bool ParseCpuStatLine(std::string_view line, CpuTicks& figures) {
  constexpr std::string_view kKey = "cpu";
  CpuTicks taken;
  if (!line.starts_with(kKey)) {
    return false;
  }
  line.remove_prefix(kKey.size());
  // "cpu  12" is the line of all.
  if (line.starts_with(' ') || !TakeCount(line, taken.processor) || !line.starts_with(' ')) {
    return false;
  }
  while (taken.columns < CpuTicks::kColumns && TakeCount(line, taken.ticks[taken.columns])) {
    ++taken.columns;
  }
  figures = taken;
  return true;
}
