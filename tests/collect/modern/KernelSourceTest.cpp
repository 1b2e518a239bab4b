#include "collect/modern/system/KernelSource.h"

#include "tests/collect/CollectFixture.h"

namespace {

class KernelSourceTest : public CollectFixture {
 protected:
  process_tree::HostTree m_host;
};

std::vector<double> KernelGauges(const KernelFigures& figures) {
  return {figures.load1,    figures.load5,   figures.load15,  figures.tasks,
          figures.runnable, figures.blocked, figures.bootTime};
}

std::vector<double> KernelCounts(const KernelFigures& figures) {
  return {figures.contextSwitches, figures.interrupts, figures.softInterrupts,
          figures.forks,           figures.readKbytes, figures.writtenKbytes};
}

TEST_F(KernelSourceTest, ReadsAllThreeFilesIn64Bits) {
  m_host.Write("/proc/loadavg", "0.50 1.25 2.75 3/901 4711\n");
  m_host.Write("/proc/stat",
               "cpu  1 2 3 4\ncpu0 1 2 3 4\nintr 6000000000 35 0 12\nctxt 5000000000\n"
               "btime 1699999000\nprocesses 4500000000\nprocs_running 3\nprocs_blocked 2\n"
               "softirq 7000000000 1 2\n");
  m_host.Write("/proc/vmstat",
               "pgpgin 8000000000\npgpgout 9000000000\npgpgoutclean 1\npgpginodes 2\n");
  KernelFigures figures;
  ReadKernel(figures);
  EXPECT_EQ(KernelGauges(figures),
            (std::vector<double>{0.5, 1.25, 2.75, 901, 3, 2, 1'699'999'000}));
  EXPECT_EQ(KernelCounts(figures), (std::vector<double>{5e9, 6e9, 7e9, 4.5e9, 8e9, 9e9}));
}

TEST_F(KernelSourceTest, WhatIsMissingIsNotTold) {
  KernelFigures figures;
  figures.forks = figures.tasks = 1;
  ReadKernel(figures);
  for (const double figure : KernelGauges(figures)) {
    EXPECT_FALSE(IsTold(figure)) << figure;
  }
  TakeKernelLoad("0.5 1.5\n", figures);
  TakeKernelStat("ctxt x\nintr\nprocesses -1\nprocs_running 0\n procs_blocked 4\nsoftirq 12",
                 figures);
  TakeKernelDisks("pgpgin 99999999999999999999\n", figures);
  for (const double figure : KernelCounts(figures)) {
    EXPECT_FALSE(IsTold(figure)) << figure;
  }
  EXPECT_FALSE(IsTold(figures.load1)) << "one of three is missing";
  EXPECT_FALSE(IsTold(figures.blocked));
  EXPECT_EQ(figures.runnable, 0) << "a 0 that is told";
  TakeKernelLoad("0.5 1.5 2.5\n", figures);
  EXPECT_EQ(figures.load15, 2.5);
  EXPECT_FALSE(IsTold(figures.tasks)) << "without the fourth field";
}

}  // namespace
