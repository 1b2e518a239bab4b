#include "process/PDIrecord.h"

#include <algorithm>
#include <utility>

#include "process/PastProcesses.h"
#include "process/ProcessComparison.h"
#include "process/ProcessRow.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using IntervalRow = recordPD_PDI;

struct PDIState : FamilyState {
  PDIRows rows;
};

/// The process list of the request's last interval.
class PDIObject : public CMBUserObject {
 public:
  PastProcesses m_past;
  /// Of the request's last answer to a look.
  ProcessMarks m_marks;
};

void SortByProcessId(ProcessList& list) {
  std::stable_sort(list.rows.begin(), list.rows.end(),
                   [](const Process* a, const Process* b) { return a->GetPid() < b->GetPid(); });
}

void TraceListed(const Process& process) {
  Trace(30, kInformation, "process %1 of start time %2", process.GetPid(),
        process.GetStartTime().seconds);
}

void TraceLists(const PastProcesses& past, const ProcessList& list) {
  if (!IsTraced(30)) {
    return;
  }
  Trace(30, kInformation, "BuildPD_PDI: oldProcessList\n");
  for (const Process& process : past.Processes()) {
    TraceListed(process);
  }
  Trace(30, kInformation, "BuildPD_PDI: ProcessList\n");
  for (const Process* process : list.rows) {
    TraceListed(*process);
  }
}

/// What a row, and the process that it is of, have of I/O.
ProcessIoTotal IoTotalOf(const IntervalRow& row, const ModernProcessFigures& modern) {
  return {.kbytes = row.totalIoKbytes, .bytes = modern.ioBytes, .isUnknown = modern.isIoUnknown};
}

/// The same of the last look; `mark` is null if there is none.
ProcessIoTotal IoTotalOf(const IntervalRow& row, const ProcessMarks::Mark* mark) {
  return mark == nullptr ? ProcessIoTotal{.kbytes = row.totalIoKbytes}
                         : ProcessIoTotal{.kbytes = row.totalIoKbytes,
                                          .bytes = mark->ioBytes,
                                          .isUnknown = mark->isIoUnknown};
}

bool IsAnyStart(const ProcessStart& /*a*/, const ProcessStart& /*b*/) { return true; }

/// One pass over the processes of one request.
class PDIBuild {
 public:
  PDIBuild(const CMBRecordRequestEvent& event, std::uint32_t processors, const ProcessRules& rules,
           const ProcessMarks& marks)
      : m_processors(processors),
        m_rules(rules),
        m_marks(marks),
        m_realtime(event.IsRealtime() != 0),
        m_withRates(event.ShouldCalcRates() != 0),
        m_previousRows(m_realtime ? &event.PreviousRecords() : nullptr,
                       rules.keepsMarks ? &marks : nullptr) {}

  /// The finished row of an interval, from a row that holds its difference.
  void FinishInterval(IntervalRow& row) const {
    const auto seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(row.interval));
    SetAverageIo(row);
    SetCpuPercent(row, CpuOf(row), seconds, m_processors);
    SetRates(row, IoOf(row), m_withRates ? seconds : 1);
  }

  /// The finished row of a look on demand: the totals stay, `CPU %` and with rates the rate fields
  /// are of the time since the last look or since the start.
  void FinishLook(IntervalRow& row, const Process& process) const {
    const IntervalRow* previous = m_previousRows.Find(row, process);
    const IntervalRow birth =
        NewRow<IntervalRow>(m_rules.countsFrom(row.startTime, row.recordTime));
    const IntervalRow& from = previous == nullptr ? birth : *previous;
    const std::int64_t seconds = SecondsBetween(from.recordTime, row.recordTime);
    SetCpuPercent(row, CpuOf(row) - CpuOf(from), seconds, m_processors);
    if (!m_withRates) {
      SetRates(row, IoOf(row), 1);
      return;
    }
    row.interval = static_cast<std::uint32_t>(std::max<std::int64_t>(seconds, 0));
    const ProcessIoTotal now = IoTotalOf(row, process.modern);
    const ProcessIoTotal before = IoTotalOf(from, m_marks.Find(process));
    if (!IsComparable(now, before)) {
      SetRates(row, {}, seconds);
      return;
    }
    SetRates(row,
             {m_rules.growth(row.reads, from.reads), m_rules.growth(row.writes, from.writes),
              m_rules.growth(row.totalIoOps, from.totalIoOps), m_rules.ioGrowth(now, before)},
             seconds);
  }

  [[nodiscard]] bool IsRealtime() const { return m_realtime; }

 private:
  std::uint32_t m_processors;
  const ProcessRules& m_rules;
  const ProcessMarks& m_marks;
  bool m_realtime;
  bool m_withRates;
  PreviousRows<IntervalRow> m_previousRows;
};

}  // namespace

