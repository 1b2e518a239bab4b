#include "collect/modern/cpu/KernelCpuStat.h"

#include "collect/modern/HostLines.h"

namespace {

constexpr std::string_view kCpuKey = "cpu";

void TakeCpuTicks(std::string_view line, CpuTicks& figures) {
  while (figures.columns < CpuTicks::kColumns && TakeCount(line, figures.ticks[figures.columns])) {
    ++figures.columns;
  }
}

}  // namespace

bool ParseCpuStatLine(std::string_view line, CpuTicks& figures) {
  CpuTicks taken;
  if (!line.starts_with(kCpuKey)) {
    return false;
  }
  line.remove_prefix(kCpuKey.size());
  // "cpu  12" is the line of all.
  if (line.starts_with(' ') || !TakeCount(line, taken.processor) || !line.starts_with(' ')) {
    return false;
  }
  TakeCpuTicks(line, taken);
  figures = taken;
  return true;
}

bool ParseCpuStatSum(std::string_view line, CpuTicks& figures) {
  if (!line.starts_with(kCpuKey) || !line.substr(kCpuKey.size()).starts_with(' ')) {
    return false;
  }
  figures = {};
  TakeCpuTicks(line.substr(kCpuKey.size()), figures);
  return true;
}
