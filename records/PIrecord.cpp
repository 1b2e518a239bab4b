#include <algorithm>
#include <array>
#include <cstdint>

#include "collect/Collector.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "records/CPUSummary.h"
#include "records/IntervalEngine.h"
#include "records/PIfigures.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"

namespace {

using HostRow = recordPI;

constexpr std::array kHostCounters{
    CounterField<HostRow>{&HostRow::contextSwitches, "context_switches"},
    CounterField<HostRow>{&HostRow::interrupts, "interrupts"},
    CounterField<HostRow>{&HostRow::systemCalls, "system_calls"},
    CounterField<HostRow>{&HostRow::traps, "traps"},
    CounterField<HostRow>{&HostRow::physicalReads, "physical_read_ops"},
    CounterField<HostRow>{&HostRow::physicalWrites, "physical_write_ops"},
    CounterField<HostRow>{&HostRow::physicalIoOps, "physical_io_ops"},
    CounterField<HostRow>{&HostRow::blockReads, "blockio_read_ops"},
    CounterField<HostRow>{&HostRow::blockWrites, "blockio_write_ops"},
    CounterField<HostRow>{&HostRow::blockOps, "blockio_io_ops"},
    CounterField<HostRow>{&HostRow::logicalReads, "logical_read_ops"},
    CounterField<HostRow>{&HostRow::logicalWrites, "logical_write_ops"},
    CounterField<HostRow>{&HostRow::logicalIoOps, "logical_io_ops"},
    CounterField<HostRow>{&HostRow::memIoOps, "memory_io_ops"},
    CounterField<HostRow>{&HostRow::majorFaults, "major_faults"},
    CounterField<HostRow>{&HostRow::minorFaults, "minor_faults"},
    CounterField<HostRow>{&HostRow::faults, "total_faults"},
    CounterField<HostRow>{&HostRow::softwareLockFaults, "software_lock_faults"},
    CounterField<HostRow>{&HostRow::pagesIn, "page_in_count"},
    CounterField<HostRow>{&HostRow::pagesOut, "page_out_count"},
    CounterField<HostRow>{&HostRow::pageInOps, "page_in_ops"},
    CounterField<HostRow>{&HostRow::pageOutOps, "page_out_ops"},
    CounterField<HostRow>{&HostRow::totalPageOps, "total_page_ops"},
    CounterField<HostRow>{&HostRow::totalPageReclaims, "total_page_reclaims"},
    CounterField<HostRow>{&HostRow::totalPageScans, "total_page_scans"},
    CounterField<HostRow>{&HostRow::swappedInPages, "swap_in_count"},
    CounterField<HostRow>{&HostRow::swappedOutPages, "swap_out_count"},
    CounterField<HostRow>{&HostRow::swapInOps, "swap_in_ops"},
    CounterField<HostRow>{&HostRow::swapOutOps, "swap_out_ops"},
    CounterField<HostRow>{&HostRow::totalSwaps, "total_swap_ops"},
    CounterField<HostRow>{&HostRow::nfsServerTotalOps, "nfs_server_total_ops"},
    CounterField<HostRow>{&HostRow::nfsServerTotalBadOps, "nfs_server_total_bad_ops"},
    CounterField<HostRow>{&HostRow::nfsServerLookupOps, "nfs_server_lookup_ops"},
    CounterField<HostRow>{&HostRow::nfsServerReadOps, "nfs_server_read_ops"},
    CounterField<HostRow>{&HostRow::nfsServerWriteOps, "nfs_server_write_ops"},
    CounterField<HostRow>{&HostRow::nfsClientTotalOps, "nfs_client_total_ops"},
    CounterField<HostRow>{&HostRow::nfsClientTotalBadOps, "nfs_client_total_bad_ops"},
    CounterField<HostRow>{&HostRow::nfsClientLookupOps, "nfs_client_lookup_ops"},
    CounterField<HostRow>{&HostRow::nfsClientReadOps, "nfs_client_read_ops"},
    CounterField<HostRow>{&HostRow::nfsClientWriteOps, "nfs_client_write_ops"},
    CounterField<HostRow>{&HostRow::totalPktsIn, "total_packets_in"},
    CounterField<HostRow>{&HostRow::totalPktsOut, "total_packets_out"},
    CounterField<HostRow>{&HostRow::totalPkts, "total_packets"},
    CounterField<HostRow>{&HostRow::tcpPktsIn, "tcp_packets_in"},
    CounterField<HostRow>{&HostRow::tcpPktsOut, "tcp_packets_out"},
    CounterField<HostRow>{&HostRow::udpPktsIn, "udp_packets_in"},
    CounterField<HostRow>{&HostRow::udpPktsOut, "udp_packets_out"},
    CounterField<HostRow>{&HostRow::icmpPktsIn, "icmp_packets_in"},
    CounterField<HostRow>{&HostRow::icmpPktsOut, "icmp_packets_out"},
    CounterField<HostRow>{&HostRow::ipPktsIn, "ip_packets_in"},
    CounterField<HostRow>{&HostRow::ipPktsOut, "ip_packets_out"}};
constexpr std::array kHostTimes{&HostRow::totalUserModeTime, &HostRow::totalKernelModeTime,
                                &HostRow::totalIdleTime, &HostRow::totalWaitTime};

/// Makes up for a count of packets of other protocols that fell by `loss`.
void AddPackets(HostRow& row, Ulong HostRow::*other, Ulong HostRow::*total, std::uint32_t loss) {
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
void SubtractOther(HostRow& row, HostRow& raw, const HostRow& previous, Ulong HostRow::*other,
                   Ulong HostRow::*total) {
  const std::uint32_t loss = Loss(raw.*other, previous.*other);
  row.*other = raw.*other - previous.*other;
  AddPackets(row, other, total, loss);
  AddPackets(raw, other, total, loss);
}

void SubtractMbytes(HostRow& row, const HostRow& previous) {
  row.logicalReadMbytes =
      FloatCounterDelta(row.logicalReadMbytes, previous.logicalReadMbytes, "logical_read_mbytes");
  row.logicalWriteMbytes = FloatCounterDelta(row.logicalWriteMbytes, previous.logicalWriteMbytes,
                                             "logical_write_mbytes");
}

void SubtractMbytesAndOtherPackets(HostRow& row, HostRow& raw, const HostRow& previous) {
  SubtractMbytes(row, previous);
  SubtractOther(row, raw, previous, &HostRow::otherPktsIn, &HostRow::totalPktsIn);
  SubtractOther(row, raw, previous, &HostRow::otherPktsOut, &HostRow::totalPktsOut);
}

constexpr IntervalFamily<HostRow> kHostFamily{.counters = kHostCounters,
                                              .times = kHostTimes,
                                              .amend = SubtractMbytesAndOtherPackets,
                                              .ratesOperation = "RecordBuilder::BuildRates_PI"};

/// The host's sums may fall: a disk or a module goes with what it has counted, and a file may be
/// missing for a while.
constexpr IntervalFamily<HostRow> kModernHostFamily{.counters = kHostCounters,
                                                    .times = kHostTimes,
                                                    .timeDelta = TimeGrowth,
                                                    .counterDelta = CounterGrowth,
                                                    .zeroIsUnread = true,
                                                    .amend = SubtractMbytesAndOtherPackets,
                                                    .ratesOperation = kHostFamily.ratesOperation};

struct PIState : FamilyState {
  RawRows<HostRow> rawRows;
  OverviewMemory memory;
};

/// The host's counts of processes at the request's last row; 0 before the first.
class MyPIObject : public MyUserObject {
 public:
  std::uint32_t processes = 0;
  std::uint64_t forks = 0;
};

/// Of processes that started and the change of their count follows how many ended.
void PutStartsAndEnds(HostRow& row, std::int64_t started, std::uint32_t last) {
  const std::int64_t now = static_cast<std::uint32_t>(row.processes);
  const std::int64_t ended = std::max<std::int64_t>(last - (now - started), 0);
  row.processesStarted = static_cast<std::uint32_t>(started);
  row.processesEnded = static_cast<std::uint32_t>(ended);
}

void FillStartsAndEnds(HostRow& row, const System& /*system*/, const MyPIObject& last) {
  Trace(30, kInformation, " Accounting is not effective.");
  if (last.processes != 0) {
    const std::int64_t now = static_cast<std::uint32_t>(row.processes);
    PutStartsAndEnds(row, std::max<std::int64_t>(now - last.processes, 0), last.processes);
  }
}

void FillForksAndEnds(HostRow& row, const System& system, const MyPIObject& last) {
  if (last.forks != 0 && system.forks >= last.forks) {
    PutStartsAndEnds(row, static_cast<std::uint32_t>(system.forks - last.forks), last.processes);
  }
}

void FillNothing(HostRow& /*row*/, const Collector& /*collector*/) {}

void FillRestOfModern(HostRow& row, const Collector& collector) {
  FillModernFigures(row, *collector.GetSystem());
  FillNFS(row, *collector.GetNFSClientTotal(), *collector.GetNFSServerTotal());
}

/// What a host profile makes of its figures.
struct OverviewRules {
  const IntervalFamily<HostRow>& family;
  /// The times of all processors since boot, of which a row has 32 bits of seconds.
  CPUTimes (*timesSinceBoot)(const HostRow& row, const CPUSummary& summary);
  /// What the classic figures lack or have otherwise.
  void (*fillRest)(HostRow& row, const Collector& collector);
  void (*fillStartsAndEnds)(HostRow& row, const System& system, const MyPIObject& last);
};
constexpr OverviewRules kClassicRules{
    kHostFamily, [](const HostRow& row, const CPUSummary&) { return TimesOf(row); }, FillNothing,
    FillStartsAndEnds};
constexpr OverviewRules kModernRules{
    kModernHostFamily, [](const HostRow&, const CPUSummary& summary) { return TimesOf(summary); },
    FillRestOfModern, FillForksAndEnds};

/// What a look without rates shows besides its figures: percentages of what happened since the
/// predecessor, which may be null.
void CompareWithPredecessor(const OverviewRules& rules, HostRow& row, const HostRow* predecessor,
                            bool realtime) {
  if (predecessor == nullptr) {
    return;
  }
  const auto growth = [&](Utime HostRow::*time) {
    return WideTime(rules.family.timeDelta(row.*time, predecessor->*time));
  };
  FillCPUPercentages(row,
                     {growth(&HostRow::totalUserModeTime), growth(&HostRow::totalKernelModeTime),
                      growth(&HostRow::totalIdleTime), growth(&HostRow::totalWaitTime)});
  if (realtime) {
    AddPackets(row, &HostRow::otherPktsIn, &HostRow::totalPktsIn,
               Loss(row.otherPktsIn, predecessor->otherPktsIn));
    AddPackets(row, &HostRow::otherPktsOut, &HostRow::totalPktsOut,
               Loss(row.otherPktsOut, predecessor->otherPktsOut));
  }
  HostRow current = row;
  FillCachePercentages(row, DeltaPI(rules.family, current, *predecessor));
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
  const OverviewRules& rules = g_hostProfile == HostProfile::kModern ? kModernRules : kClassicRules;
  auto& state = StateOf<PIState>();
  const System& system = *m_pCollector->GetSystem();
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  HostRow row = NewRow<HostRow>(now);
  FillCPUTimes(row, *m_pCPUSummary);
  FillSystemFigures(row, system, state.rawRows.Single(), now, state.memory);
  FillPackets(row, *m_pCollector->GetProtocol());
  rules.fillRest(row, *m_pCollector);
  rules.fillStartsAndEnds(row, system, last);
  last.processes = system.numProcesses;
  last.forks = system.forks;

  const bool realtime = pEvent->IsRealtime() != 0;
  if (!realtime) {
    state.memory.lastLogicalReadBytes = system.logicalReadBytes;
    state.memory.lastLogicalWriteBytes = system.logicalWriteBytes;
  }
  IntervalBuild<HostRow> build(rules.family, state.rawRows, *pEvent, first, GetUpTimeSeconds());
  UtlErrorPtr error = build.Add(row, [&](HostRow& finished, const HostRow* predecessor) {
    if (!build.WithRates()) {
      CompareWithPredecessor(rules, finished, predecessor, realtime);
      return;
    }
    FillCPUPercentages(
        finished, realtime ? rules.timesSinceBoot(finished, *m_pCPUSummary) : TimesOf(finished));
    FillCachePercentages(finished, finished);
  });
  if (!error) {
    TraceCreated(__FILE__, __LINE__, RecordTraits<HostRow>::kName, build.RowCount());
  }
  TraceExit("RecordBuilder::Build_PI", error ? 1 : 0);
  return error.release();
}