PDIFigures::PDIFigures(const recordPD_PDI& row, const ModernProcessFigures& modern)
    : pid(row.pid),
      start{row.startTime, modern.startTicks},
      recordTime(row.recordTime),
      userCpu(row.userCpu),
      systemCpu(row.systemCpu),
      io(IoTotalOf(row, modern)) {
  for (std::size_t i = 0; i < kCounters.size(); ++i) {
    counters[i] = row.*kCounters[i];
  }
}

std::optional<PDIFigures> PDIRows::Take(std::int32_t pid, const ProcessStart& start,
                                        bool (*isSame)(const ProcessStart&, const ProcessStart&)) {
  auto row =
      std::lower_bound(m_rows.begin(), m_rows.end(), pid,
                       [](const Entry& entry, std::int32_t sought) { return entry.pid < sought; });
  for (; row != m_rows.end() && row->pid == pid; ++row) {
    if (!row->taken && isSame(row->start, start)) {
      row->taken = true;
      ++m_taken;
      return *row;
    }
  }
  return std::nullopt;
}

recordPD_PDI DeltaPD_PDI(recordPD_PDI& row, PDIRows& oldRows, PDIRows& newRows, bool diedProcesses,
                         const ProcessRules& rules, const ModernProcessFigures& modern) {
  TraceEntry("RecordBuilder::DeltaPD_PDI", AddressOf(&row));
  const bool defunct = rules.hasDefunctNames && row.program.view().starts_with(kDefunct);
  const std::optional<PDIFigures> found = oldRows.Take(row.pid, {row.startTime, modern.startTicks},
                                                       defunct ? IsAnyStart : rules.isSame);
  if (found && defunct && !diedProcesses) {
    row.startTime = found->start.seconds;
    row.userCpu = tagUTIME{};
    row.systemCpu = tagUTIME{};
    row.totalIoKbytes = 0.0F;
  }
  const std::int32_t birth = rules.countsFrom(row.startTime, row.recordTime);
  PDIFigures old;
  old.recordTime = birth;
  if (found) {
    old = *found;
  }

  IntervalRow delta = row;
  delta.interval =
      static_cast<std::uint32_t>(row.recordTime) - static_cast<std::uint32_t>(old.recordTime);
  SubtractCpu(delta, old);
  for (std::size_t i = 0; i < PDIFigures::kCounters.size(); ++i) {
    Ulong& counter = delta.*PDIFigures::kCounters[i];
    counter = rules.growth(counter, old.counters[i]);
  }
  if (const ProcessIoTotal io = IoTotalOf(row, modern); IsComparable(io, old.io)) {
    delta.totalIoKbytes = rules.ioGrowth(io, old.io);
  } else {
    delta.reads = delta.writes = delta.totalIoOps = 0U;
    delta.totalIoKbytes = 0.0F;
  }

  if (row.endTime < birth) {
    newRows.Add(row, modern);
  }
  TraceExit("RecordBuilder::DeltaPD_PDI", 0);
  return delta;
}

UtlError* RecordBuilder::BuildPD_PDI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_PDI", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  PDIObject& object = ClaimUserObject<PDIObject>(*pRequest).object;
  PastProcesses& past = object.m_past;
  const ProcessInput input = InputOfProcesses();
  const PDIBuild build(*pEvent, GetNumCPUs(), input.rules, object.m_marks);
  ProcessList list(input.Processes());
  PastProcesses next;
  if (!build.IsRealtime()) {
    next = input.Advance(past, list, now);
  }
  SortByProcessId(list);
  TraceLists(past, list);
  auto& kept = StateOf<PDIState>().rows;
  input.names.Begin(m_cycle);

  PDIRows newRows;
  if (!build.IsRealtime()) {
    newRows.Reserve(list.rows.size());
  }
  int count = 0;
  for (const Process* process : list.rows) {
    IntervalRow row = NewRow<IntervalRow>(now);
    AttemptStep(kNoProcessData, *process, [&] {
      FillProcessRow(row, *process, input.rules, input.names);
      if (build.IsRealtime()) {
        build.FinishLook(row, *process);
      } else {
        row = DeltaPD_PDI(row, kept, newRows, m_bGetDiedProcess != 0, input.rules, process->modern);
        build.FinishInterval(row);
      }
    });
    DeliverRow(row, *pEvent, count);
    ++count;
  }
  if (!build.IsRealtime()) {
    kept = std::move(newRows);
    past = std::move(next);
  } else if (input.rules.keepsMarks) {
    object.m_marks = ProcessMarks(input.Processes());
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<IntervalRow>::kName, count);
  TraceExit("RecordBuilder::BuildPD_PDI", 0);
  return nullptr;
}
