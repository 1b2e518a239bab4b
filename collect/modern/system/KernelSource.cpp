#include "collect/modern/system/KernelSource.h"

#include <array>
#include <optional>
#include <string>

#include "collect/modern/HostText.h"
#include "collect/modern/KeyedFigures.h"
#include "collect/modern/system/HostFactsText.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/modern/system/Loadavg.h"
#include "collect/modern/system/Vmstat.h"

namespace {

using KernelRow = KeyedFigure<KernelFigures>;

constexpr auto kKernelRows = SortedByKey(std::array{
    KernelRow{"btime", &KernelFigures::bootTime},
    KernelRow{"ctxt", &KernelFigures::contextSwitches},
    KernelRow{"intr", &KernelFigures::interrupts},
    KernelRow{"processes", &KernelFigures::forks},
    KernelRow{"procs_blocked", &KernelFigures::blocked},
    KernelRow{"procs_running", &KernelFigures::runnable},
    KernelRow{"softirq", &KernelFigures::softInterrupts},
});

constexpr auto kKernelDiskRows = SortedByKey(std::array{
    KernelRow{"pgpgin", &KernelFigures::readKbytes},
    KernelRow{"pgpgout", &KernelFigures::writtenKbytes},
});

}  // namespace

void TakeKernelLoad(std::string_view loadavg, KernelFigures& figures) {
  if (const std::optional<LoadAverages> averages = ParseLoadavg(loadavg)) {
    figures.load1 = averages->load1;
    figures.load5 = averages->load5;
    figures.load15 = averages->load15;
  }
  figures.tasks = ParseTaskCount(loadavg);
}

void TakeKernelStat(std::string_view stat, KernelFigures& figures) {
  TakeKeyedFigures(stat, kKernelRows, figures);
}

void TakeKernelDisks(std::string_view vmstat, KernelFigures& figures) {
  TakeKeyedFigures(vmstat, kKernelDiskRows, figures);
}

void ReadKernel(KernelFigures& figures) {
  figures = {};
  std::string text;
  if (ReadHostText(kLoadavgPath, text)) {
    TakeKernelLoad(text, figures);
  }
  if (ReadHostText(kKernelStatPath, text)) {
    TakeKernelStat(text, figures);
  }
  if (ReadHostText(kVmstatPath, text)) {
    TakeKernelDisks(text, figures);
  }
}
