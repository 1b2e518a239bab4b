#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <new>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "collect/process/ProcessSourceLINUX.h"
#include "node/RecordRequest.h"
#include "process/ProcessMarks.h"
#include "process/ProcessRules.h"
#include "process/ProcessTrace.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/AgentUtil.h"
#include "support/TraceLog.h"

// What the records with one row a process share.

/// "SLEEP", "RUN" and so on by the code of Process::GetState(); "UNKNOWN" for a code above 9.
[[nodiscard]] const char* StateText(std::uint32_t state);

/// Names of users, groups and terminals, looked up once in a batch: to ask the system for one that
/// it does not know costs more than all the rest of a row. Names are cut to a record's field.
class BatchNames : public FamilyState {
 public:
  using Name = Text<36>;
  using TerminalName = Text<40>;

  /// Forgets all names if `cycle` is another one than at the last call.
  void Begin(std::uint32_t cycle);
  /// Valid until the next batch begins.
  [[nodiscard]] const Name& User(std::int32_t uid);
  [[nodiscard]] const Name& Group(std::int32_t gid);
  [[nodiscard]] const TerminalName& Terminal(std::uint64_t device);

 private:
  std::uint32_t m_cycle = 0;
  std::unordered_map<std::int32_t, Name> m_users;
  std::unordered_map<std::int32_t, Name> m_groups;
  std::unordered_map<std::uint64_t, TerminalName> m_terminals;
};

/// Who is whose parent in one process list.
class ProcessTree {
 public:
  explicit ProcessTree(std::span<const Process* const> processes);

  /// "<50<1<0" for a process whose parent is 50; empty for one whose parent is 0. `size` bytes.
  void ParentList(const Process& process, char* text, std::size_t size) const;
  /// "101 102 ", by ascending number; empty without children. `size` bytes.
  void ChildList(const Process& process, char* text, std::size_t size) const;

 private:
  ParentMap m_parents;
  /// Parent and child, in ascending order.
  std::vector<std::pair<std::int32_t, std::int32_t>> m_children;
};

/// The rows of a request's last answer by process number; none if that is null. The rows are the
/// framework's. With `marks`, which are of the same answer, these tell whether it is the same
/// process, else the start time of the row.
template <class Row>
class PreviousRows {
 public:
  explicit PreviousRows(const std::list<CMBRecord*>* records, const ProcessMarks* marks = nullptr)
      : m_marks(marks) {
    if (records == nullptr) {
      return;
    }
    const typename RecordTraits<Row>::Class sample(nullptr);
    m_rows.reserve(records->size());
    for (const CMBRecord* record : *records) {
      if (record->GetRecSize() == sample.GetRecSize() &&
          record->GetFieldTypeArray() == sample.GetFieldTypeArray()) {
        const auto* row = static_cast<const Row*>(record->GetRecStart());
        m_rows.try_emplace(row->pid, row);
      }
    }
  }

  /// The row of the same process; null if there is none. `row` is that of now.
  [[nodiscard]] const Row* Find(const Row& row, const Process& process) const {
    const auto found = m_rows.find(row.pid);
    if (found == m_rows.end()) {
      return nullptr;
    }
    const bool isSame = m_marks == nullptr ? found->second->startTime == row.startTime
                                           : m_marks->Find(process) != nullptr;
    return isSame ? found->second : nullptr;
  }

 private:
  const ProcessMarks* m_marks;
  std::unordered_map<std::int32_t, const Row*> m_rows;
};

/// What the rates of a process row are made of.
struct RowIo {
  std::uint32_t reads = 0;
  std::uint32_t writes = 0;
  std::uint32_t ops = 0;
  float kbytes = 0.0F;
};

template <class Row>
[[nodiscard]] RowIo IoOf(const Row& row) {
  return {row.reads, row.writes, row.totalIoOps, row.totalIoKbytes};
}

/// The four rate fields over `seconds`; 0 where these are not above 0.
template <class Row>
void SetRates(Row& row, const RowIo& io, std::int64_t seconds) {
  const auto divisor = static_cast<float>(seconds);
  const auto rate = [&](float total) { return seconds > 0 ? total / divisor : 0.0F; };
  row.readsPerSec = rate(static_cast<float>(io.reads));
  row.writesPerSec = rate(static_cast<float>(io.writes));
  row.totalIoOpsPerSec = rate(static_cast<float>(io.ops));
  row.throughputPerSec = rate(io.kbytes);
}

/// `Avg I/O Kbytes` of the row's totals; 0 without I/O.
template <class Row>
void SetAverageIo(Row& row) {
  const std::uint32_t ops = row.totalIoOps;
  row.avgIoKbytes = ops == 0 ? 0.0F : row.totalIoKbytes / static_cast<float>(ops);
}

/// `CPU % Each` is `cpu` as a share of `seconds`, 0 where one of them is not above 0; `CPU %` is
/// its part of all `processors`.
template <class Row>
void SetCpuPercent(Row& row, const tagUTIME& cpu, std::int64_t seconds, std::uint32_t processors) {
  const float used = 100.0F * ToFloat(cpu);
  const float percent = seconds > 0 && used > 0.0F ? used / static_cast<float>(seconds) : 0.0F;
  row.cpuPercentEach = percent;
  row.cpuPercent = processors == 0 ? percent : percent / static_cast<float>(processors);
}

/// Gives the event a copy of a finished row, its `index`-th.
template <class Row>
void DeliverRow(const Row& row, CMBRecordRequestEvent& event, int index) {
  DumpRecord(row, index);
  PrintProcessTrace("record %s %d built", RecordTraits<Row>::kName, index);
  event.AddRecord(std::make_unique<typename RecordTraits<Row>::Class>(&row));
}

/// Seconds from one point in time to another.
[[nodiscard]] constexpr std::int64_t SecondsBetween(std::int32_t from, std::int32_t to) {
  return std::int64_t{to} - from;
}

/// The CPU time of a row, user and system.
template <class Row>
[[nodiscard]] tagUTIME CpuOf(const Row& row) {
  return static_cast<tagUTIME>(row.userCpu) + static_cast<tagUTIME>(row.systemCpu);
}

/// Copies what both records have of a process, with its cumulative figures, into a row that has its
/// type and time. Rates and `CPU %` stay untouched.
template <class Row>
void FillProcessRow(Row& row, const Process& process, const ProcessRules& rules, BatchNames& names);

/// Runs one step for one process. Memory that runs out costs this step alone and is traced with
/// `failure`, whose %1 is the process number.
template <class Step>
void AttemptStep(const char* failure, const Process& process, const Step& step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    Trace(30, kWarning, failure, process.GetPid());
  }
}

inline constexpr const char* kNoProcessData = "Unable to construct data for process id: %1.";
