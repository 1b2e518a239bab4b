#include <span>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using MemoryRecord = recordPI_MEMD;

/// Sizes, which the record has in Mbytes.
constexpr FigurePair<MemoryRecord, MemoryFigures> kMemoryPairs[] = {
    {&MemoryRecord::totalMbytes, &MemoryFigures::totalBytes},
    {&MemoryRecord::freeMbytes, &MemoryFigures::freeBytes},
    {&MemoryRecord::availableMbytes, &MemoryFigures::availableBytes},
    {&MemoryRecord::bufferMbytes, &MemoryFigures::bufferBytes},
    {&MemoryRecord::cachedMbytes, &MemoryFigures::cachedBytes},
    {&MemoryRecord::swapCachedMbytes, &MemoryFigures::swapCachedBytes},
    {&MemoryRecord::activeMbytes, &MemoryFigures::activeBytes},
    {&MemoryRecord::inactiveMbytes, &MemoryFigures::inactiveBytes},
    {&MemoryRecord::activeAnonMbytes, &MemoryFigures::activeAnonBytes},
    {&MemoryRecord::inactiveAnonMbytes, &MemoryFigures::inactiveAnonBytes},
    {&MemoryRecord::activeFileMbytes, &MemoryFigures::activeFileBytes},
    {&MemoryRecord::inactiveFileMbytes, &MemoryFigures::inactiveFileBytes},
    {&MemoryRecord::unevictableMbytes, &MemoryFigures::unevictableBytes},
    {&MemoryRecord::lockedMbytes, &MemoryFigures::lockedBytes},
    {&MemoryRecord::anonMbytes, &MemoryFigures::anonBytes},
    {&MemoryRecord::mappedMbytes, &MemoryFigures::mappedBytes},
    {&MemoryRecord::sharedMbytes, &MemoryFigures::sharedBytes},
    {&MemoryRecord::kernelReclaimableMbytes, &MemoryFigures::kernelReclaimableBytes},
    {&MemoryRecord::slabMbytes, &MemoryFigures::slabBytes},
    {&MemoryRecord::slabReclaimableMbytes, &MemoryFigures::slabReclaimableBytes},
    {&MemoryRecord::slabUnreclaimableMbytes, &MemoryFigures::slabUnreclaimableBytes},
    {&MemoryRecord::kernelStackMbytes, &MemoryFigures::kernelStackBytes},
    {&MemoryRecord::pageTableMbytes, &MemoryFigures::pageTableBytes},
    {&MemoryRecord::secondPageTableMbytes, &MemoryFigures::secondPageTableBytes},
    {&MemoryRecord::nfsUnstableMbytes, &MemoryFigures::nfsUnstableBytes},
    {&MemoryRecord::bounceMbytes, &MemoryFigures::bounceBytes},
    {&MemoryRecord::writebackTempMbytes, &MemoryFigures::writebackTempBytes},
    {&MemoryRecord::commitLimitMbytes, &MemoryFigures::commitLimitBytes},
    {&MemoryRecord::committedMbytes, &MemoryFigures::committedBytes},
    {&MemoryRecord::vmallocUsedMbytes, &MemoryFigures::vmallocUsedBytes},
    {&MemoryRecord::perCpuMbytes, &MemoryFigures::perCpuBytes},
    {&MemoryRecord::corruptedMbytes, &MemoryFigures::corruptedBytes},
    {&MemoryRecord::anonHugeMbytes, &MemoryFigures::anonHugeBytes},
    {&MemoryRecord::sharedHugeMbytes, &MemoryFigures::sharedHugeBytes},
    {&MemoryRecord::sharedHugeMappedMbytes, &MemoryFigures::sharedHugeMappedBytes},
    {&MemoryRecord::fileHugeMbytes, &MemoryFigures::fileHugeBytes},
    {&MemoryRecord::fileHugeMappedMbytes, &MemoryFigures::fileHugeMappedBytes},
    {&MemoryRecord::cmaTotalMbytes, &MemoryFigures::cmaTotalBytes},
    {&MemoryRecord::cmaFreeMbytes, &MemoryFigures::cmaFreeBytes},
    {&MemoryRecord::unacceptedMbytes, &MemoryFigures::unacceptedBytes},
    {&MemoryRecord::balloonMbytes, &MemoryFigures::balloonBytes},
    {&MemoryRecord::hugePageMbytes, &MemoryFigures::hugePageBytes},
    {&MemoryRecord::hugetlbMbytes, &MemoryFigures::hugetlbBytes},
    {&MemoryRecord::directMap4kMbytes, &MemoryFigures::directMap4kBytes},
    {&MemoryRecord::directMap2mMbytes, &MemoryFigures::directMap2mBytes},
    {&MemoryRecord::directMap1gMbytes, &MemoryFigures::directMap1gBytes},
    {&MemoryRecord::dirtyMbytes, &MemoryFigures::dirtyBytes},
    {&MemoryRecord::writebackMbytes, &MemoryFigures::writebackBytes},
    {&MemoryRecord::swapTotalMbytes, &MemoryFigures::swapTotalBytes},
    {&MemoryRecord::swapFreeMbytes, &MemoryFigures::swapFreeBytes},
    {&MemoryRecord::zswapMbytes, &MemoryFigures::zswapBytes},
    {&MemoryRecord::zswappedMbytes, &MemoryFigures::zswappedBytes}};

