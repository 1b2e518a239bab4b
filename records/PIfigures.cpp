#include "records/PIfigures.h"

#include <limits>
#include <numeric>

#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/nfs/NFSSource.h"
#include "collect/system/SystemSourceLINUX.h"
#include "records/CPUSummary.h"
#include "records/IntervalEngine.h"
#include "support/LowWord.h"

namespace {

constexpr float kPercent = 100.0F;
constexpr double kBytesPerMbyte = 1048576.0;

tagUTIME ToRecordTime(const UtlTime& time) {
  return {time.GetSeconds(), static_cast<std::int32_t>(time.GetMilliseconds())};
}

/// Toward zero, and to the nearest value of the result where the fraction has no place in it.
template <class Integer>
Integer Truncate(float value) {
  using Limits = std::numeric_limits<Integer>;
  if (!(value > static_cast<float>(Limits::min()))) {
    return Limits::min();
  }
  return value >= static_cast<float>(Limits::max()) ? Limits::max() : static_cast<Integer>(value);
}

float MbytesSince(std::uint32_t counter, std::uint32_t last) {
  return counter > last ? static_cast<float>((counter - last) / kBytesPerMbyte) : 0.0F;
}

/// The mean of the run queue's samples since the last look.
float RunQueueMean(const System& system, OverviewMemory& memory) {
  if (system.runQueueSamples == memory.lastRunQueueSamples) {
    return 0.0F;
  }
  const std::int64_t sum = std::int64_t{Truncate<std::int32_t>(system.runQueue)} -
                           Truncate<std::int32_t>(memory.lastRunQueueSum);
  const std::int64_t samples =
      std::int64_t{system.runQueueSamples} - std::int64_t{memory.lastRunQueueSamples};
  memory.lastRunQueueSamples = system.runQueueSamples;
  memory.lastRunQueueSum = system.runQueue;
  return static_cast<float>(sum / samples);
}

void FillMemory(recordPI& row, const System& system) {
  row.totalPhysicalMemMbytes = Truncate<std::uint32_t>(system.totalMemMB);
  if (system.freeMemMB < 0.0F) {
    return;
  }
  const float alloc = system.totalMemMB - system.freeMemMB;
  row.freeMemMbytes = system.freeMemMB;
  row.allocMemMbytes = alloc;
  if (row.totalPhysicalMemMbytes != 0U) {
    row.freeMemPercent = kPercent * system.freeMemMB / system.totalMemMB;
    row.allocMemPercent = kPercent * alloc / system.totalMemMB;
  }
}

void FillSwap(recordPI& row, const System& system) {
  const float alloc = system.totalSwapMB - system.freeSwapMB;
  row.totalSwapMbytes = Truncate<std::uint32_t>(system.totalSwapMB);
  row.freeSwapMbytes = system.freeSwapMB;
  row.allocSwapMbytes = alloc;
  if (row.totalSwapMbytes != 0U) {
    row.allocSwapPercent = kPercent * alloc / system.totalSwapMB;
    row.freeSwapPercent = kPercent * system.freeSwapMB / system.totalSwapMB;
  }
}

void FillInputOutput(recordPI& row, const System& system, const recordPI& raw,
                     const OverviewMemory& memory) {
  row.physicalReads = system.physicalReads;
  row.physicalWrites = system.physicalWrites;
  row.physicalIoOps = system.physicalReads + system.physicalWrites;
  row.blockReads = system.blockReads;
  row.blockWrites = system.blockWrites;
  row.blockOps = system.blockReads + system.blockWrites;
  row.logicalReads = system.logicalReads;
  row.logicalWrites = system.logicalWrites;
  row.logicalIoOps = system.logicalReads + system.logicalWrites;
  row.logicalReadMbytes =
      MbytesSince(system.logicalReadBytes, memory.lastLogicalReadBytes) + raw.logicalReadMbytes;
  row.logicalWriteMbytes =
      MbytesSince(system.logicalWriteBytes, memory.lastLogicalWriteBytes) + raw.logicalWriteMbytes;
}

void FillFaultsAndPaging(recordPI& row, const System& system) {
  row.majorFaults = system.majorFaults;
  row.minorFaults = system.minorFaults;
  row.softwareLockFaults = system.softwareLockFaults;
  row.faults = system.majorFaults + system.minorFaults;
  row.pageInOps = row.pagesIn = LowWord(system.pagesIn);
  row.pageOutOps = row.pagesOut = LowWord(system.pagesOut);
  row.totalPageOps = row.pageInOps + row.pageOutOps;
  row.totalPageReclaims = system.pageReclaims;
  row.totalPageScans = system.pageScans;
  row.swapInOps = row.swappedInPages = LowWord(system.swapIn);
  row.swapOutOps = row.swappedOutPages = LowWord(system.swapOut);
  row.totalSwaps = row.swapInOps + row.swapOutOps;
  row.memIoOps = row.majorFaults + row.totalSwaps;
}

/// The share of `logical` operations that needed no `block` operation.
float CacheHits(std::uint32_t logical, std::uint32_t block) {
  if (logical == 0 || block >= logical) {
    return 0.0F;
  }
  return kPercent * static_cast<float>(logical - block) / static_cast<float>(logical);
}

struct NFSOperations {
  std::uint32_t total;
  std::uint32_t lookups;
  std::uint32_t reads;
  std::uint32_t writes;
};

template <class Total>
NFSOperations OperationsOf(const Total& calls) {
  const NFSCallsV3& v3 = calls.callsV3;
  const ModernNFSFigures& v4 = calls.modern;
  return {std::accumulate(v3.begin(), v3.end(), v4.operationsV4), v3[nfs3::kLookup] + v4.lookupsV4,
          v3[nfs3::kRead] + v4.readsV4, v3[nfs3::kWrite] + v4.writesV4};
}

}  // namespace

