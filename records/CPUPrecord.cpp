#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <vector>

#include "collect/Collector.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"

namespace {

using ProcessorRow = recordPI_CPUP;

constexpr std::array kProcessorCounters{
    CounterField<ProcessorRow>{&ProcessorRow::contextSwitches, "processor_context_switches"},
    CounterField<ProcessorRow>{&ProcessorRow::interrupts, "processor_interrupts"},
    CounterField<ProcessorRow>{&ProcessorRow::systemCalls, "processor_system_calls"},
    CounterField<ProcessorRow>{&ProcessorRow::traps, "processor_traps"}};
constexpr std::array kProcessorTimes{&ProcessorRow::userTime, &ProcessorRow::systemTime,
                                     &ProcessorRow::idleTime, &ProcessorRow::waitTime};

constexpr IntervalFamily<ProcessorRow> kProcessorFamily{
    .counters = kProcessorCounters,
    .times = kProcessorTimes,
    .sameInstance =
        [](const ProcessorRow& a, const ProcessorRow& b) {
          return std::strcmp(a.processorId.c_str(), b.processorId.c_str()) == 0;
        },
    .ratesOperation = "RecordBuilder::BuildRates_CPUP"};

/// Each processor's total time at its last row: tells one that has stopped accumulating time.
class MyCPUObject : public CMBUserObject {
 public:
  /// The processor's status text; `total` replaces the stored one.
  const char* UpdateStatus(std::uint32_t cpuId, const tagUTIME& total) {
    const auto [place, isNew] = m_totals.try_emplace(cpuId, total);
    if (isNew) {
      return "Unknown";
    }
    const tagUTIME stored = place->second;
    place->second = total;
    if (stored < total) {
      return "On Line";
    }
    return total < stored ? "Unknown" : "Off Line";
  }

