#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

#include "collect/modern/cpu/CpuList.h"
#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/cpu/Interrupts.h"
#include "collect/modern/cpu/KernelCpuStat.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

template <class Take>
void EachLine(std::string_view text, const Take& take) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    take(line);
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
  }
}

void TakeList(std::string_view text) {
  CpuSet processors;
  if (ParseCpuList(text, processors)) {
    Require(processors.none() == text.substr(0, text.find('\n')).empty());
  }
}

void TakeStat(std::string_view text) {
  EachLine(text, [](std::string_view line) {
    CpuTicks figures;
    if (ParseCpuStatLine(line, figures)) {
      Require(IsCpuLine(line) && figures.columns <= CpuTicks::kColumns);
      Require(!ParseCpuStatSum(line, figures));
    } else if (ParseCpuStatSum(line, figures)) {
      Require(IsCpuLine(line) && figures.columns <= CpuTicks::kColumns);
    }
  });
}

void TakeInterrupts(std::string_view text) {
  std::vector<std::uint32_t> processors;
  if (!ParseInterruptColumns(text.substr(0, text.find('\n')), processors)) {
    return;
  }
  Require(processors.size() <= kMostProcessors);
  std::vector<std::uint64_t> sums(processors.size());
  std::vector<std::uint64_t> counts(processors.size());
  EachLine(text, [&](std::string_view line) { AddInterruptLine(line, sums, counts); });
}

void TakeCpuinfo(std::string_view text) {
  CpuinfoBlock block;
  CpuinfoClock clock;
  EachLine(text, [&block, &clock](std::string_view line) {
    TakeCpuinfoClock(line, clock);
    Require(!IsTold(clock.megahertz) || clock.megahertz >= 0);
    if (IsProcessorLine(line)) {
      NameByPart(block);
      block = CpuinfoBlock{};
    }
    TakeCpuinfoLine(line, block);
    Require(block.type.back() == '\0');
  });
  NameByPart(block);
  Require(block.type.back() == '\0');
}

}  // namespace

/// The first byte chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  constexpr void (*kFiles[])(std::string_view) = {TakeList, TakeStat, TakeInterrupts, TakeCpuinfo};
  kFiles[data[0] % std::size(kFiles)]({reinterpret_cast<const char*>(data) + 1, size - 1});
  return 0;
}