void FillCPUTimes(recordPI& row, const CPUSummary& summary) {
  row.totalIdleTime = ToRecordTime(summary.GetIdleTime());
  row.totalWaitTime = ToRecordTime(summary.GetWaitTime());
  row.totalUserModeTime = ToRecordTime(summary.GetUserTime());
  row.totalKernelModeTime = ToRecordTime(summary.GetKernelTime());
}

void FillSystemFigures(recordPI& row, const System& system, const recordPI& raw, std::int32_t now,
                       OverviewMemory& memory) {
  row.processes = system.numProcesses;
  row.users = system.numUsers;
  row.activeCpus = system.numCPUs;
  row.contextSwitches = system.contextSwitches;
  row.interrupts = system.interrupts;
  row.systemCalls = system.reserved1;
  row.traps = system.reserved2;
  row.oneMinuteRunQueueAvg = system.load1;
  row.fiveMinuteRunQueueAvg = system.load5;
  row.fifteenMinuteRunQueueAvg = system.load15;
  row.runQueue = RunQueueMean(system, memory);
  row.bootTime = system.bootTime;
  UtlTime upTime(std::int64_t{now} - system.bootTime, std::int64_t{0}, UtlTime::kUtc);
  row.systemUpTime = upTime.FormatDuration();
  FillInputOutput(row, system, raw, memory);
  FillMemory(row, system);
  FillSwap(row, system);
  FillFaultsAndPaging(row, system);
}

void FillPackets(recordPI& row, const Protocol& protocol) {
  row.totalPktsIn = protocol.totalIn;
  row.totalPktsOut = protocol.totalOut;
  row.totalPkts = protocol.totalIn + protocol.totalOut;
  row.tcpPktsIn = protocol.tcpIn;
  row.tcpPktsOut = protocol.tcpOut;
  row.udpPktsIn = protocol.udpIn;
  row.udpPktsOut = protocol.udpOut;
  row.icmpPktsIn = protocol.icmpIn;
  row.icmpPktsOut = protocol.icmpOut;
  row.ipPktsIn = protocol.ipIn;
  row.ipPktsOut = protocol.ipOut;
  row.otherPktsIn = protocol.otherIn;
  row.otherPktsOut = protocol.otherOut;
}

void FillModernFigures(recordPI& row, const System& system) {
  row.runQueue = system.runQueue;
  row.pageInOps = LowWord(system.pageInOps);
  row.pageOutOps = LowWord(system.pageOutOps);
  row.totalPageOps = row.pageInOps + row.pageOutOps;
}

void FillNFS(recordPI& row, const NFSClientTotal& client, const NFSServerTotal& server) {
  const NFSOperations asked = OperationsOf(client);
  row.nfsClientTotalOps = asked.total;
  row.nfsClientLookupOps = asked.lookups;
  row.nfsClientReadOps = asked.reads;
  row.nfsClientWriteOps = asked.writes;
  const NFSOperations served = OperationsOf(server);
  row.nfsServerTotalOps = served.total;
  row.nfsServerTotalBadOps = server.modern.badCalls;
  row.nfsServerLookupOps = served.lookups;
  row.nfsServerReadOps = served.reads;
  row.nfsServerWriteOps = served.writes;
}

CPUTimes TimesOf(const recordPI& row) {
  return {WideTime(row.totalUserModeTime), WideTime(row.totalKernelModeTime),
          WideTime(row.totalIdleTime), WideTime(row.totalWaitTime)};
}

CPUTimes TimesOf(const CPUSummary& summary) {
  return {summary.GetUserTime(), summary.GetKernelTime(), summary.GetIdleTime(),
          summary.GetWaitTime()};
}

void FillCPUPercentages(recordPI& row, const CPUTimes& times) {
  UtlTime busy = times.user;
  busy += times.kernel;
  UtlTime total = busy;
  total += times.idle;
  total += times.wait;
  row.userCpuPercent = total.Percent(times.user);
  row.kernelCpuPercent = total.Percent(times.kernel);
  row.cpuPercent = total.Percent(busy);
  row.waitPercent = total.Percent(times.wait);
  row.idlePercent = total.Percent(times.idle);
}

void FillCachePercentages(recordPI& row, const recordPI& counts) {
  row.cacheReadPercent = CacheHits(counts.logicalReads, counts.blockReads);
  row.cacheWritePercent = CacheHits(counts.logicalWrites, counts.blockWrites);
}
