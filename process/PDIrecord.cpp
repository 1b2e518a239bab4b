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

/// The difference of a total that wraps at 4 Gbytes.
float IoKbytesDelta(float current, float previous) {
  constexpr double kWrapsAbove = 2097152.0;
  constexpr double kWrap = 4194303.9990234375;
  const float delta = current - previous;
  if (!(delta < 0.0F)) {
    return delta;
  }
  return current > kWrapsAbove ? static_cast<float>(delta + kWrap) : 0.0F;
}

/// One pass over the processes of one request.
class PDIBuild {
 public:
  PDIBuild(const CMBRecordRequestEvent& event, std::uint32_t processors)
      : m_processors(processors),
        m_realtime(event.IsRealtime() != 0),
        m_withRates(event.ShouldCalcRates() != 0),
        m_previousRows(m_realtime ? &event.PreviousRecords() : nullptr) {}

  /// The finished row of an interval, from a row that holds its difference.
  void FinishInterval(IntervalRow& row) const {
    const auto seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(row.interval));
    SetAverageIo(row);
    SetCpuPercent(row, CpuOf(row), seconds, m_processors);
    SetRates(row, IoOf(row), m_withRates ? seconds : 1);
  }

  /// The finished row of a look on demand: the totals stay, `CPU %` and with rates the rate fields
  /// are of the time since the last look or since the start.
  void FinishLook(IntervalRow& row) const {
    const IntervalRow* previous = m_previousRows.Find(row);
    const IntervalRow birth = NewRow<IntervalRow>(row.startTime);
    const IntervalRow& from = previous == nullptr ? birth : *previous;
    const std::int64_t seconds = SecondsBetween(from.recordTime, row.recordTime);
    SetCpuPercent(row, CpuOf(row) - CpuOf(from), seconds, m_processors);
    if (!m_withRates) {
      SetRates(row, IoOf(row), 1);
      return;
    }
    row.interval = static_cast<std::uint32_t>(std::max<std::int64_t>(seconds, 0));
    SetRates(row,
             {row.reads - from.reads, row.writes - from.writes, row.totalIoOps - from.totalIoOps,
              IoKbytesDelta(row.totalIoKbytes, from.totalIoKbytes)},
             seconds);
  }

  [[nodiscard]] bool IsRealtime() const { return m_realtime; }

 private:
  std::uint32_t m_processors;
  bool m_realtime;
  bool m_withRates;
  PreviousRows<IntervalRow> m_previousRows;
};

}  // namespace

PDIFigures::PDIFigures(const recordPD_PDI& row)
    : pid(row.pid),
      startTime(row.startTime),
      recordTime(row.recordTime),
      userCpu(row.userCpu),
      systemCpu(row.systemCpu),
      totalIoKbytes(row.totalIoKbytes) {
  for (std::size_t i = 0; i < kCounters.size(); ++i) {
    counters[i] = row.*kCounters[i];
  }
}

std::optional<PDIFigures> PDIRows::Take(std::int32_t pid, std::int32_t startTime, bool anyStart) {
  auto row =
      std::lower_bound(m_rows.begin(), m_rows.end(), pid,
                       [](const Entry& entry, std::int32_t sought) { return entry.pid < sought; });
  for (; row != m_rows.end() && row->pid == pid; ++row) {
    if (!row->taken && (anyStart || row->startTime == startTime)) {
      row->taken = true;
      ++m_taken;
      return *row;
    }
  }
  return std::nullopt;
}

recordPD_PDI DeltaPD_PDI(recordPD_PDI& row, PDIRows& oldRows, PDIRows& newRows,
                         bool diedProcesses) {
  TraceEntry("RecordBuilder::DeltaPD_PDI", AddressOf(&row));
  const bool defunct = row.program.view().starts_with(kDefunct);
  const std::optional<PDIFigures> found = oldRows.Take(row.pid, row.startTime, defunct);
  if (found && defunct && !diedProcesses) {
    row.startTime = found->startTime;
    row.userCpu = tagUTIME{};
    row.systemCpu = tagUTIME{};
    row.totalIoKbytes = 0.0F;
  }
  PDIFigures old;
  old.recordTime = row.startTime;
  if (found) {
    old = *found;
  }

  IntervalRow delta = row;
  delta.interval =
      static_cast<std::uint32_t>(row.recordTime) - static_cast<std::uint32_t>(old.recordTime);
  SubtractCpu(delta, old);
  for (std::size_t i = 0; i < PDIFigures::kCounters.size(); ++i) {
    Ulong& counter = delta.*PDIFigures::kCounters[i];
    counter = counter - old.counters[i];
  }
  delta.totalIoKbytes = IoKbytesDelta(row.totalIoKbytes, old.totalIoKbytes);

  if (row.endTime < row.startTime) {
    newRows.Add(row);
  }
  TraceExit("RecordBuilder::DeltaPD_PDI", 0);
  return delta;
}

UtlError* RecordBuilder::BuildPD_PDI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_PDI", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  PastProcesses& past = ClaimUserObject<PDIObject>(*pRequest).object.m_past;
  const PDIBuild build(*pEvent, GetNumCPUs());
  const ProcessInput input = InputOfProcesses();
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
      FillProcessRow(row, *process, input.names);
      if (build.IsRealtime()) {
        build.FinishLook(row);
      } else {
        row = DeltaPD_PDI(row, kept, newRows, m_bGetDiedProcess != 0);
        build.FinishInterval(row);
      }
    });
    DeliverRow(row, *pEvent, count);
    ++count;
  }
  if (!build.IsRealtime()) {
    kept = std::move(newRows);
    past = std::move(next);
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<IntervalRow>::kName, count);
  TraceExit("RecordBuilder::BuildPD_PDI", 0);
  return nullptr;
}
