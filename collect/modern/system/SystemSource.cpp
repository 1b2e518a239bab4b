#include "collect/modern/system/SystemSource.h"

#include <algorithm>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "collect/modern/device/BlockDevices.h"
#include "collect/modern/process/ProcessCount.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/modern/system/Loadavg.h"
#include "collect/modern/system/Meminfo.h"
#include "collect/modern/system/Vmstat.h"
#include "collect/system/NoHost.h"
#include "support/LowWord.h"

namespace {

constexpr double kKbytesPerMbyte = 1024;

float MbytesOf(std::uint64_t kbytes) {
  return static_cast<float>(static_cast<double>(kbytes) / kKbytesPerMbyte);
}

/// Kbytes in pages of this machine.
std::uint64_t PagesOf(std::uint64_t kbytes) {
  return kbytes / static_cast<std::uint64_t>(std::max(Os().getpagesize() / 1024, 1));
}

}  // namespace

void ModernSystemSource::read(x_system* record) {
  TraceEntry("ModernSystemSource::read", AddressOf(record));
  m_more = false;
  bool isAnyThere = ReadStat(*record);
  isAnyThere = ReadVmstat(*record) || isAnyThere;
  isAnyThere = ReadLoadavg(*record) || isAnyThere;
  record->isNowhere = !isAnyThere;
  TellNoHost(record->isNowhere);
  ReadMeminfo(*record);
  ReadDisks(*record);
  CountProcesses(*record);
  record->processesDied = static_cast<std::uint32_t>(SystemSourceUser::SystemProcessDied());
  TraceExit("ModernSystemSource::read");
}

bool ModernSystemSource::ReadStat(x_system& record) {
  if (!ReadHostText(kKernelStatPath, m_text)) {
    return false;
  }
  const KernelStatFigures figures = ParseKernelStat(m_text);
  TellMissing(figures);
  record.bootTime = static_cast<std::int32_t>(LowWord(figures.bootTime));
  record.contextSwitches = LowWord(figures.contextSwitches);
  record.interrupts = LowWord(figures.interrupts);
  record.forks = figures.forks;
  record.numCPUs = figures.processors;
  record.runQueue = figures.runnable == 0 ? 0.0F : static_cast<float>(figures.runnable - 1);
  return true;
}

bool ModernSystemSource::ReadVmstat(x_system& record) {
  if (!ReadHostText(kVmstatPath, m_text)) {
    return false;
  }
  const VmstatFigures figures = ParseVmstat(m_text);
  TellMissing(figures);
  record.majorFaults = LowWord(figures.majorFaults);
  record.minorFaults = LowWord(figures.faults - std::min(figures.faults, figures.majorFaults));
  record.blockReads = LowWord(figures.readKB);
  record.blockWrites = LowWord(figures.writtenKB);
  record.pagesIn = LowWord(PagesOf(figures.readKB));
  record.pagesOut = LowWord(PagesOf(figures.writtenKB));
  record.swapIn = LowWord(figures.swapInPages);
  record.swapOut = LowWord(figures.swapOutPages);
  record.pageScans = LowWord(figures.scannedPages);
  record.pageReclaims = LowWord(figures.reclaimedPages);
  return true;
}

bool ModernSystemSource::ReadLoadavg(x_system& record) {
  if (!ReadHostText(kLoadavgPath, m_text)) {
    return false;
  }
  const std::optional<LoadAverages> averages = ParseLoadavg(m_text);
  TellFound(kLoadavgPath, "load averages", averages.has_value());
  if (averages) {
    record.load1 = averages->load1;
    record.load5 = averages->load5;
    record.load15 = averages->load15;
  }
  return true;
}

void ModernSystemSource::ReadMeminfo(x_system& record) {
  if (!ReadHostText(kMeminfoPath, m_text)) {
    return;
  }
  const MeminfoFigures figures = ParseMeminfo(m_text);
  TellMissing(figures);
  record.totalMemMB = MbytesOf(figures.totalKB);
  // Below 0 no figure of free or of used memory is made of it.
  record.freeMemMB = figures.HasAvailable() ? MbytesOf(figures.availableKB) : -1.0F;
  record.totalSwapMB = MbytesOf(figures.totalSwapKB);
  record.freeSwapMB = MbytesOf(figures.freeSwapKB);
}

void ModernSystemSource::ReadDisks(x_system& record) const {
  const bool isRead = m_pCollector != nullptr && m_pCollector->HasCollected(COLLECT_DEVICE);
  const PhysicalOps operations =
      isRead ? PhysicalOpsOf(*m_pCollector->GetDevice()) : ReadPhysicalOps();
  record.physicalReads = LowWord(operations.reads);
  record.physicalWrites = LowWord(operations.writes);
  record.pageInOps = operations.reads;
  record.pageOutOps = operations.writes;
}

void ModernSystemSource::CountProcesses(x_system& record) const {
  const bool isWalked = m_pCollector != nullptr && m_pCollector->HasCollected(COLLECT_PROCESS);
  const ProcessCount count = isWalked ? CountRows(*m_pCollector->GetProcess()) : CountPresent();
  record.numProcesses = count.processes;
  record.numUsers = count.users;
}
