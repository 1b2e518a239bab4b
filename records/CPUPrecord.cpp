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

using Row = recordPI_CPUP;

constexpr std::array kCounters{
    CounterField<Row>{&Row::contextSwitches, "processor_context_switches"},
    CounterField<Row>{&Row::interrupts, "processor_interrupts"},
    CounterField<Row>{&Row::systemCalls, "processor_system_calls"},
    CounterField<Row>{&Row::traps, "processor_traps"}};
constexpr std::array kTimes{&Row::userTime, &Row::systemTime, &Row::idleTime, &Row::waitTime};
constexpr auto kRates = RatesOf<RateField, Row>();

const IntervalFamily<Row> kFamily{kCounters, kTimes, kRates,
                                  [](const Row& a, const Row& b) {
                                    return std::strcmp(a.processorId.c_str(),
                                                       b.processorId.c_str()) == 0;
                                  },
                                  "RecordBuilder::BuildRates_CPUP"};

struct CPUPState : FamilyState {
  RawRows<Row> rawRows;
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
Row RawRow(const CPU& cpu, std::int32_t now) {
  Row row = NewRow<Row>(now);
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

void FillPercentages(Row& row, const tagUTIME& user, const tagUTIME& system, const tagUTIME& idle,
                     const tagUTIME& wait) {
  const tagUTIME total = idle + user + system + wait;
  row.userPercent = PercentOf(user, total);
  row.systemPercent = PercentOf(system, total);
  row.idlePercent = PercentOf(idle, total);
  row.waitPercent = PercentOf(wait, total);
  row.cpuPercent = PercentOf(user + system, total);
}

/// With rates the row's own times count, else their differences to the predecessor.
void DerivePercentages(Row& row, const Row* predecessor, bool withRates) {
  if (withRates) {
    FillPercentages(row, row.userTime, row.systemTime, row.idleTime, row.waitTime);
  } else if (predecessor != nullptr) {
    FillPercentages(row, UTIMEDelta4Overflow(row.userTime, predecessor->userTime),
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

  IntervalBuild<Row> build(kFamily, StateOf<CPUPState>().rawRows, *pEvent, first, upTime);
  UtlErrorPtr error;
  for (const CPU& cpu : *m_pCollector->GetCPU()) {
    Row row = RawRow(cpu, now);
    row.bootTime = GetBootTime();
    row.upTime = upTimeText;
    const tagUTIME total = row.idleTime + row.userTime + row.systemTime + row.waitTime;
    row.status = statuses.UpdateStatus(cpu.GetCpuId(), total);
    error = build.Add(row, [&](Row& finished, const Row* predecessor) {
      DerivePercentages(finished, predecessor, build.WithRates());
    });
    if (error) {
      break;
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, build.RowCount());
  TraceExit("RecordBuilder::Build_CPUP", error ? 1 : 0);
  return error.release();
}
