#include <utility>

#include "process/PastProcesses.h"
#include "process/ProcessRow.h"
#include "support/OsCalls.h"

namespace {

using DetailRow = recordPD;

struct PDState : FamilyState {
  PastProcesses past;
};

/// `CPU %` since the process's start, or, for a look without rates, since its `previous` row, which
/// may be null.
void FillRatios(DetailRow& row, const Process& process, const DetailRow* previous, bool withRates,
                std::uint32_t processors) {
  const std::int64_t elapsed = static_cast<tagUTIME>(row.elapsedTime).seconds;
  SetRates(row, IoOf(row), withRates ? elapsed : 1);
  if (previous != nullptr) {
    SetCpuPercent(row, CpuOf(row) - CpuOf(*previous),
                  SecondsBetween(previous->recordTime, row.recordTime), processors);
  } else {
    SetCpuPercent(row, CpuOf(row),
                  process.died != 0 ? elapsed : SecondsBetween(row.startTime, row.recordTime),
                  processors);
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
  const PreviousRows<DetailRow> previousRows(withRates ? nullptr : &pEvent->PreviousRecords());
  const ProcessTree tree(processes.rows);
  input.names.Begin(m_cycle);

  int count = 0;
  for (const Process* process : processes.rows) {
    DetailRow row = NewRow<DetailRow>(now);
    AttemptStep(kNoProcessData, *process, [&] {
      FillProcessRow(row, *process, input.names);
      FillRatios(row, *process, previousRows.Find(row), withRates, GetNumCPUs());
      FillRelatives(row, *process, tree);
    });
    DeliverRow(row, *pEvent, count);
    ++count;
  }
  if (keepsPast) {
    past = std::move(next);
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<DetailRow>::kName, count);
  TraceExit("RecordBuilder::BuildPD", 0);
  return nullptr;
}
