#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "collect/Collector.h"
#include "collect/device/DeviceMap.h"
#include "process/ProcessMarks.h"
#include "process/ProcessRow.h"
#include "process/ProcessRules.h"
#include "process/ProcessSummary.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

using SummaryRow = recordPD_PDS;

struct PDSState : FamilyState {
  std::unique_ptr<ProcessSummary> summary;
  /// Kept for the accounting of ended processes.
  std::int32_t endedProcesses = 0;
};

/// What a request's last record counted.
struct PDSReport {
  std::int32_t previousCount = 0;
  std::int32_t endedTotal = 0;
};

class PDSUserObject : public CMBUserObject {
 public:
  PDSReport report;
  /// Of real-time requests only.
  ProcessSamples previousProcesses;
  /// The processes of the last record, where the rules keep them.
  ProcessMarks marks;
};

/// What began and ended between two records.
struct Arrivals {
  std::int32_t started = 0;
  std::int32_t ended = 0;
};

/// Told by the counts alone.
Arrivals ArrivalsByCount(std::int32_t count, std::int32_t previous) {
  return {.started = std::max(count - previous, 0), .ended = std::max(previous - count, 0)};
}

/// Told by which processes there are.
Arrivals ArrivalsByProcess(const std::vector<Process>& processes, const ProcessMarks& previous) {
  const auto stayed =
      std::count_if(processes.begin(), processes.end(),
                    [&](const Process& process) { return previous.Find(process) != nullptr; });
  return {
      .started = static_cast<std::int32_t>(processes.size()) - static_cast<std::int32_t>(stayed),
      .ended = static_cast<std::int32_t>(previous.Size()) - static_cast<std::int32_t>(stayed)};
}

constexpr std::uint32_t Unsigned(std::int32_t count) { return static_cast<std::uint32_t>(count); }

void FillCounts(SummaryRow& row, const ProcessSummary& summary) {
  row.processes = Unsigned(summary.GetProcessCount());
  row.terminals = Unsigned(summary.GetActiveTerminalCount());
  row.users = Unsigned(summary.GetUniqueUserCount());
  row.activeUsers = Unsigned(summary.GetActiveUserCount());
  row.activeUserProcesses = Unsigned(summary.GetActiveUserProcessCount());
  row.activeSystemProcesses = Unsigned(summary.GetActiveSystemProcessCount());
  row.memProcesses = Unsigned(summary.GetMemMgmtProcessCount());
  row.runnableProcesses = Unsigned(summary.GetStateRunCount());
  row.sleepingProcesses = Unsigned(summary.GetStateSleepCount());
  row.swappedProcesses = Unsigned(summary.GetSwappedProcessCount());
  row.zombieProcesses = Unsigned(summary.GetStateZombieCount());
  row.stoppedProcesses = Unsigned(summary.GetStateStopCount());
  row.daemonProcesses = Unsigned(summary.GetDaemonProcessCount());
}

/// What began and ended since the request's last record; `last` takes the new count. With no last
/// count nothing can be compared, so the figures of activity are 0 too.
void FillArrivals(SummaryRow& row, std::int32_t count, const Arrivals& arrivals,
                  const ProcessRules& rules, PDSReport& last) {
  Trace(30, kInformation, " Accounting is not effective.");
  if (last.previousCount == 0) {
    if (!rules.tellsUseAtOnce) {
      row.terminals = 0U;
      row.activeUsers = 0U;
    }
    row.activeUserProcesses = 0U;
    row.activeSystemProcesses = 0U;
  } else {
    row.newProcesses = Unsigned(arrivals.started);
    row.terminatedProcesses = Unsigned(arrivals.ended);
  }
  last.previousCount = count;
  // The total may wrap on a host that lives long.
  last.endedTotal = static_cast<std::int32_t>(Unsigned(last.endedTotal) + Unsigned(arrivals.ended));
}

}  // namespace

UtlError* RecordBuilder::BuildPD_PDS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_PDS", AddressOf(pEvent), AddressOf(pRequest));
  auto& state = StateOf<PDSState>();
  if (!state.summary) {
    state.summary = std::make_unique<ProcessSummary>(m_pCollector, &DeviceMap::Instance());
  }
  auto [last, first] = ClaimUserObject<PDSUserObject>(*pRequest);
  const bool realtime = pEvent->IsRealtime() != 0;
  if (UtlErrorPtr error{state.summary->BuildFullSummary(
          m_cycle, pEvent->IsRealtime(), realtime && !first ? &last.previousProcesses : nullptr)}) {
    Trace(30, kWarning, "Unable to process Accounting records: %1.", error->GetMessage());
    TraceExit("RecordBuilder::BuildPD_PDS", 1);
    return error.release();
  }
  try {
    SummaryRow row = NewRow<SummaryRow>(static_cast<std::int32_t>(Os().time(nullptr)));
    FillCounts(row, *state.summary);
    PDSReport report = last.report;
    const ProcessRules& rules = ProcessRulesOf(g_hostProfile);
    const std::vector<Process>& processes = *m_pCollector->GetProcess();
    const std::int32_t count = state.summary->GetProcessCount();
    FillArrivals(row, count,
                 rules.keepsMarks ? ArrivalsByProcess(processes, last.marks)
                                  : ArrivalsByCount(count, report.previousCount),
                 rules, report);
    ProcessMarks marks;
    if (rules.keepsMarks) {
      marks = ProcessMarks(processes);
    }
    ProcessSamples samples;
    if (realtime) {
      TakeSamples(processes, samples);
    }
    DeliverRow(row, *pEvent, 0);
    state.endedProcesses = report.endedTotal;
    last.report = report;
    last.marks = std::move(marks);
    if (realtime) {
      last.previousProcesses.swap(samples);
    }
  } catch (const std::bad_alloc& failure) {
    Trace(30, kWarning, "Unable to get process summary information: %1.", failure.what());
    TraceExit("RecordBuilder::BuildPD_PDS", 0);
    return nullptr;
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<SummaryRow>::kName, 1);
  TraceExit("RecordBuilder::BuildPD_PDS", 0);
  return nullptr;
}
