#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "collect/modern/HostText.h"
#include "collect/modern/cpu/CpuList.h"
#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/cpu/Interrupts.h"
#include "collect/modern/cpu/KernelCpuStat.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

void TakeList(std::string_view text) {
  CpuSet processors;
  if (ParseCpuList(text, processors)) {
    Require(processors.none() == text.substr(0, text.find('\n')).empty());
  }
}

void TakeStat(std::string_view text) {
  for (std::string_view line; NextTextLine(text, line);) {
    CpuTicks figures;
    if (ParseCpuStatLine(line, figures)) {
      Require(IsCpuLine(line) && figures.columns <= CpuTicks::kColumns);
      Require(!ParseCpuStatSum(line, figures));
    } else if (ParseCpuStatSum(line, figures)) {
      Require(IsCpuLine(line) && figures.columns <= CpuTicks::kColumns);
    }
  }
}

void TakeInterrupts(std::string_view text) {
  std::vector<std::uint32_t> processors;
  if (!ParseInterruptColumns(text.substr(0, text.find('\n')), processors)) {
    return;
  }
  Require(processors.size() <= kMostProcessors);
  std::vector<std::uint64_t> sums(processors.size());
  std::vector<std::uint64_t> counts(processors.size());
  for (std::string_view line; NextTextLine(text, line);) {
    AddInterruptLine(line, sums, counts);
  }
}

void TakeCpuinfo(std::string_view text) {
  CpuinfoBlock block;
  CpuinfoClock clock;
  for (std::string_view line; NextTextLine(text, line);) {
    TakeCpuinfoClock(line, clock);
    Require(!IsTold(clock.megahertz) || clock.megahertz >= 0);
    if (IsProcessorLine(line)) {
      NameByPart(block);
      block = CpuinfoBlock{};
    }
    TakeCpuinfoLine(line, block);
    Require(block.type.back() == '\0');
  }
  NameByPart(block);
  Require(block.type.back() == '\0');
}

}  // namespace

/// The first byte chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kFiles[])(std::string_view) = {TakeList, TakeStat, TakeInterrupts, TakeCpuinfo};
  return TakeChosen(data, size, kFiles);
}