 private:
  std::map<std::uint32_t, tagUTIME> m_totals;
};

/// A row with the processor's cumulative figures.
ProcessorRow RawProcessorRow(const CPU& cpu, std::int32_t now) {
  ProcessorRow row = NewRow<ProcessorRow>(now);
  std::array<char, 12> id{};
  std::snprintf(id.data(), id.size(), "%ld", static_cast<long>(cpu.GetCpuId()));
  row.processorId = id.data();
  row.type = cpu.GetType();
  row.contextSwitches = cpu.GetContextSwitches();
  row.interrupts = cpu.GetInterrupts();
  row.systemCalls = cpu.GetSystemCalls();
  row.traps = cpu.GetTraps();
  row.idleTime = cpu.GetIdleTime();
  row.userTime = cpu.GetUserTime();
  row.systemTime = cpu.GetSystemTime();
  row.waitTime = cpu.GetWaitTime();
  return row;
}

void FillProcessorPercentages(ProcessorRow& row, const tagUTIME& user, const tagUTIME& system,
                              const tagUTIME& idle, const tagUTIME& wait) {
  const tagUTIME total = idle + user + system + wait;
  row.userPercent = PercentOf(user, total);
  row.systemPercent = PercentOf(system, total);
  row.idlePercent = PercentOf(idle, total);
  row.waitPercent = PercentOf(wait, total);
  row.cpuPercent = PercentOf(user + system, total);
}

constexpr const char* kOffLine = "Off Line";

bool IsOffLine(const ProcessorRow& row) { return std::strcmp(row.status.c_str(), kOffLine) == 0; }

tagUTIME TotalTime(const ProcessorRow& row) {
  return row.idleTime + row.userTime + row.systemTime + row.waitTime;
}

void CopyProcessorFigures(ProcessorRow& row, const ProcessorRow& from) {
  for (Utime ProcessorRow::*field : kProcessorTimes) {
    row.*field = from.*field;
  }
  row.interrupts = from.interrupts;
}

/// A processor that was never seen on line has nothing to be compared with.
void AmendModernProcessor(ProcessorRow& row, ProcessorRow& /*raw*/, const ProcessorRow& previous) {
  if (IsOffLine(previous) && TotalTime(previous) == tagUTIME{}) {
    CopyProcessorFigures(row, ProcessorRow{});
  }
}

/// A processor that is off line has no figures, but goes on where it stood once it is back. A sum
/// of interrupts is less than before if a device has gone with its line.
constexpr IntervalFamily<ProcessorRow> kModernProcessorFamily = [] {
  IntervalFamily<ProcessorRow> family = kProcessorFamily;
  family.timeDelta = TimeGrowth;
  family.counterDelta = CounterGrowth;
  family.zeroIsUnread = true;
  family.amend = AmendModernProcessor;
  return family;
}();

/// The figures of each processor's last row on line, by its number.
using SeenProcessors = std::vector<ProcessorRow>;

/// Keeps the figures of a processor on line, and gives them to a look's row of one off line.
void RecallProcessor(SeenProcessors& seen, const CPU& cpu, ProcessorRow& row, bool isLook) {
  if (cpu.GetCpuId() >= seen.size()) {
    seen.resize(std::size_t{cpu.GetCpuId()} + 1);
  }
  ProcessorRow& last = seen[cpu.GetCpuId()];
  if (!IsOffLine(row)) {
    CopyProcessorFigures(last, row);
  } else if (isLook) {
    CopyProcessorFigures(row, last);
  }
}

struct CPUPState : FamilyState {
  RawRows<ProcessorRow> rawRows;
  SeenProcessors seen;
};

/// What the profiles differ in.
struct ProcessorRules {
  const IntervalFamily<ProcessorRow>& family;
  const char* (*status)(MyCPUObject& statuses, const CPU& cpu, const tagUTIME& total);
  void (*recall)(SeenProcessors& seen, const CPU& cpu, ProcessorRow& row, bool isLook);
  /// Whether the row's times tell what the processor does.
  bool (*isRunning)(const ProcessorRow& row);
};
constexpr ProcessorRules kClassicProcessorRules{
    .family = kProcessorFamily,
    .status = [](MyCPUObject& statuses, const CPU& cpu,
                 const tagUTIME& total) { return statuses.UpdateStatus(cpu.GetCpuId(), total); },
    .recall = [](SeenProcessors&, const CPU&, ProcessorRow&, bool) {},
    .isRunning = [](const ProcessorRow&) { return true; }};
constexpr ProcessorRules kModernProcessorRules{
    .family = kModernProcessorFamily,
    .status = [](MyCPUObject& /*statuses*/, const CPU& cpu,
                 const tagUTIME& /*total*/) { return cpu.GetOnline() == 0 ? "On Line" : kOffLine; },
    .recall = RecallProcessor,
    .isRunning = [](const ProcessorRow& row) { return !IsOffLine(row); }};

/// With rates the row's own times count, else their differences to the predecessor.
void DeriveProcessorPercentages(const ProcessorRules& rules, ProcessorRow& row,
                                const ProcessorRow* predecessor, bool withRates) {
  if (!rules.isRunning(row)) {
    return;
  }
  if (withRates) {
    FillProcessorPercentages(row, row.userTime, row.systemTime, row.idleTime, row.waitTime);
  } else if (predecessor != nullptr && rules.isRunning(*predecessor)) {
    const auto delta = rules.family.timeDelta;
    FillProcessorPercentages(row, delta(row.userTime, predecessor->userTime),
                             delta(row.systemTime, predecessor->systemTime),
                             delta(row.idleTime, predecessor->idleTime),
                             delta(row.waitTime, predecessor->waitTime));
  }
}

}  // namespace

UtlError* RecordBuilder::Build_CPUP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_CPUP", AddressOf(pEvent), AddressOf(pRequest));
  auto [statuses, first] = ClaimUserObject<MyCPUObject>(*pRequest);
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const std::int32_t upTime = GetUpTimeSeconds();
  UtlTime upTimeValue(std::int64_t{upTime}, std::int64_t{0}, UtlTime::kUtc);
  const char* upTimeText = upTimeValue.FormatDuration();

  const ProcessorRules& rules =
      g_hostProfile == HostProfile::kModern ? kModernProcessorRules : kClassicProcessorRules;
  auto& state = StateOf<CPUPState>();
  IntervalBuild<ProcessorRow> build(rules.family, state.rawRows, *pEvent, first, upTime);
  UtlErrorPtr error;
  for (const CPU& cpu : *m_pCollector->GetCPU()) {
    ProcessorRow row = RawProcessorRow(cpu, now);
    row.bootTime = GetBootTime();
    row.upTime = upTimeText;
    row.status = rules.status(statuses, cpu, TotalTime(row));
    rules.recall(state.seen, cpu, row, pEvent->IsRealtime() != 0);
    error = build.Add(row, [&](ProcessorRow& finished, const ProcessorRow* predecessor) {
      DeriveProcessorPercentages(rules, finished, predecessor, build.WithRates());
    });
    if (error) {
      break;
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<ProcessorRow>::kName, build.RowCount());
  TraceExit("RecordBuilder::Build_CPUP", error ? 1 : 0);
  return error.release();
}
