#include "collect/modern/process/ProcessRow.h"

#include <string>

#include "collect/ProcLib.h"
#include "collect/modern/HostText.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/LowWord.h"

namespace {

constexpr std::uint32_t kModernProcessSize = 1132;
constexpr std::int32_t kModernPriorityBase = 60;

/// States that classic figures have no code for count as the one that they are most like.
constexpr std::uint32_t ModernStateOf(char letter) {
  return letter == 'I' ? +kStateSleeping : letter == 't' ? +kStateStopped : ProcessStateOf(letter);
}

}  // namespace

void BeginProcessRow(std::int32_t pid, Process& record) {
  record.size = kModernProcessSize;
  record.pid = pid;
}

std::int32_t PresentBootTime() {
  std::string text;
  if (!ReadHostText(kKernelStatPath, text)) {
    return 0;
  }
  const KernelStatFigures figures = ParseKernelStat(text);
  TellMissingBootTime(figures);
  return static_cast<std::int32_t>(LowWord(figures.bootTime));
}

void FillFromStat(const ProcessStat& stat, std::int32_t bootTime, Process& record) {
  record.ppid = stat.ppid;
  record.pgrp = stat.pgrp;
  record.session = stat.session;
  record.tty = stat.tty == 0 ? kNoTerminal : static_cast<std::uint32_t>(stat.tty);
  record.minorFaults = LowWord(stat.minorFaults);
  record.majorFaults = LowWord(stat.majorFaults);
  record.userTime = TicksToNTIME(stat.userTicks);
  record.systemTime = TicksToNTIME(stat.systemTicks);
  record.cpuTime = {WrappedSum(record.userTime.seconds, record.systemTime.seconds),
                    WrappedSum(record.userTime.nanoseconds, record.systemTime.nanoseconds)};
  record.priority = WrappedSum(stat.priority, kModernPriorityBase);
  record.nice = stat.nice;
  if (bootTime != 0) {
    record.startTime = TicksToNTIME(stat.startTicks);
    record.startTime.seconds = WrappedSum(record.startTime.seconds, bootTime);
  }
  record.modern.kernelFlags = stat.kernelFlags;
  record.modern.policy = stat.policy;
  record.modern.startTicks = stat.startTicks;
  stat.name.copy(record.x_proc::name.data(), record.x_proc::name.size() - 1);
  if (ProcLib::IsNumberedName(record.GetName(), "kswapd") == 0) {
    record.flags |= kProcessMemMgmt;
  }
}

void FillResident(std::uint64_t pages, std::uint64_t pageBytes, Process& record) {
  record.residentBytes = LowWord(pages * pageBytes);
  record.modern.residentKB = pages * (pageBytes >> 10U);
}

void FillFromThread(const ProcessStat& stat, std::uint64_t pageBytes, Process& record) {
  record.modern.state = stat.state;
  record.state = ModernStateOf(stat.state);
  record.flags |= record.state == kStateUninterruptible ? 0U : +kProcessInCore;
  FillResident(stat.residentPages, pageBytes, record);
  record.virtualSize = LowWord(stat.virtualBytes);
  record.modern.virtualKB = stat.virtualBytes >> 10U;
}

void FillSwitches(const ProcessStatus& status, Process& record) {
  record.contextSwitches = LowWord(status.voluntarySwitches + status.otherSwitches);
}

void FillFromStatus(const ProcessStatus& status, Process& record) {
  record.ruid = status.user.real;
  record.euid = status.user.effective;
  record.suid = status.user.saved;
  record.rgid = status.group.real;
  record.egid = status.group.effective;
  record.sgid = status.group.saved;
  record.dataKB = status.dataKB;
  record.stackKB = status.stackKB;
  record.codeKB = status.codeKB;
  record.modern.heapKB = status.dataKB;
  record.modern.sharedLibKB = status.sharedLibKB;
  record.modern.swapKB = status.swapKB;
  FillSwitches(status, record);
}

void FillPages(const ProcessPages& pages, std::uint64_t pageBytes, Process& record) {
  record.totalBytes = LowWord(pages.size * pageBytes);
  record.sharedKB = static_cast<double>(pages.shared * (pageBytes >> 10U));
  record.modern.totalKB = pages.size * (pageBytes >> 10U) + record.modern.swapKB;
}

void FillIo(const ProcessIo& io, Process& record) {
  record.reads = LowWord(io.reads);
  record.writes = LowWord(io.writes);
  record.blockOps = LowWord(io.reads + io.writes);
  record.modern.ioBytes = io.bytesRead + io.bytesWritten;
  record.ioKbytes = LowWord(record.modern.ioBytes >> 10U);
}
