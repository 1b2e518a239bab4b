#include <algorithm>
#include <array>
#include <cstdint>

#include "collect/Collector.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/PIfigures.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using Row = recordPI;

constexpr std::array kCounters{
    CounterField<Row>{&Row::contextSwitches, "context_switches"},
    CounterField<Row>{&Row::interrupts, "interrupts"},
    CounterField<Row>{&Row::systemCalls, "system_calls"},
    CounterField<Row>{&Row::traps, "traps"},
    CounterField<Row>{&Row::physicalReads, "physical_read_ops"},
    CounterField<Row>{&Row::physicalWrites, "physical_write_ops"},
    CounterField<Row>{&Row::physicalIoOps, "physical_io_ops"},
    CounterField<Row>{&Row::blockReads, "blockio_read_ops"},
    CounterField<Row>{&Row::blockWrites, "blockio_write_ops"},
    CounterField<Row>{&Row::blockOps, "blockio_io_ops"},
    CounterField<Row>{&Row::logicalReads, "logical_read_ops"},
    CounterField<Row>{&Row::logicalWrites, "logical_write_ops"},
    CounterField<Row>{&Row::logicalIoOps, "logical_io_ops"},
    CounterField<Row>{&Row::memIoOps, "memory_io_ops"},
    CounterField<Row>{&Row::majorFaults, "major_faults"},
    CounterField<Row>{&Row::minorFaults, "minor_faults"},
    CounterField<Row>{&Row::faults, "total_faults"},
    CounterField<Row>{&Row::softwareLockFaults, "software_lock_faults"},
    CounterField<Row>{&Row::pagesIn, "page_in_count"},
    CounterField<Row>{&Row::pagesOut, "page_out_count"},
    CounterField<Row>{&Row::pageInOps, "page_in_ops"},
    CounterField<Row>{&Row::pageOutOps, "page_out_ops"},
    CounterField<Row>{&Row::totalPageOps, "total_page_ops"},
    CounterField<Row>{&Row::totalPageReclaims, "total_page_reclaims"},
    CounterField<Row>{&Row::totalPageScans, "total_page_scans"},
    CounterField<Row>{&Row::swappedInPages, "swap_in_count"},
    CounterField<Row>{&Row::swappedOutPages, "swap_out_count"},
    CounterField<Row>{&Row::swapInOps, "swap_in_ops"},
    CounterField<Row>{&Row::swapOutOps, "swap_out_ops"},
    CounterField<Row>{&Row::totalSwaps, "total_swap_ops"},
    CounterField<Row>{&Row::nfsServerTotalOps, "nfs_server_total_ops"},
    CounterField<Row>{&Row::nfsServerTotalBadOps, "nfs_server_total_bad_ops"},
    CounterField<Row>{&Row::nfsServerLookupOps, "nfs_server_lookup_ops"},
    CounterField<Row>{&Row::nfsServerReadOps, "nfs_server_read_ops"},
    CounterField<Row>{&Row::nfsServerWriteOps, "nfs_server_write_ops"},
    CounterField<Row>{&Row::nfsClientTotalOps, "nfs_client_total_ops"},
    CounterField<Row>{&Row::nfsClientTotalBadOps, "nfs_client_total_bad_ops"},
    CounterField<Row>{&Row::nfsClientLookupOps, "nfs_client_lookup_ops"},
    CounterField<Row>{&Row::nfsClientReadOps, "nfs_client_read_ops"},
    CounterField<Row>{&Row::nfsClientWriteOps, "nfs_client_write_ops"},
    CounterField<Row>{&Row::totalPktsIn, "total_packets_in"},
    CounterField<Row>{&Row::totalPktsOut, "total_packets_out"},
    CounterField<Row>{&Row::totalPkts, "total_packets"},
    CounterField<Row>{&Row::tcpPktsIn, "tcp_packets_in"},
    CounterField<Row>{&Row::tcpPktsOut, "tcp_packets_out"},
    CounterField<Row>{&Row::udpPktsIn, "udp_packets_in"},
    CounterField<Row>{&Row::udpPktsOut, "udp_packets_out"},
    CounterField<Row>{&Row::icmpPktsIn, "icmp_packets_in"},
    CounterField<Row>{&Row::icmpPktsOut, "icmp_packets_out"},
    CounterField<Row>{&Row::ipPktsIn, "ip_packets_in"},
    CounterField<Row>{&Row::ipPktsOut, "ip_packets_out"}};
constexpr std::array kTimes{&Row::totalUserModeTime, &Row::totalKernelModeTime, &Row::totalIdleTime,
                            &Row::totalWaitTime};
constexpr auto kRates = RatesOf<RateField, Row>();
constexpr std::array kFloatCounters{
    FloatCounterField<Row>{&Row::logicalReadMbytes, "logical_read_mbytes"},
    FloatCounterField<Row>{&Row::logicalWriteMbytes, "logical_write_mbytes"}};
constexpr auto kFloatRates = RatesOf<FloatRateField, Row>();

/// Makes up for a count of packets of other protocols that fell by `loss`.
void AddPackets(Row& row, Ulong Row::*other, Ulong Row::*total, std::uint32_t loss) {
  row.*other = row.*other + loss;
  row.*total = row.*total + loss;
  row.totalPkts = row.totalPkts + loss;
}

/// How far the count fell below the previous one; 0 if it did not.
std::uint32_t Loss(std::uint32_t current, std::uint32_t previous) {
  const auto difference = static_cast<std::int32_t>(current - previous);
  return difference < 0 ? previous - current : 0;
}

