#include <utility>

#include "process/PastProcesses.h"
#include "process/ProcessRow.h"
#include "process/ProcessTrace.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"

namespace {

using Row = recordPD;

struct PDState : FamilyState {
  PastProcesses past;
};

/// `CPU %` since the process's start, or, for a look without rates, since its `previous` row, which
/// may be null.
void FillRatios(Row& row, const Process& process, const Row* previous, bool withRates,
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

void FillRelatives(Row& row, const Process& process, const ProcessTree& tree) {
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
  ProcessList processes(*m_pCollector->GetProcess());
  auto& past = StateOf<PDState>().past;
  PastProcesses next;
  // The rows hold totals, so the past serves to know the ended processes alone.
  const bool keepsPast = pEvent->IsRealtime() == 0 && m_bGetDiedProcess != 0;
  if (keepsPast) {
    next = past.Advance(processes, EndedProcesses(*m_pCollector, m_bGetDiedProcess),
                        StateOf<BatchSnapshot>().Take(m_cycle, *m_pCollector->GetProcess()), now);
  }
  const PreviousRows<Row> previousRows(withRates ? nullptr : &pEvent->PreviousRecords());
  const ProcessTree tree(processes.rows);
  auto& names = StateOf<BatchNames>();
  names.Begin(m_cycle);

  int count = 0;
  for (const Process* process : processes.rows) {
    Row row = NewRow<Row>(now);
    AttemptStep(kNoProcessData, *process, [&] {
      FillProcessRow(row, *process, names);
      FillRatios(row, *process, previousRows.Find(row), withRates, GetNumCPUs());
      FillRelatives(row, *process, tree);
    });
    DumpRecord(row, count);
    PrintProcessTrace("record %s %d built", RecordTraits<Row>::kName, count);
    pEvent->m_records.push_back(new RecordTraits<Row>::Class(&row));
    ++count;
  }
  if (keepsPast) {
    past = std::move(next);
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, count);
  TraceExit("RecordBuilder::BuildPD", 0);
  return nullptr;
}
