#pragma once

#include <cstdint>

#include "records/RecordStructures.h"
#include "support/TimeValues.h"

class CPUSummary;
class NFSClientTotal;
class NFSServerTotal;
class Protocol;
class System;

/// What the overview remembers of the host's figures from one interval to the next.
struct OverviewMemory {
  std::uint32_t lastLogicalReadBytes = 0;
  std::uint32_t lastLogicalWriteBytes = 0;
  std::uint32_t lastRunQueueSamples = 0;
  float lastRunQueueSum = 0;
};

/// The four CPU times of all processors.
void FillCPUTimes(recordPI& row, const CPUSummary& summary);
/// All that the host's row feeds but the starts and ends of processes. `raw` is the last kept row:
/// the Mbytes read and written run on from it. `now` is in seconds since the epoch. Moves the
/// memory's run queue.
void FillSystemFigures(recordPI& row, const System& system, const recordPI& raw, std::int32_t now,
                       OverviewMemory& memory);
void FillPackets(recordPI& row, const Protocol& protocol);

// The profile `modern` tells these too, after FillSystemFigures().

/// The run queue of the moment, and the operations of disks instead of the pages that they moved.
void FillModernFigures(recordPI& row, const System& system);
/// The operations of versions 3 and 4, and the server's refused calls of all versions.
void FillNFS(recordPI& row, const NFSClientTotal& client, const NFSServerTotal& server);

/// The four CPU times of all processors, of an interval or since boot.
struct CPUTimes {
  UtlTime user;
  UtlTime kernel;
  UtlTime idle;
  UtlTime wait;
};
/// Those that the row shows: of 32 bits of seconds with a sign.
[[nodiscard]] CPUTimes TimesOf(const recordPI& row);
/// The same with all bits of the sums.
[[nodiscard]] CPUTimes TimesOf(const CPUSummary& summary);
/// The five CPU percentages of the four times.
void FillCPUPercentages(recordPI& row, const CPUTimes& times);
/// The two cache percentages of `row` from the counters of `counts`.
void FillCachePercentages(recordPI& row, const recordPI& counts);
