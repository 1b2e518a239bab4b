#include <array>
#include <cstdio>
#include <cstring>
#include <map>

#include "collect/Collector.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
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

struct CPUPState : FamilyState {
  RawRows<ProcessorRow> rawRows;
};

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

/// With rates the row's own times count, else their differences to the predecessor.
void DeriveProcessorPercentages(ProcessorRow& row, const ProcessorRow* predecessor,
                                bool withRates) {
  if (withRates) {
    FillProcessorPercentages(row, row.userTime, row.systemTime, row.idleTime, row.waitTime);
  } else if (predecessor != nullptr) {
    FillProcessorPercentages(row, UTIMEDelta4Overflow(row.userTime, predecessor->userTime),
                             UTIMEDelta4Overflow(row.systemTime, predecessor->systemTime),
                             UTIMEDelta4Overflow(row.idleTime, predecessor->idleTime),
                             UTIMEDelta4Overflow(row.waitTime, predecessor->waitTime));
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

  IntervalBuild<ProcessorRow> build(kProcessorFamily, StateOf<CPUPState>().rawRows, *pEvent, first,
                                    upTime);
  UtlErrorPtr error;
  for (const CPU& cpu : *m_pCollector->GetCPU()) {
    ProcessorRow row = RawProcessorRow(cpu, now);
    row.bootTime = GetBootTime();
    row.upTime = upTimeText;
    const tagUTIME total = row.idleTime + row.userTime + row.systemTime + row.waitTime;
    row.status = statuses.UpdateStatus(cpu.GetCpuId(), total);
    error = build.Add(row, [&](ProcessorRow& finished, const ProcessorRow* predecessor) {
      DeriveProcessorPercentages(finished, predecessor, build.WithRates());
    });
    if (error) {
      break;
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<ProcessorRow>::kName, build.RowCount());
  TraceExit("RecordBuilder::Build_CPUP", error ? 1 : 0);
  return error.release();
}