/// Subtracts one direction's packets of other protocols. They are what is left of the totals, so
/// they may fall.
void SubtractOther(Row& row, Row& raw, const Row& previous, Ulong Row::*other, Ulong Row::*total) {
  const std::uint32_t loss = Loss(raw.*other, previous.*other);
  row.*other = raw.*other - previous.*other;
  AddPackets(row, other, total, loss);
  AddPackets(raw, other, total, loss);
}

void SubtractOtherPackets(Row& row, Row& raw, const Row& previous) {
  SubtractOther(row, raw, previous, &Row::otherPktsIn, &Row::totalPktsIn);
  SubtractOther(row, raw, previous, &Row::otherPktsOut, &Row::totalPktsOut);
}

constexpr IntervalFamily<Row> kFamily{.counters = kCounters,
                                      .times = kTimes,
                                      .rates = kRates,
                                      .ratesOperation = "RecordBuilder::BuildRates_PI",
                                      .floatCounters = kFloatCounters,
                                      .floatRates = kFloatRates,
                                      .amend = SubtractOtherPackets};

struct PIState : FamilyState {
  RawRows<Row> rawRows;
  OverviewMemory memory;
  /// Kept for the accounting of ended processes.
  std::uint32_t processesDied = 0;
};

/// The host's process counts at the request's last row.
class MyPIObject : public MyUserObject {
 public:
  std::uint32_t processes = 0;
  std::uint32_t processesDied = 0;
};

void FillStartsAndEnds(Row& row, std::uint32_t last) {
  Trace(30, kInformation, " Accounting is not effective.");
  if (last == 0) {
    return;
  }
  const std::int64_t now = static_cast<std::uint32_t>(row.processes);
  const std::int64_t started = std::max<std::int64_t>(now - last, 0);
  const std::int64_t ended = std::max<std::int64_t>(last - (now - started), 0);
  row.processesStarted = static_cast<std::uint32_t>(started);
  row.processesEnded = static_cast<std::uint32_t>(ended);
}

/// What a look without rates shows besides its figures: percentages of what happened since the
/// predecessor, which may be null.
void CompareWithPredecessor(Row& row, const Row* predecessor, bool realtime) {
  if (predecessor == nullptr) {
    return;
  }
  FillCPUPercentages(row,
                     UTIMEDelta4Overflow(row.totalUserModeTime, predecessor->totalUserModeTime),
                     UTIMEDelta4Overflow(row.totalKernelModeTime, predecessor->totalKernelModeTime),
                     UTIMEDelta4Overflow(row.totalIdleTime, predecessor->totalIdleTime),
                     UTIMEDelta4Overflow(row.totalWaitTime, predecessor->totalWaitTime));
  if (realtime) {
    AddPackets(row, &Row::otherPktsIn, &Row::totalPktsIn,
               Loss(row.otherPktsIn, predecessor->otherPktsIn));
    AddPackets(row, &Row::otherPktsOut, &Row::totalPktsOut,
               Loss(row.otherPktsOut, predecessor->otherPktsOut));
  }
  Row current = row;
  FillCachePercentages(row, DeltaPI(kFamily, current, *predecessor));
}

}  // namespace

UtlError* RecordBuilder::Build_PI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_PI", AddressOf(pEvent), AddressOf(pRequest));
  auto [last, first] = ClaimUserObject<MyPIObject>(*pRequest);
  if (m_pCollector->GetSystem()->isNowhere) {
    TraceExit("RecordBuilder::Build_PI", 1);
    return new UtlError("There is no host to be read.", __FILE__, __LINE__);
  }
  if (UtlErrorPtr error{m_pCPUSummary->Build(m_cycle)}) {
    Trace(30, kWarning, "Unable to get the CPU Summary information: %1.", error->GetMessage());
    TraceExit("RecordBuilder::Build_PI", 1);
    return error.release();
  }
  auto& state = StateOf<PIState>();
  const System& system = *m_pCollector->GetSystem();
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  Row row = NewRow<Row>(now);
  FillCPUTimes(row, *m_pCPUSummary);
  FillSystemFigures(row, system, state.rawRows.Single(), now, state.memory);
  FillPackets(row, *m_pCollector->GetProtocol());
  FillStartsAndEnds(row, last.processes);
  state.processesDied = system.processesDied;
  last.processes = system.numProcesses;
  last.processesDied = system.processesDied;

  const bool realtime = pEvent->IsRealtime() != 0;
  if (!realtime) {
    state.memory.lastLogicalReadBytes = system.logicalReadBytes;
    state.memory.lastLogicalWriteBytes = system.logicalWriteBytes;
  }
  IntervalBuild<Row> build(kFamily, state.rawRows, *pEvent, first, GetUpTimeSeconds());
  UtlErrorPtr error = build.Add(row, [&](Row& finished, const Row* predecessor) {
    if (!build.WithRates()) {
      CompareWithPredecessor(finished, predecessor, realtime);
      return;
    }
    FillCPUPercentages(finished, finished.totalUserModeTime, finished.totalKernelModeTime,
                       finished.totalIdleTime, finished.totalWaitTime);
    FillCachePercentages(finished, finished);
  });
  if (!error) {
    TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, build.RowCount());
  }
  TraceExit("RecordBuilder::Build_PI", error ? 1 : 0);
  return error.release();
}
