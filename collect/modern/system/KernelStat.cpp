#include "collect/modern/system/KernelStat.h"

#include <array>

#include "collect/modern/HostText.h"

namespace {

constexpr std::size_t kBootTimeRow = 0;
constexpr std::array kKernelStatRows{
    KeyedNumber<KernelStatFigures>{"btime", &KernelStatFigures::bootTime},
    KeyedNumber<KernelStatFigures>{"ctxt", &KernelStatFigures::contextSwitches},
    KeyedNumber<KernelStatFigures>{"intr", &KernelStatFigures::interrupts},
    KeyedNumber<KernelStatFigures>{"processes", &KernelStatFigures::forks},
    KeyedNumber<KernelStatFigures>{"procs_running", &KernelStatFigures::runnable}};

constexpr std::string_view kProcessor = "cpu";

/// Whether the line is that of one processor; the one of all has no number.
bool IsProcessorTimes(std::string_view line) {
  return line.size() > kProcessor.size() && line.starts_with(kProcessor) &&
         line[kProcessor.size()] >= '0' && line[kProcessor.size()] <= '9';
}

}  // namespace

KernelStatFigures ParseKernelStat(std::string_view text) {
  KernelStatFigures figures;
  for (std::string_view line; NextTextLine(text, line);) {
    if (IsProcessorTimes(line)) {
      ++figures.processors;
    } else {
      TakeKeyedNumber(line, kKernelStatRows, figures, figures.found);
    }
  }
  return figures;
}

void TellMissing(const KernelStatFigures& figures) {
  TellFound(kKernelStatPath, kKernelStatRows, figures.found);
  TellFound(kKernelStatPath, "cpu0", figures.processors != 0);
}

void TellMissingBootTime(const KernelStatFigures& figures) {
  TellFound(kKernelStatPath, kKernelStatRows[kBootTimeRow].key,
            (figures.found >> kBootTimeRow & 1U) != 0);
}