constexpr FigurePair<MemoryRecord, MemoryFigures> kMemoryCountPairs[] = {
    {&MemoryRecord::oomKills, &MemoryFigures::oomKills},
    {&MemoryRecord::allocationStalls, &MemoryFigures::allocationStalls},
    {&MemoryRecord::faults, &MemoryFigures::faults},
    {&MemoryRecord::majorFaults, &MemoryFigures::majorFaults},
    {&MemoryRecord::swapInPages, &MemoryFigures::swapInPages},
    {&MemoryRecord::swapOutPages, &MemoryFigures::swapOutPages},
    {&MemoryRecord::swapReadAheads, &MemoryFigures::swapReadAheads},
    {&MemoryRecord::swapReadAheadHits, &MemoryFigures::swapReadAheadHits},
    {&MemoryRecord::zswapIns, &MemoryFigures::zswapIns},
    {&MemoryRecord::zswapOuts, &MemoryFigures::zswapOuts},
    {&MemoryRecord::zswapWritebacks, &MemoryFigures::zswapWritebacks},
    {&MemoryRecord::pageCacheDrops, &MemoryFigures::pageCacheDrops},
    {&MemoryRecord::slabDrops, &MemoryFigures::slabDrops},
    {&MemoryRecord::scannedDirect, &MemoryFigures::scannedDirect},
    {&MemoryRecord::scannedKswapd, &MemoryFigures::scannedKswapd},
    {&MemoryRecord::scannedKhugepaged, &MemoryFigures::scannedKhugepaged},
    {&MemoryRecord::stolenDirect, &MemoryFigures::stolenDirect},
    {&MemoryRecord::stolenKswapd, &MemoryFigures::stolenKswapd},
    {&MemoryRecord::stolenKhugepaged, &MemoryFigures::stolenKhugepaged},
    {&MemoryRecord::refaults, &MemoryFigures::refaults},
    {&MemoryRecord::refaultsAnon, &MemoryFigures::refaultsAnon},
    {&MemoryRecord::refaultsFile, &MemoryFigures::refaultsFile},
    {&MemoryRecord::refaultsActivated, &MemoryFigures::refaultsActivated},
    {&MemoryRecord::refaultsActivatedAnon, &MemoryFigures::refaultsActivatedAnon},
    {&MemoryRecord::refaultsActivatedFile, &MemoryFigures::refaultsActivatedFile},
    {&MemoryRecord::refaultsRestored, &MemoryFigures::refaultsRestored},
    {&MemoryRecord::refaultsRestoredAnon, &MemoryFigures::refaultsRestoredAnon},
    {&MemoryRecord::refaultsRestoredFile, &MemoryFigures::refaultsRestoredFile},
    {&MemoryRecord::shadowNodesReclaimed, &MemoryFigures::shadowNodesReclaimed},
    {&MemoryRecord::compactStalls, &MemoryFigures::compactStalls},
    {&MemoryRecord::compactFails, &MemoryFigures::compactFails},
    {&MemoryRecord::compactSuccesses, &MemoryFigures::compactSuccesses},
    {&MemoryRecord::compactMigrateScans, &MemoryFigures::compactMigrateScans},
    {&MemoryRecord::compactFreeScans, &MemoryFigures::compactFreeScans},
    {&MemoryRecord::compactDaemonWakes, &MemoryFigures::compactDaemonWakes},
    {&MemoryRecord::migratedPages, &MemoryFigures::migratedPages},
    {&MemoryRecord::migrateFails, &MemoryFigures::migrateFails},
    {&MemoryRecord::hugePagesTotal, &MemoryFigures::hugePagesTotal},
    {&MemoryRecord::hugePagesFree, &MemoryFigures::hugePagesFree},
    {&MemoryRecord::hugePagesReserved, &MemoryFigures::hugePagesReserved},
    {&MemoryRecord::hugePagesSurplus, &MemoryFigures::hugePagesSurplus},
    {&MemoryRecord::hugeFaults, &MemoryFigures::hugeFaults},
    {&MemoryRecord::hugeFaultFallbacks, &MemoryFigures::hugeFaultFallbacks},
    {&MemoryRecord::hugeCollapses, &MemoryFigures::hugeCollapses},
    {&MemoryRecord::hugeSplits, &MemoryFigures::hugeSplits},
    {&MemoryRecord::numaHits, &MemoryFigures::numaHits},
    {&MemoryRecord::numaMisses, &MemoryFigures::numaMisses},
    {&MemoryRecord::numaForeign, &MemoryFigures::numaForeign},
    {&MemoryRecord::numaLocal, &MemoryFigures::numaLocal},
    {&MemoryRecord::numaOther, &MemoryFigures::numaOther},
    {&MemoryRecord::numaInterleaved, &MemoryFigures::numaInterleaved},
    {&MemoryRecord::numaMigrated, &MemoryFigures::numaMigrated},
    {&MemoryRecord::numaHintFaults, &MemoryFigures::numaHintFaults},
    {&MemoryRecord::numaHintFaultsLocal, &MemoryFigures::numaHintFaultsLocal}};

void FillMemory(MemoryRecord& row, const MemoryFigures& figures) {
  constexpr double kBytesOfMbyte = 1048576;
  PutFigures<MemoryRecord, MemoryFigures>(row, figures, kMemoryPairs, kBytesOfMbyte);
  PutFigures<MemoryRecord, MemoryFigures>(row, figures, kMemoryCountPairs);
  row.hugePagesUsed = figures.hugePagesTotal - figures.hugePagesFree;
  row.availablePercent =
      static_cast<float>(100 * Quotient(figures.availableBytes, figures.totalBytes));
  row.swapUsedPercent = static_cast<float>(
      100 * Quotient(figures.swapTotalBytes - figures.swapFreeBytes, figures.swapTotalBytes));
}

}  // namespace

UtlError* RecordBuilder::Build_MEMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows({"RecordBuilder::Build_MEMD", pEvent, pRequest, GetUpTimeSeconds(),
                          m_pCollector->TakenAt(COLLECT_MEMORY)},
                         StateOf<GrowthState<MemoryRecord>>(),
                         std::span(&m_pCollector->GetModern()->memory, 1), FillMemory,
                         DeriveNoMore{});
}
