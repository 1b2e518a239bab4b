#include "collect/modern/process/TaskSource.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/process/ProcessRow.h"
#include "collect/modern/process/ProcessText.h"
#include "node/FigureRegistry.h"
#include "support/OsCalls.h"

namespace {

void PublishKeptFigure() {
  FigureRegistry::Instance().Add(
      {"collect_process_kept_bytes",
       "Memory of what is kept of each process beside the task iterator's figures.",
       FigureKind::kGauge,
       [] { return static_cast<double>(KeptParts::Instance().Bytes()); },
       {}});
}

ProcessStat StatOf(const TaskGroup& group, const KeptPart& part, std::uint64_t pageBytes) {
  const TaskFigures& task = group.task;
  ProcessStat stat;
  stat.name = NameOfTask(task, part);
  stat.state = TaskStateLetter(task.state);
  stat.ppid = task.ppid;
  stat.pgrp = task.pgrp;
  stat.session = task.session;
  stat.tty = task.ttyNumber;
  stat.kernelFlags = task.flags;
  stat.minorFaults = task.minorFaults;
  stat.majorFaults = task.majorFaults;
  stat.userTicks = part.times.user / kNanosecondsPerTick;
  stat.systemTicks = part.times.system / kNanosecondsPerTick;
  stat.priority = task.priority;
  stat.nice = task.nice;
  stat.threads = static_cast<std::int32_t>(task.threads);
  stat.startTicks = task.startTime / kNanosecondsPerTick;
  stat.virtualBytes = task.virtualPages * pageBytes;
  stat.residentPages = task.anonymousPages + task.filePages + task.sharedPages;
  stat.processor = task.lastCpu;
  stat.policy = task.policy;
  stat.hasPolicy = true;
  return stat;
}

ProcessStatus StatusOf(const TaskFigures& task, const KeptPart& part, std::uint64_t pageKB) {
  ProcessStatus status;
  const auto id = [](std::uint32_t number) { return static_cast<std::int32_t>(number); };
  status.user = {id(task.uid), id(task.euid), id(task.suid)};
  status.group = {id(task.gid), id(task.egid), id(task.sgid)};
  status.dataKB = task.dataPages * pageKB;
  status.stackKB = task.stackPages * pageKB;
  const std::uint64_t programKB = task.execPages * pageKB;
  status.codeKB = std::min(part.codeKB, programKB);
  status.sharedLibKB = programKB - status.codeKB;
  status.swapKB = task.swapPages * pageKB;
  status.voluntarySwitches = task.voluntarySwitches;
  status.otherSwitches = task.otherSwitches;
  return status;
}

}  // namespace

TaskSource::TaskSource(std::vector<TaskGroup>& groups, std::span<const std::int32_t> missing)
    : m_groups(groups),
      m_missing(missing),
      m_walk(20),
      m_pageBytes(static_cast<std::uint64_t>(Os().getpagesize())) {
  if (s_statistics.constructed++ == 0) {
    PublishKeptFigure();
  }
  if (!m_walk.IsOpen()) {
    m_pendingError = std::make_unique<UtlError>("Unable to open /proc", __FILE__, __LINE__);
    return;
  }
  m_bootTime = PresentBootTime();
}

void TaskSource::read(Process* record) {
  m_more = false;
  if (m_pendingError != nullptr) {
    return;
  }
  if (!m_hasBegun) {
    Begin();
  }
  while (!m_more && (m_next < m_groups.size() || !m_missing.empty())) {
    const bool isMissing = !m_missing.empty() && (m_next == m_groups.size() ||
                                                  m_missing.front() < m_groups[m_next].task.tgid);
    m_more = isMissing ? ReadNextMissing(*record) : ReadNextGroup(*record);
  }
}

bool TaskSource::ReadNextGroup(Process& record) {
  KeptParts& parts = KeptParts::Instance();
  const std::size_t index = m_next++;
  if (!parts.Read(m_walk, m_groups[index], index, m_wishes)) {
    if (parts.At(index).staysInExec) {
      ModernProcessSource::CountSkipped();
    }
    return false;
  }
  Fill(m_groups[index], parts.At(index), record);
  return true;
}

bool TaskSource::ReadNextMissing(Process& record) {
  const std::int32_t pid = m_missing.front();
  m_missing = m_missing.subspan(1);
  if (m_single.ReadSingle(m_pCollector, pid, record)) {
    return true;
  }
  record = Process{};
  return false;
}

void TaskSource::Begin() {
  m_hasBegun = true;
  if (m_pCollector == nullptr) {
    KeptParts::Instance().Match(m_groups);
    return;
  }
  KeptParts::Instance().Match(m_groups, m_pCollector->NamedRows());
  m_pCollector->GetProcessLimits()->clear();
  m_wishes = {m_pCollector->Wants(COLLECT_PROCESS_FOLDER),
              m_pCollector->Wants(COLLECT_PROCESS_LIMITS)};
  if (m_wishes.limits) {
    m_limits = m_pCollector->GetProcessLimits();
  }
}

void TaskSource::Fill(const TaskGroup& group, const KeptPart& part, Process& record) const {
  const TaskFigures& task = group.task;
  const ProcessStat stat = StatOf(group, part, m_pageBytes);
  BeginProcessRow(task.tgid, record);
  FillFromStat(stat, m_bootTime, record);
  FillFromThread(stat, m_pageBytes, record);
  FillMemory(task, part, record);
  FillIo({task.readChars, task.writeChars, task.readCalls, task.writeCalls}, record);
  record.modern.isIoUnknown = (task.present & kTaskHasCharacters) == 0;
  if (m_limits != nullptr) {
    m_limits->push_back(part.limits != nullptr ? *part.limits : ProcessLimits{});
  }
}

void TaskSource::FillMemory(const TaskFigures& task, const KeptPart& part, Process& record) const {
  FillFromStatus(StatusOf(task, part, m_pageBytes >> 10U), record);
  FillPages({task.virtualPages, 0, task.filePages + task.sharedPages}, m_pageBytes, record);
  if (task.virtualPages != 0) {
    std::string_view arguments(part.commandLine);
    arguments = arguments.substr(0, record.cmdline.size());
    arguments = arguments.substr(0, arguments.find_last_not_of(' ') + 1);
    arguments.copy(record.cmdline.data(), record.cmdline.size());
  }
  if (m_wishes.folder) {
    record.cwdInode = part.folderMark.value_or(0);
  }
}
