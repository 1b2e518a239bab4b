#include "collect/modern/system/MemorySource.h"

#include <array>
#include <string>

#include "collect/modern/HostText.h"
#include "collect/modern/KeyedFigures.h"
#include "collect/modern/system/Meminfo.h"
#include "collect/modern/system/Vmstat.h"

namespace {

using MemoryRow = KeyedFigure<MemoryFigures>;

constexpr auto kMemoryRows = SortedByKey(std::array{
    MemoryRow{"MemTotal:", &MemoryFigures::totalBytes},
    MemoryRow{"MemFree:", &MemoryFigures::freeBytes},
    MemoryRow{"MemAvailable:", &MemoryFigures::availableBytes},
    MemoryRow{"Buffers:", &MemoryFigures::bufferBytes},
    MemoryRow{"Cached:", &MemoryFigures::cachedBytes},
    MemoryRow{"SwapCached:", &MemoryFigures::swapCachedBytes},
    MemoryRow{"Active:", &MemoryFigures::activeBytes},
    MemoryRow{"Inactive:", &MemoryFigures::inactiveBytes},
    MemoryRow{"Active(anon):", &MemoryFigures::activeAnonBytes},
    MemoryRow{"Inactive(anon):", &MemoryFigures::inactiveAnonBytes},
    MemoryRow{"Active(file):", &MemoryFigures::activeFileBytes},
    MemoryRow{"Inactive(file):", &MemoryFigures::inactiveFileBytes},
    MemoryRow{"Unevictable:", &MemoryFigures::unevictableBytes},
    MemoryRow{"Mlocked:", &MemoryFigures::lockedBytes},
    MemoryRow{"SwapTotal:", &MemoryFigures::swapTotalBytes},
    MemoryRow{"SwapFree:", &MemoryFigures::swapFreeBytes},
    MemoryRow{"Zswap:", &MemoryFigures::zswapBytes},
    MemoryRow{"Zswapped:", &MemoryFigures::zswappedBytes},
    MemoryRow{"Dirty:", &MemoryFigures::dirtyBytes},
    MemoryRow{"Writeback:", &MemoryFigures::writebackBytes},
    MemoryRow{"AnonPages:", &MemoryFigures::anonBytes},
    MemoryRow{"Mapped:", &MemoryFigures::mappedBytes},
    MemoryRow{"Shmem:", &MemoryFigures::sharedBytes},
    MemoryRow{"KReclaimable:", &MemoryFigures::kernelReclaimableBytes},
    MemoryRow{"Slab:", &MemoryFigures::slabBytes},
    MemoryRow{"SReclaimable:", &MemoryFigures::slabReclaimableBytes},
    MemoryRow{"SUnreclaim:", &MemoryFigures::slabUnreclaimableBytes},
    MemoryRow{"KernelStack:", &MemoryFigures::kernelStackBytes},
    MemoryRow{"PageTables:", &MemoryFigures::pageTableBytes},
    MemoryRow{"SecPageTables:", &MemoryFigures::secondPageTableBytes},
    MemoryRow{"NFS_Unstable:", &MemoryFigures::nfsUnstableBytes},
    MemoryRow{"Bounce:", &MemoryFigures::bounceBytes},
    MemoryRow{"WritebackTmp:", &MemoryFigures::writebackTempBytes},
    MemoryRow{"CommitLimit:", &MemoryFigures::commitLimitBytes},
    MemoryRow{"Committed_AS:", &MemoryFigures::committedBytes},
    MemoryRow{"VmallocUsed:", &MemoryFigures::vmallocUsedBytes},
    MemoryRow{"Percpu:", &MemoryFigures::perCpuBytes},
    MemoryRow{"HardwareCorrupted:", &MemoryFigures::corruptedBytes},
    MemoryRow{"AnonHugePages:", &MemoryFigures::anonHugeBytes},
    MemoryRow{"ShmemHugePages:", &MemoryFigures::sharedHugeBytes},
    MemoryRow{"ShmemPmdMapped:", &MemoryFigures::sharedHugeMappedBytes},
    MemoryRow{"FileHugePages:", &MemoryFigures::fileHugeBytes},
    MemoryRow{"FilePmdMapped:", &MemoryFigures::fileHugeMappedBytes},
    MemoryRow{"CmaTotal:", &MemoryFigures::cmaTotalBytes},
    MemoryRow{"CmaFree:", &MemoryFigures::cmaFreeBytes},
    MemoryRow{"Unaccepted:", &MemoryFigures::unacceptedBytes},
    MemoryRow{"Balloon:", &MemoryFigures::balloonBytes},
    MemoryRow{"DirectMap4k:", &MemoryFigures::directMap4kBytes},
    MemoryRow{"DirectMap2M:", &MemoryFigures::directMap2mBytes},
    MemoryRow{"DirectMap1G:", &MemoryFigures::directMap1gBytes},
    MemoryRow{"HugePages_Total:", &MemoryFigures::hugePagesTotal},
    MemoryRow{"HugePages_Free:", &MemoryFigures::hugePagesFree},
    MemoryRow{"HugePages_Rsvd:", &MemoryFigures::hugePagesReserved},
    MemoryRow{"HugePages_Surp:", &MemoryFigures::hugePagesSurplus},
    MemoryRow{"Hugepagesize:", &MemoryFigures::hugePageBytes},
    MemoryRow{"Hugetlb:", &MemoryFigures::hugetlbBytes},
});

constexpr auto kMemoryEventRows = SortedByKey(std::array{
    MemoryRow{"oom_kill", &MemoryFigures::oomKills},
    MemoryRow{"allocstall", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_dma", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_dma32", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_normal", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_high", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_movable", &MemoryFigures::allocationStalls},
    MemoryRow{"allocstall_device", &MemoryFigures::allocationStalls},
    MemoryRow{"compact_stall", &MemoryFigures::compactStalls},
    MemoryRow{"compact_fail", &MemoryFigures::compactFails},
    MemoryRow{"compact_success", &MemoryFigures::compactSuccesses},
    MemoryRow{"compact_migrate_scanned", &MemoryFigures::compactMigrateScans},
    MemoryRow{"compact_free_scanned", &MemoryFigures::compactFreeScans},
    MemoryRow{"compact_daemon_wake", &MemoryFigures::compactDaemonWakes},
    MemoryRow{"thp_fault_alloc", &MemoryFigures::hugeFaults},
    MemoryRow{"thp_fault_fallback", &MemoryFigures::hugeFaultFallbacks},
    MemoryRow{"thp_collapse_alloc", &MemoryFigures::hugeCollapses},
    MemoryRow{"thp_split_page", &MemoryFigures::hugeSplits},
    MemoryRow{"numa_hit", &MemoryFigures::numaHits},
    MemoryRow{"numa_miss", &MemoryFigures::numaMisses},
    MemoryRow{"numa_foreign", &MemoryFigures::numaForeign},
    MemoryRow{"numa_local", &MemoryFigures::numaLocal},
    MemoryRow{"numa_other", &MemoryFigures::numaOther},
    MemoryRow{"numa_interleave", &MemoryFigures::numaInterleaved},
    MemoryRow{"numa_pages_migrated", &MemoryFigures::numaMigrated},
    MemoryRow{"numa_hint_faults", &MemoryFigures::numaHintFaults},
    MemoryRow{"numa_hint_faults_local", &MemoryFigures::numaHintFaultsLocal},
    MemoryRow{"workingset_refault", &MemoryFigures::refaults},
    MemoryRow{"workingset_refault_anon", &MemoryFigures::refaultsAnon},
    MemoryRow{"workingset_refault_file", &MemoryFigures::refaultsFile},
    MemoryRow{"workingset_activate", &MemoryFigures::refaultsActivated},
    MemoryRow{"workingset_activate_anon", &MemoryFigures::refaultsActivatedAnon},
    MemoryRow{"workingset_activate_file", &MemoryFigures::refaultsActivatedFile},
    MemoryRow{"workingset_restore", &MemoryFigures::refaultsRestored},
    MemoryRow{"workingset_restore_anon", &MemoryFigures::refaultsRestoredAnon},
    MemoryRow{"workingset_restore_file", &MemoryFigures::refaultsRestoredFile},
    MemoryRow{"workingset_nodereclaim", &MemoryFigures::shadowNodesReclaimed},
    MemoryRow{"pgmigrate_success", &MemoryFigures::migratedPages},
    MemoryRow{"pgmigrate_fail", &MemoryFigures::migrateFails},
    MemoryRow{"swap_ra", &MemoryFigures::swapReadAheads},
    MemoryRow{"swap_ra_hit", &MemoryFigures::swapReadAheadHits},
    MemoryRow{"pswpin", &MemoryFigures::swapInPages},
    MemoryRow{"pswpout", &MemoryFigures::swapOutPages},
    MemoryRow{"pgfault", &MemoryFigures::faults},
    MemoryRow{"pgmajfault", &MemoryFigures::majorFaults},
    MemoryRow{"pgscan_direct", &MemoryFigures::scannedDirect},
    MemoryRow{"pgscan_kswapd", &MemoryFigures::scannedKswapd},
    MemoryRow{"pgscan_khugepaged", &MemoryFigures::scannedKhugepaged},
    MemoryRow{"pgsteal_direct", &MemoryFigures::stolenDirect},
    MemoryRow{"pgsteal_kswapd", &MemoryFigures::stolenKswapd},
    MemoryRow{"pgsteal_khugepaged", &MemoryFigures::stolenKhugepaged},
    MemoryRow{"drop_pagecache", &MemoryFigures::pageCacheDrops},
    MemoryRow{"drop_slab", &MemoryFigures::slabDrops},
    MemoryRow{"zswpin", &MemoryFigures::zswapIns},
    MemoryRow{"zswpout", &MemoryFigures::zswapOuts},
    MemoryRow{"zswpwb", &MemoryFigures::zswapWritebacks},
});

/// A sum that the kernel tells itself, or that its parts make.
void CompleteSum(double& sum, double anon, double file) { sum = IsTold(sum) ? sum : anon + file; }

}  // namespace

void TakeMeminfo(std::string_view text, MemoryFigures& figures) {
  TakeKeyedFigures(text, kMemoryRows, figures);
  if (figures.vmallocUsedBytes == 0) {
    figures.vmallocUsedBytes = kNotTold;
  }
}

void TakeVmstat(std::string_view text, MemoryFigures& figures) {
  TakeKeyedFigures(text, kMemoryEventRows, figures);
  CompleteSum(figures.refaults, figures.refaultsAnon, figures.refaultsFile);
  CompleteSum(figures.refaultsActivated, figures.refaultsActivatedAnon,
              figures.refaultsActivatedFile);
  CompleteSum(figures.refaultsRestored, figures.refaultsRestoredAnon, figures.refaultsRestoredFile);
}

void ReadMemory(MemoryFigures& figures) {
  figures = {};
  std::string text;
  if (ReadHostText(kMeminfoPath, text)) {
    TakeMeminfo(text, figures);
  }
  if (ReadHostText(kVmstatPath, text)) {
    TakeVmstat(text, figures);
  }
}
