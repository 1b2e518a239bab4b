#include "collect/modern/system/HostFacts.h"

#include <sys/timex.h>

#include <algorithm>
#include <string_view>

#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/system/HostFactsText.h"
#include "collect/modern/system/HostPlace.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/modern/system/Loadavg.h"
#include "collect/modern/system/Meminfo.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"

namespace {

constexpr const char* kCpuinfoOfHost = "/proc/cpuinfo";
/// A processor has some 30 lines; what has far more is no such file.
constexpr int kMostCpuinfoLines = 200;

void TakeNames(const HostFolder& root, bool isRunning, HostFacts& facts) {
  struct ::utsname names {};
  if (isRunning && Os().uname(&names) == 0) {
    facts.name = names.nodename;
    facts.architecture = names.machine;
  } else {
    facts.name = root.Line("proc/sys/kernel/hostname");
    facts.architecture = root.Line("proc/sys/kernel/arch");
    if (facts.name.empty()) {
      facts.name = root.Line("etc/hostname");
    }
  }
  facts.kernel = root.Line("proc/sys/kernel/osrelease");
  facts.kernelVersion = root.Line("proc/sys/kernel/version");
  facts.machineId = ParseMachineId(root.Line("etc/machine-id"));
}

void TakeDistribution(const HostFolder& root, HostFacts& facts) {
  std::string text;
  if (!root.Read("etc/os-release", text) && !root.Read("usr/lib/os-release", text)) {
    return;
  }
  OsRelease release = ParseOsRelease(text);
  facts.distribution = std::move(release.prettyName);
  facts.distributionId = std::move(release.id);
  facts.distributionVersion = std::move(release.versionId);
}

bool HasHypervisorFlag(std::string_view line) {
  constexpr std::string_view kName = "hypervisor";
  for (std::size_t at = line.find(kName); at != std::string_view::npos;
       at = line.find(kName, at + 1)) {
    const std::string_view behind = line.substr(at + kName.size());
    if (line[at - 1] == ' ' && (behind.empty() || behind.front() == ' ')) {
      return true;
    }
  }
  return false;
}

/// Reads the first processor alone: each one of many costs the kernel time. Whether it has the flag
/// of a hypervisor.
bool TakeFirstProcessor(HostFacts& facts) {
  HostLines lines(kCpuinfoOfHost);
  CpuinfoBlock block;
  bool hasFlag = false;
  int taken = 0;
  for (std::string_view line; taken < kMostCpuinfoLines && lines.Next(line); ++taken) {
    if (IsProcessorLine(line) && block.processor) {
      break;
    }
    TakeCpuinfoLine(line, block);
    hasFlag = hasFlag || (line.starts_with("flags\t") && HasHypervisorFlag(line));
  }
  NameByPart(block);
  facts.processorModel = block.type.data();
  return hasFlag;
}

void TakeTotals(HostFacts& facts) {
  std::string text;
  if (ReadHostText(kMeminfoPath, text)) {
    const MeminfoFigures figures = ParseMeminfo(text);
    facts.memoryBytes =
        figures.totalKB == 0 ? kNotTold : static_cast<double>(figures.totalKB) * 1024;
  }
  if (ReadHostText(kKernelStatPath, text)) {
    const KernelStatFigures figures = ParseKernelStat(text);
    facts.bootTime = figures.bootTime == 0 ? kNotTold : static_cast<double>(figures.bootTime);
  }
  if (ReadHostText(kLoadavgPath, text)) {
    facts.tasks = ParseTaskCount(text);
  }
}

/// 1 or 0 as the service manager's own keeper of the clock says, kNotTold without it: it touches a
/// file each time that a server has told it the time, every 34 minutes or sooner.
double SynchronisedByKeeper(const HostFolder& root) {
  constexpr double kLongestPause = 4 * 3600;
  const HostFolder keeper = root.Below("run/systemd/timesync");
  if (!keeper.IsOpen()) {
    return kNotTold;
  }
  const double age = static_cast<double>(Os().time(nullptr)) - keeper.ChangeTime("synchronized");
  return age <= kLongestPause ? 1 : 0;
}

/// False if the kernel may not be asked: a service is seldom let to calls that can set the clock.
bool TakeClock(HostFacts& facts) {
  struct ::timex clock {};
  const int state = Os().adjtimex(&clock);
  if (state < 0) {
    return false;
  }
  const bool isRight = state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
  facts.clockSynchronised = isRight ? 1 : 0;
  facts.clockOffsetSeconds =
      static_cast<double>(clock.offset) * ((clock.status & STA_NANO) != 0 ? 1e-9 : 1e-6);
  facts.clockErrorSeconds = static_cast<double>(clock.esterror) * 1e-6;
  return true;
}

void TakeBounds(const HostFolder& root, HostFacts& facts) {
  const HostFolder sys = root.Below("proc/sys");
  if (!sys.IsOpen()) {
    return;
  }
  const FileHandles handles = ParseFileNr(sys.Line("fs/file-nr"));
  facts.openFiles = handles.used;
  facts.mostOpenFiles = handles.most;
  facts.entropyBits = sys.Number("kernel/random/entropy_avail");
  // Of two numbers fmin() takes the one that is told.
  facts.mostTasks = std::fmin(sys.Number("kernel/pid_max"), sys.Number("kernel/threads-max"));
}

/// Whether there are modules, and those of that kernel.
double LacksModules(const HostFolder& root, const std::string& kernel) {
  if (kernel.empty() || kernel.front() == '.' || kernel.find('/') != std::string::npos) {
    return kNotTold;
  }
  const HostFolder modules = root.Below("lib/modules");
  if (!modules.IsOpen()) {
    return kNotTold;
  }
  if (modules.Below(kernel.c_str()).IsOpen()) {
    return 0;
  }
  bool isAny = false;
  modules.ForEach([&isAny](const char*, bool isFolder) {
    isAny = isFolder;
    return !isAny;
  });
  return isAny ? 1 : kNotTold;
}

double NeedsReboot(const HostFolder& root, const HostFacts& facts) {
  std::string text;
  if (root.Read("run/reboot-required", text)) {
    return 1;
  }
  return facts.container.empty() ? LacksModules(root, facts.kernel) : kNotTold;
}

}  // namespace

void ReadHostFacts(HostFacts& facts) {
  facts = {};
  const HostFolder root("/");
  if (!root.IsOpen()) {
    return;
  }
  const bool isRunning = IsRunningHost();
  TakeNames(root, isRunning, facts);
  TakeDistribution(root, facts);
  const bool hasHypervisorFlag = TakeFirstProcessor(facts);
  const ProcessorCounts counts = CountProcessors(root);
  facts.sockets = counts.sockets;
  facts.cores = counts.cores;
  facts.threads = counts.threads;
  TakeTotals(facts);
  facts.virtualisation = FindVirtualisation(root, hasHypervisorFlag);
  facts.container = FindContainer(root);
  facts.clockSource = root.Line("sys/devices/system/clocksource/clocksource0/current_clocksource");
  if (!isRunning || !TakeClock(facts)) {
    facts.clockSynchronised = SynchronisedByKeeper(root);
  }
  TakeBounds(root, facts);
  facts.rebootNeeded = NeedsReboot(root, facts);
}
