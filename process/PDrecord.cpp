#include <utility>

#include "process/PastProcesses.h"
#include "process/ProcessRow.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using DetailRow = recordPD;

struct PDState : FamilyState {
  PastProcesses past;
};

/// The processes of the request's last answer.
class PDObject : public CMBUserObject {
 public:
  ProcessMarks marks;
};

/// Only requests that compare with their last answer need marks.
ProcessMarks* MarksOf(CMBRecordRequest& request, const ProcessRules& rules, bool withRates) {
  return rules.keepsMarks && !withRates ? &ClaimUserObject<PDObject>(request).object.marks
                                        : nullptr;
}

void PutLimit(Double& softField, Double& hardField, const ProcessLimits::Limit& limit) {
  softField = limit.soft;
  hardField = limit.hard;
}

void FillLimits(DetailRow& row, const ProcessLimits& limits) {
  PutLimit(row.dataSizeLimit, row.hardDataSizeLimit, limits.dataSize);
  PutLimit(row.fileSizeLimit, row.hardFileSizeLimit, limits.fileSize);
  PutLimit(row.openFilesLimit, row.hardOpenFilesLimit, limits.openFiles);
  PutLimit(row.virtualMemSizeLimit, row.hardVirtualMemSizeLimit, limits.virtualMemSize);
  PutLimit(row.stackSizeLimit, row.hardStackSizeLimit, limits.stackSize);
  PutLimit(row.coreSizeLimit, row.hardCoreSizeLimit, limits.coreSize);
  PutLimit(row.cpuLimit, row.hardCpuLimit, limits.cpuTime);
}

/// The limits of the list's processes, row by row; none unless they have been collected with it.
std::span<const ProcessLimits> LimitsOf(const Collector& collector) {
  const std::vector<ProcessLimits>& limits = *collector.GetProcessLimits();
  return limits.size() == collector.GetProcess()->size() ? std::span(limits)
                                                         : std::span<const ProcessLimits>{};
}

/// `CPU %` since the process's start, or, for a look without rates, since its `previous` row, which
/// may be null.
void FillRatios(DetailRow& row, const Process& process, const DetailRow* previous, bool withRates,
                const ProcessInput& input) {
  const std::int64_t elapsed = static_cast<tagUTIME>(row.elapsedTime).seconds;
  SetRates(row, IoOf(row), withRates ? elapsed : 1);
  if (previous != nullptr) {
    SetCpuPercent(row, CpuOf(row) - CpuOf(*previous),
                  SecondsBetween(previous->recordTime, row.recordTime), input.processors);
  } else {
    const std::int32_t birth = input.rules.countsFrom(row.startTime, row.recordTime);
    SetCpuPercent(row, CpuOf(row),
                  process.died != 0 ? elapsed : SecondsBetween(birth, row.recordTime),
                  input.processors);
  }
}

void FillRelatives(DetailRow& row, const Process& process, const ProcessTree& tree) {
  AttemptStep("Unable to determine parent trace for process %1.", process, [&] {
    tree.ParentList(process, row.parentProcessList.raw.data(), row.parentProcessList.raw.size());
  });
  AttemptStep("Unable to determine children for process id: %1.", process, [&] {
    tree.ChildList(process, row.childProcessList.raw.data(), row.childProcessList.raw.size());
  });
}

}  // namespace

UtlError* RecordBuilder::BuildPD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const bool withRates = pEvent->ShouldCalcRates() != 0;
  const ProcessInput input = InputOfProcesses();
  ProcessList processes(input.Processes());
  auto& past = StateOf<PDState>().past;
  PastProcesses next;
  // The rows hold totals, so the past serves to know the ended processes alone.
  const bool keepsPast = pEvent->IsRealtime() == 0 && m_bGetDiedProcess != 0;
  if (keepsPast) {
    next = input.Advance(past, processes, now);
  }
  ProcessMarks* const marks = MarksOf(*pRequest, input.rules, withRates);
  const PreviousRows<DetailRow> previousRows(withRates ? nullptr : &pEvent->PreviousRecords(),
                                             marks);
  const std::span<const ProcessLimits> limits = LimitsOf(*m_pCollector);
  const ProcessTree tree(processes.rows);
  input.names.Begin(m_cycle);

  int count = 0;
  for (const Process* process : processes.rows) {
    DetailRow row = NewRow<DetailRow>(now);
    AttemptStep(kNoProcessData, *process, [&] {
      FillProcessRow(row, *process, input.rules, input.names);
      FillRatios(row, *process, previousRows.Find(row, *process), withRates, input);
      FillRelatives(row, *process, tree);
    });
    // Ended processes come last and have none.
    if (const auto index = static_cast<std::size_t>(count); index < limits.size()) {
      FillLimits(row, limits[index]);
    }
    DeliverRow(row, *pEvent, count);
    ++count;
  }
  if (keepsPast) {
    past = std::move(next);
  }
  if (marks != nullptr) {
    *marks = ProcessMarks(input.Processes());
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<DetailRow>::kName, count);
  TraceExit("RecordBuilder::BuildPD", 0);
  return nullptr;
}
