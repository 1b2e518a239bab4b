#include "collect/modern/HostText.h"
#include "collect/modern/network/ProtocolCounters.h"
#include "collect/modern/nfs/NFSTotals.h"
#include "collect/modern/process/ProcessCount.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/modern/system/Loadavg.h"
#include "collect/modern/system/Meminfo.h"
#include "collect/modern/system/Vmstat.h"
#include "tests/collect/CollectFixture.h"

namespace {

using Figures = std::vector<std::uint64_t>;

class SystemFilesTest : public CollectFixture {
 protected:
  process_tree::HostTree m_host;
};

TEST_F(SystemFilesTest, ScansAndReclaimsOfEachKernelCountOnce) {
  const struct {
    const char* kernel;
    const char* text;
    Figures scansAndReclaims;
  } cases[] = {
      {"6.18",
       "pgsteal_kswapd 100\npgsteal_direct 20\npgsteal_khugepaged 3\npgsteal_proactive 4\n"
       "pgscan_kswapd 1000\npgscan_direct 200\npgscan_khugepaged 30\npgscan_proactive 40\n"
       "pgscan_direct_throttle 5\npgscan_anon 600\npgscan_file 670\npgsteal_anon 60\n"
       "pgsteal_file 67\n",
       {1270, 127}},
      {"4.18", "pgscan_kswapd 7\npgscan_direct 5\npgsteal_kswapd 3\npgsteal_direct 1\n", {12, 4}},
      {"3.10",
       "pgsteal_kswapd_dma 1\npgsteal_kswapd_dma32 2\npgsteal_kswapd_normal 4\n"
       "pgsteal_direct_normal 8\npgsteal_direct_movable 16\npgscan_kswapd_dma32 32\n"
       "pgscan_direct_high 64\npgscan_direct_throttle 128\n",
       {96, 31}},
      {"2.6.32",
       "pgsteal_dma 1\npgsteal_normal 2\npgscan_kswapd_normal 8\npgscan_direct_normal 4\n",
       {12, 3}},
      {"a name too many", "pgscan_kswapd 7\npgscan_kswapd_normal 7\npgscan_kswapdx 9\n", {7, 0}},
  };
  for (const auto& one : cases) {
    const VmstatFigures figures = ParseVmstat(one.text);
    EXPECT_EQ((Figures{figures.scannedPages, figures.reclaimedPages}), one.scansAndReclaims)
        << one.kernel;
  }
}

TEST_F(SystemFilesTest, HostileTextsGiveWhatTheyTell) {
  const std::string huge = "pgfault 18446744073709551615\npgfault\npgpgin x\n";
  EXPECT_EQ(ParseVmstat(huge).faults, ~std::uint64_t{0});
  EXPECT_EQ(ParseVmstat(huge).readKB, 0U);
  EXPECT_EQ(ParseVmstat("pgfaults 1\n pgfault 2\npgfault\t3").faults, 3U);
  EXPECT_EQ(ParseKernelStat("cpu 1\ncpu\ncpu0\ncpu1 1 2\ncpux 3\nprocs_running -1").processors, 2U);
  EXPECT_FALSE(ParseMeminfo("MemAvailable: kB\nMemTotal:7\n").HasAvailable());
  EXPECT_FALSE(ParseLoadavg("0.5 1.5\n").has_value());
  EXPECT_EQ(ParseLoadavg("0.5 1.5 2.5 1/9 3\n")->load15, 2.5F);
}

TEST_F(SystemFilesTest, ColumnsOfPacketsAreFoundByName) {
  const struct {
    const char* what;
    const char* text;
    Figures icmpOutUdpInTcpIn;
  } cases[] = {
      {"another order",
       "Icmp: OutMsgs InMsgs\nIcmp: 5 6\nUdp: X InDatagrams\nUdp: 1 7\nTcp: A InSegs\nTcp: -1 9\n",
       {5, 7, 9}},
      {"too few values", "Icmp: InMsgs OutMsgs\nIcmp: 5\nTcp: InSegs\nTcp: 4\n", {0, 0, 4}},
      {"names alone", "Icmp: OutMsgs\nUdp: InDatagrams\nUdp: 3\n", {0, 3, 0}},
      {"others of like names",
       "IcmpMsg: OutMsgs\nIcmpMsg: 1\nUdpLite: InDatagrams\nUdpLite: 2\n",
       {0, 0, 0}},
      {"beyond 32 bits", "Tcp: InSegs\nTcp: 4294967297", {0, 0, 4'294'967'297}},
  };
  for (const auto& one : cases) {
    const ProtocolCounters counters = ParseSnmp(one.text);
    EXPECT_EQ((Figures{counters.icmpOut, counters.udpIn, counters.tcpIn}), one.icmpOutUdpInTcpIn)
        << one.what;
  }
}

TEST_F(SystemFilesTest, AMissingColumnIsToldOnceUntilItIsThere) {
  const auto read = [] {
    Protocol row;
    ModernProtocolSource one;
    EXPECT_EQ(one.readOne(nullptr, row), nullptr);
    return row;
  };
  const std::string rest =
      "Ip: InDelivers OutRequests\nIp: 1 2\nTcp: InSegs OutSegs\nTcp: 3 4\n"
      "Udp: InDatagrams OutDatagrams\nUdp: 5 6\n";
  const std::string text = "(/proc/net/snmp: Icmp OutMsgs)";
  for (const std::size_t times : {1U, 2U}) {
    m_host.Write("/proc/net/snmp", rest + "Icmp: InMsgs\nIcmp: 7\n");
    EXPECT_EQ(read().icmpOut + read().icmpOut, 0U);
    EXPECT_EQ(Lines(text), times);
    m_host.Write("/proc/net/snmp", rest + "Icmp: InMsgs OutMsgs\nIcmp: 7 8\n");
    EXPECT_EQ(read().totalOut, 18U);
  }
  EXPECT_EQ(Level(text), 20);
}

TEST_F(SystemFilesTest, AFileThatOpensButCannotBeReadIsToldOnce) {
  const std::filesystem::path file = HostPath("/proc/memory-of-nobody");
  std::filesystem::remove(file);
  std::filesystem::create_directories(file.parent_path());
  // At its place 0 a process has no memory.
  std::filesystem::create_symlink("/proc/self/mem", file);
  std::string text = "before";
  for (int time = 0; time < 2; ++time) {
    EXPECT_FALSE(ReadHostText("/proc/memory-of-nobody", text));
    EXPECT_EQ(text, "");
  }
  EXPECT_EQ(Lines("(/proc/memory-of-nobody)"), 1U);
}

TEST_F(SystemFilesTest, NFSOperationsAreThoseOfTheLineAsFarAsItGoes) {
  const struct {
    const char* what;
    std::string text;
    Figures totalLookupReadWrite;
  } cases[] = {
      {"a line that counts too many", "proc4 99 0 1 2 4", {7, 0, 1, 2}},
      {"more numbers than it counts", "proc4 3 0 1 2 4 8", {3, 0, 1, 2}},
      {"no number", "proc4\nproc4ops 3 9 9 9\n", {0, 0, 0, 0}},
      {"nothing", "", {0, 0, 0, 0}},
  };
  for (const auto& one : cases) {
    const ModernNFSFigures v4 = ParseNFSFile(one.text, kNFSClientVersion4).modern;
    EXPECT_EQ((Figures{v4.operationsV4, v4.lookupsV4, v4.readsV4, v4.writesV4}),
              one.totalLookupReadWrite)
        << one.what;
  }
  NFSClientTotal row;
  ModernNFSClientSource source;
  EXPECT_EQ(source.readOne(nullptr, row), nullptr);
  EXPECT_FALSE(source.IsSupported()) << "the host has no such module";
  m_host.Write("/proc/net/rpc/nfs", "proc3 22 1 2 4\nrpc 1 2 3\n");
  EXPECT_EQ(source.readOne(nullptr, row), nullptr);
  EXPECT_TRUE(source.IsSupported());
  EXPECT_EQ(row.totalCalls, 7U);
  EXPECT_EQ(row.modern.badCalls, 0U) << "the client's second number counts repetitions";
}

TEST_F(SystemFilesTest, AProcessThatVanishesCostsNothing) {
  m_host.Write("/proc/1/status", "Name:\tUid:\nUid:\t0\t5\t5\t5\n");
  m_host.Write("/proc/2/status", "Name:\tx\nUid:\t7\t0\t0\t0\n");
  m_host.Write("/proc/3/stat", "");  // gone between the look at /proc and the opening
  m_host.Write("/proc/4/status", "Name:\tx\nUid:\t7\t0\t0\t0\n");
  m_host.Write("/proc/self/status", "Uid:\t9\t0\t0\t0\n");
  const ProcessCount count = CountInProc();
  EXPECT_EQ(count.processes, 3U);
  EXPECT_EQ(count.users, 2U);
}

}  // namespace
