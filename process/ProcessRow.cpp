#include "process/ProcessRow.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <type_traits>

#include "collect/accounting/AcctSourceLINUX.h"
#include "collect/device/DeviceMap.h"
#include "collect/process/NameCache.h"

namespace {

/// The whole part, 0 to the greatest 32-bit number.
std::uint32_t WholeNumber(double value) {
  constexpr double kGreatest = std::numeric_limits<std::uint32_t>::max();
  return value > 0.0 ? static_cast<std::uint32_t>(std::min(value, kGreatest)) : 0;
}

template <class Row>
void FillIdentity(Row& row, const Process& process, const ProcessRules& rules, BatchNames& names) {
  row.pid = process.GetPid();
  row.program = process.GetName();
  row.parentPid = process.GetPpid();
  row.realUserId = process.GetRuid();
  row.userId = process.GetEuid();
  row.groupId = process.GetEgid();
  row.realUser = names.User(process.GetRuid());
  row.user = names.User(process.GetEuid());
  row.group = names.Group(process.GetEgid());
  row.argumentList = process.GetCmdline();
  row.terminal = names.Terminal(process.GetTty());
  row.state = rules.stateText(process);
  row.startTime = process.GetStartTime().seconds;
}

template <class Row>
void FillFigures(Row& row, const Process& process, const ProcessRules& rules) {
  row.userCpu = process.GetUserTime();
  row.systemCpu = process.GetSystemTime();
  row.priority = process.GetPriority();
  row.niceness = process.GetNice();
  row.majorFaults = process.GetMajorFaults();
  row.minorFaults = process.GetMinorFaults();
  row.swaps = process.GetSwaps();
  row.contextSwitches = process.contextSwitches;
  row.signalsRcvd = process.signals;
  row.reads = process.reads;
  row.writes = process.writes;
  row.totalIoOps = process.blockOps;
  row.totalIoKbytes = rules.ioTotal(process).kbytes;
  SetAverageIo(row);
}

template <class Row>
void FillMemory(Row& row, const Process& process, const ProcessRules& rules) {
  const ProcessSizes sizes = rules.sizes(process);
  row.realMemKbytes = sizes.real;
  row.virtualMemKbytes = sizes.virtualMem;
  row.totalProcessKbytes = sizes.total;
  row.stackKbytes = sizes.stack;
  row.heapKbytes = sizes.heap;
  row.sharedMemKbytes = WholeNumber(process.GetSharedKB());
  row.sharedLibKbytes = sizes.sharedLib;
  row.executableTextKbytes = sizes.text;
  row.executableDataKbytes = sizes.data;
}

/// What only PD has.
void FillDetail(recordPD& row, const Process& process, const ProcessRules& rules,
                BatchNames& names) {
  std::array<char, sizeof row.programPid> text{};
  std::snprintf(text.data(), text.size(), "%s(%d)", row.program.c_str(), process.GetPid());
  row.programPid = text.data();
  row.realGroupId = process.GetRgid();
  row.realGroup = names.Group(process.GetRgid());
  row.processGroupId = process.GetPgrp();
  row.schedulerClass = rules.schedulerClass(process);
  rules.putFlags(process, row.flags);
  if (process.died == 0) {
    row.elapsedTime = rules.age(process, row.recordTime);
  }
}

template <class Row>
void FillEnd(Row& row, const Process& process) {
  if (process.died == 0) {
    row.snapshotTime = static_cast<std::int32_t>(row.recordTime);
    return;
  }
  const tagUTIME elapsed = process.endTime - process.GetStartTime();
  row.snapshotTime = process.endTime.seconds;
  row.endTime = static_cast<std::int32_t>(std::int64_t{row.startTime} + elapsed.seconds);
  std::array<char, sizeof row.exitStatus> status{};
  std::snprintf(status.data(), status.size(), "%d", process.exitStatus);
  row.exitStatus = status.data();
  std::array<char, 48> flags{};
  AcctSourceUser::bit2flags(flags.data(), process.accountingFlags);
  row.accountingFlags = flags.data();
  if constexpr (std::is_same_v<Row, recordPD>) {
    row.elapsedTime = elapsed;
    row.memCharge = process.memCharge;
  }
}

}  // namespace

const char* StateText(std::uint32_t state) {
  static constexpr std::array kTexts{"NONE", "SLEEP", "RUN",  "IDLE", "ZOMBIE",
                                     "STOP", "ONCPU", "WAIT", "SWAP", "OTHER"};
  return state < kTexts.size() ? kTexts[state] : "UNKNOWN";
}

void BatchNames::Begin(std::uint32_t cycle) {
  if (cycle != m_cycle) {
    m_cycle = cycle;
    m_users.clear();
    m_groups.clear();
    m_terminals.clear();
  }
}

const BatchNames::Name& BatchNames::User(std::int32_t uid) {
  const auto [place, isNew] = m_users.try_emplace(uid);
  if (isNew) {
    place->second = UserName(nullptr, uid);
  }
  return place->second;
}

const BatchNames::Name& BatchNames::Group(std::int32_t gid) {
  const auto [place, isNew] = m_groups.try_emplace(gid);
  if (isNew) {
    place->second = GroupName(nullptr, gid);
  }
  return place->second;
}

const BatchNames::TerminalName& BatchNames::Terminal(std::uint64_t device) {
  const auto [place, isNew] = m_terminals.try_emplace(device);
  if (isNew) {
    place->second = DeviceMap::Instance().Name(device);
  }
  return place->second;
}

ProcessTree::ProcessTree(std::span<const Process* const> processes) {
  m_children.reserve(processes.size());
  for (const Process* process : processes) {
    // The kernel lists processes by number, so the place at the end is most often right.
    m_parents.try_emplace(m_parents.end(), process->GetPid(), process->GetPpid());
    m_children.emplace_back(process->GetPpid(), process->GetPid());
  }
  std::sort(m_children.begin(), m_children.end());
}

void ProcessTree::ParentList(const Process& process, char* text, std::size_t size) const {
  if (process.GetPpid() != 0) {
    BuildParentChain(m_parents, process.GetPpid(), text, size);
  }
}

void ProcessTree::ChildList(const Process& process, char* text, std::size_t size) const {
  const std::int32_t parent = process.GetPid();
  const auto first = std::lower_bound(m_children.begin(), m_children.end(),
                                      std::pair{parent, std::numeric_limits<std::int32_t>::min()});
  // A number takes two characters at least, so of more children than this none would be seen.
  const std::size_t limit = size / 2 + 1;
  ParentMap children;
  for (auto child = first; child != m_children.end() && child->first == parent; ++child) {
    if (children.size() == limit) {
      break;
    }
    children.emplace_hint(children.end(), child->second, parent);
  }
  if (!children.empty()) {
    BuildChildList(children, parent, text, size);
  }
}

template <class Row>
void FillProcessRow(Row& row, const Process& process, const ProcessRules& rules,
                    BatchNames& names) {
  FillIdentity(row, process, rules, names);
  if constexpr (std::is_same_v<Row, recordPD>) {
    FillDetail(row, process, rules, names);
  }
  FillFigures(row, process, rules);
  FillMemory(row, process, rules);
  FillEnd(row, process);
}

template void FillProcessRow(recordPD& row, const Process& process, const ProcessRules& rules,
                             BatchNames& names);
template void FillProcessRow(recordPD_PDI& row, const Process& process, const ProcessRules& rules,
                             BatchNames& names);
