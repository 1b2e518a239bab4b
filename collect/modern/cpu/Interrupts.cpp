#include "collect/modern/cpu/Interrupts.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "collect/modern/HostLines.h"
#include "collect/modern/cpu/CpuList.h"

namespace {

/// The names of totals, which on a host of one processor look as its column would.
constexpr std::array<std::string_view, 3> kInterruptTotals{"ERR", "MIS", "Err"};

bool IsInterruptNumber(std::string_view name) {
  return !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

bool ParseInterruptColumns(std::string_view line, std::vector<std::uint32_t>& processors) {
  constexpr std::string_view kKey = "CPU";
  processors.clear();
  for (line = WithoutEdgeBlanks(line);
       line.starts_with(kKey) && processors.size() < kMostProcessors;
       line = WithoutEdgeBlanks(line)) {
    line.remove_prefix(kKey.size());
    std::uint32_t processor = 0;
    if (line.starts_with(' ') || !TakeCount(line, processor)) {
      break;
    }
    processors.push_back(processor);
  }
  return !processors.empty();
}

void AddInterruptLine(std::string_view line, std::span<std::uint64_t> sums,
                      std::span<std::uint64_t> counts) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return;
  }
  const std::string_view name = WithoutEdgeBlanks(line.substr(0, colon));
  line.remove_prefix(colon + 1);
  std::size_t columns = 0;
  while (columns < sums.size() && TakeCount(line, counts[columns])) {
    ++columns;
  }
  const bool isTotal =
      columns < sums.size() || std::ranges::find(kInterruptTotals, name) != kInterruptTotals.end();
  if (isTotal && !IsInterruptNumber(name)) {
    return;
  }
  for (std::size_t column = 0; column < columns; ++column) {
    sums[column] += counts[column];
  }
}
