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
  const struct {
    const char* what;
    double figure;
    double expected;
  } cases[] = {
      {"total", figures.totalBytes, 25276026880.0},
      {"active", figures.activeBytes, 7168},
      {"a 0 that is told", figures.activeAnonBytes, 0},
      {"inactive of files", figures.inactiveFileBytes, 466964480},
      {"vmalloc", figures.vmallocUsedBytes, 17080320},
      {"huge pages", figures.hugePagesTotal, 3},
      {"surplus", figures.hugePagesSurplus, 0},
      {"size of one", figures.hugePageBytes, 2097152},
      {"all sizes", figures.hugetlbBytes, 6291456},
      {"hits", figures.numaHits, 786174980},
      {"refaults of both", figures.refaults, 2246352},
      {"refaults of files", figures.refaultsFile, 2246347},
      {"stalls of all zones", figures.allocationStalls, 54321},
      {"read ahead", figures.swapReadAheads, 8},
      {"hits of it", figures.swapReadAheadHits, 6},
      {"no kill yet", figures.oomKills, 0},
      {"scans", figures.scannedDirect, 9},
  };
  for (const auto& one : cases) {
    EXPECT_DOUBLE_EQ(one.figure, one.expected) << one.what;
  }
  EXPECT_FALSE(IsTold(figures.freeBytes)) << "of the call before";
  EXPECT_FALSE(IsTold(figures.numaMisses));
  EXPECT_FALSE(IsTold(figures.refaultsActivated)) << "half of a sum is none";
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
