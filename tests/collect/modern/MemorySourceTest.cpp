#include "collect/modern/system/MemorySource.h"

#include <cmath>

#include "tests/collect/CollectFixture.h"

namespace {

class MemorySourceTest : public CollectFixture {
 protected:
  process_tree::HostTree m_host;
};

TEST_F(MemorySourceTest, ReadsBothFilesInBytesAndCounts) {
  m_host.Write("/proc/meminfo",
               "MemTotal:       24683620 kB\nActive:          7 kB\nActive(anon):       0 kB\n"
               "Inactive(file):   456020 kB\nVmallocTotal:   34359738367 kB\n"
               "VmallocUsed:       16680 kB\nHugePages_Total:       3\nHugePages_Surp:        0\n"
               "Hugepagesize:       2048 kB\nHugetlb:            6144 kB\nDirectMap4k:  1 kB\n");
  m_host.Write("/proc/vmstat",
               "nr_free_pages 4559215\nnuma_hit 786174980\nworkingset_refault_anon 5\n"
               "workingset_refault_file 2246347\nallocstall_dma 1\nallocstall_dma32 20\n"
               "allocstall_normal 300\nallocstall_movable 4000\nallocstall_device 50000\n"
               "swap_ra 8\nswap_ra_hit 6\noom_kill 0\npgscan_direct 9\n"
               "pgscan_direct_throttle 77\nworkingset_activate_file 11\n");
  MemoryFigures figures;
  figures.freeBytes = 1;
  ReadMemory(figures);
  // What is free was told by the call before alone; half of a sum, of what was activated, is none.
  EXPECT_EQ(Told({figures.totalBytes,        figures.activeBytes,      figures.activeAnonBytes,
                  figures.inactiveFileBytes, figures.vmallocUsedBytes, figures.hugePagesTotal,
                  figures.hugePagesSurplus,  figures.hugePageBytes,    figures.hugetlbBytes,
                  figures.numaHits,          figures.refaults,         figures.refaultsFile,
                  figures.allocationStalls,  figures.swapReadAheads,   figures.swapReadAheadHits,
                  figures.oomKills,          figures.scannedDirect,    figures.freeBytes,
                  figures.numaMisses,        figures.refaultsActivated}),
            "25276026880 7168 0 466964480 17080320 3 0 2097152 6291456 786174980 2246352 2246347 "
            "54321 8 6 0 9 - - -");
}

TEST_F(MemorySourceTest, TakesNoFigureOfWhatIsNoNumber) {
  MemoryFigures figures;
  ReadMemory(figures);
  EXPECT_FALSE(IsTold(figures.totalBytes));
  EXPECT_FALSE(IsTold(figures.faults));
  TakeMeminfo(
      "MemFree: x kB\nMemTotal:\nBuffers: -1 kB\nCached: 99999999999999999999 kB\n Dirty: 1 kB\n"
      "Dirty: 1 kB\nSlab 3 kB\nVmallocUsed: 0 kB\nShmem: 12 kB\nMapped: 45",
      figures);
  for (const double figure :
       {figures.freeBytes, figures.totalBytes, figures.bufferBytes, figures.cachedBytes,
        figures.slabBytes, figures.vmallocUsedBytes, figures.mappedBytes}) {
    EXPECT_FALSE(IsTold(figure)) << figure;
  }
  EXPECT_EQ(figures.dirtyBytes, 1024);
  EXPECT_EQ(figures.sharedBytes, 12288);
}

TEST_F(MemorySourceTest, AKernelBefore59TellsTheSumOfRefaultsAlone) {
  MemoryFigures figures;
  TakeVmstat("workingset_refault 70\nworkingset_activate 5\nallocstall 4\n", figures);
  EXPECT_EQ(figures.refaults, 70);
  EXPECT_EQ(figures.refaultsActivated, 5);
  EXPECT_EQ(figures.allocationStalls, 4);
  EXPECT_FALSE(IsTold(figures.refaultsAnon));
}

}  // namespace
