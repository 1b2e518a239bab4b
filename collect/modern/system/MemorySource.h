#pragma once

#include <string_view>

#include "support/NotTold.h"

/// The memory of the host, all that its kernel tells but constants. kNotTold is what this kernel,
/// or this way to build it, does not have.
struct MemoryFigures {
  // Of /proc/meminfo, in bytes.
  double totalBytes = kNotTold;
  double freeBytes = kNotTold;
  double availableBytes = kNotTold;  ///< to programs, without swapping
  double bufferBytes = kNotTold;
  double cachedBytes = kNotTold;  ///< of files, with shared memory and tmpfs
  double swapCachedBytes = kNotTold;
  double activeBytes = kNotTold;
  double inactiveBytes = kNotTold;
  double activeAnonBytes = kNotTold;
  double inactiveAnonBytes = kNotTold;
  double activeFileBytes = kNotTold;
  double inactiveFileBytes = kNotTold;
  double unevictableBytes = kNotTold;
  double lockedBytes = kNotTold;
  double swapTotalBytes = kNotTold;
  double swapFreeBytes = kNotTold;
  double zswapBytes = kNotTold;     ///< of the compressed pages; since 5.19
  double zswappedBytes = kNotTold;  ///< of the same pages as they were; since 5.19
  double dirtyBytes = kNotTold;
  double writebackBytes = kNotTold;
  double anonBytes = kNotTold;
  double mappedBytes = kNotTold;
  double sharedBytes = kNotTold;             ///< shared memory and tmpfs
  double kernelReclaimableBytes = kNotTold;  ///< since 4.20
  double slabBytes = kNotTold;
  double slabReclaimableBytes = kNotTold;
  double slabUnreclaimableBytes = kNotTold;
  double kernelStackBytes = kNotTold;
  double pageTableBytes = kNotTold;
  double secondPageTableBytes = kNotTold;  ///< of virtual machines; since 6.1
  double nfsUnstableBytes = kNotTold;      ///< always 0 since 5.8
  double bounceBytes = kNotTold;
  double writebackTempBytes = kNotTold;  ///< of file systems in user space
  double commitLimitBytes = kNotTold;
  double committedBytes = kNotTold;
  double vmallocUsedBytes = kNotTold;  ///< since 5.3; the 0 of kernels before is no figure
  double perCpuBytes = kNotTold;
  double corruptedBytes = kNotTold;
  double anonHugeBytes = kNotTold;
  double sharedHugeBytes = kNotTold;
  double sharedHugeMappedBytes = kNotTold;
  double fileHugeBytes = kNotTold;        ///< since 5.4
  double fileHugeMappedBytes = kNotTold;  ///< since 5.4
  double cmaTotalBytes = kNotTold;
  double cmaFreeBytes = kNotTold;
  double unacceptedBytes = kNotTold;  ///< not yet taken from the hypervisor; since 6.5
  double balloonBytes = kNotTold;     ///< given back to the hypervisor; newest kernels only
  double hugePageBytes = kNotTold;    ///< size of one huge page of the usual size
  double hugetlbBytes = kNotTold;     ///< in huge pages of all sizes
  // How the kernel itself reaches memory, by the size of the pages; of x86.
  double directMap4kBytes = kNotTold;
  double directMap2mBytes = kNotTold;
  double directMap1gBytes = kNotTold;
  // Counts of huge pages of the usual size.
  double hugePagesTotal = kNotTold;
  double hugePagesFree = kNotTold;
  double hugePagesReserved = kNotTold;
  double hugePagesSurplus = kNotTold;

  // Of /proc/vmstat, counted since boot.
  double oomKills = kNotTold;
  double allocationStalls = kNotTold;  ///< direct reclaims, over all zones
  double compactStalls = kNotTold;     ///< direct compactions
  double compactFails = kNotTold;
  double compactSuccesses = kNotTold;
  double compactMigrateScans = kNotTold;  ///< pages
  double compactFreeScans = kNotTold;     ///< pages
  double compactDaemonWakes = kNotTold;
  double hugeFaults = kNotTold;  ///< faults that got a transparent huge page
  double hugeFaultFallbacks = kNotTold;
  double hugeCollapses = kNotTold;
  double hugeSplits = kNotTold;
  double numaHits = kNotTold;  ///< pages, as the other figures of NUMA
  double numaMisses = kNotTold;
  double numaForeign = kNotTold;
  double numaLocal = kNotTold;
  double numaOther = kNotTold;
  double numaInterleaved = kNotTold;
  double numaMigrated = kNotTold;
  double numaHintFaults = kNotTold;
  double numaHintFaultsLocal = kNotTold;
  // Pages that came back to memory soon after they had to leave. Kernels before 5.9 tell the sum
  // alone, and mean files by it; the later ones tell the parts, and the sum is made of them.
  double refaults = kNotTold;
  double refaultsAnon = kNotTold;
  double refaultsFile = kNotTold;
  double refaultsActivated = kNotTold;
  double refaultsActivatedAnon = kNotTold;
  double refaultsActivatedFile = kNotTold;
  double refaultsRestored = kNotTold;
  double refaultsRestoredAnon = kNotTold;
  double refaultsRestoredFile = kNotTold;
  double shadowNodesReclaimed = kNotTold;
  double migratedPages = kNotTold;
  double migrateFails = kNotTold;
  double swapReadAheads = kNotTold;     ///< pages
  double swapReadAheadHits = kNotTold;  ///< pages
  double swapInPages = kNotTold;
  double swapOutPages = kNotTold;
  double faults = kNotTold;  ///< major ones included
  double majorFaults = kNotTold;
  // Pages looked at to be freed, and freed, by who did it.
  double scannedDirect = kNotTold;
  double scannedKswapd = kNotTold;
  double scannedKhugepaged = kNotTold;  ///< since 6.2
  double stolenDirect = kNotTold;
  double stolenKswapd = kNotTold;
  double stolenKhugepaged = kNotTold;  ///< since 6.2
  double pageCacheDrops = kNotTold;    ///< by an operator's drop_caches
  double slabDrops = kNotTold;
  double zswapIns = kNotTold;   ///< pages; since 5.19
  double zswapOuts = kNotTold;  ///< pages; since 5.19
  double zswapWritebacks = kNotTold;
};

/// Reads /proc/meminfo and /proc/vmstat. Never fails: what is missing is kNotTold.
void ReadMemory(MemoryFigures& figures);

// The texts of the two files, whose figures are added to those that are there.
void TakeMeminfo(std::string_view text, MemoryFigures& figures);
void TakeVmstat(std::string_view text, MemoryFigures& figures);
