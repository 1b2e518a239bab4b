#include "collect/system/SystemSourceLINUX.h"

#include <limits>

#include "collect/AccountingCount.h"
#include "tests/collect/CollectFixture.h"

namespace {

struct sysinfo g_sysinfo;

/// Memory; load and queue; counters of paging and of the processor; boot, processors, processes,
/// users, ended processes.
std::string Dump(const x_system& row) {
  std::ostringstream out;
  out << row.freeMemMB << ' ' << row.totalMemMB << ' ' << row.freeSwapMB << ' ' << row.totalSwapMB
      << " | " << row.load1 << ' ' << row.load5 << ' ' << row.load15 << ' ' << row.runQueue << " | "
      << row.pagesIn << ' ' << row.pagesOut << ' ' << row.swapIn << ' ' << row.swapOut << " | "
      << row.contextSwitches << ' ' << row.interrupts << " | " << row.bootTime << ' ' << row.numCPUs
      << ' ' << row.numProcesses << ' ' << row.numUsers << ' ' << row.processesDied;
  return out.str();
}

std::string StatusOf(const std::string& uid) { return "Name:\tx\nUid:\t" + uid + "\t1\t1\t1\n"; }

class SystemSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    g_sysinfo = {};
    g_sysinfo.mem_unit = 1 << 20;
    g_sysinfo.freeram = 1;
    g_sysinfo.totalram = 2;
    g_sysinfo.freeswap = 3;
    g_sysinfo.totalswap = 4;
    Os().sysinfo = [](struct ::sysinfo* info) {
      *info = g_sysinfo;
      return 0;
    };
    Os().get_nprocs = [] { return 2; };
  }
  void TearDown() override {
    g_accountingRecords = 0;
    CollectFixture::TearDown();
  }

  static System Read() {
    ProcLib::ResetCaches();
    System row;
    SystemSourceUser source;
    const UtlErrorPtr error(source.readOne(nullptr, row));
    EXPECT_EQ(error, nullptr);
    return row;
  }
};

TEST_F(SystemSourceTest, ReadsTheHostOfEachKernel) {
  struct Case {
    const char* tree;
    int variant;
    const char* row;
    std::size_t missingKeys;
  };
  for (const Case& c :
       {Case{"2.4.9", 1,
             "1 2 3 4 | 0.41 0.27 0.11 2 | 118220 301144 14 52 | 3120441 2310455 | "
             "999331200 2 3 2 0",
             0},
        Case{"2.4.21", 2,
             "1 2 3 4 | 0.12 0.08 0.05 1 | 254612 512344 120 340 | 8123456 4012345 | "
             "1058918400 2 3 2 0",
             0},
        Case{"2.6.9", 3,
             "1 2 3 4 | 0.4 0.31 0.22 2 | 8120334 21022340 312 1024 | 981203344 503204411 | "
             "1104537600 2 3 1 0",
             2},
        Case{"6.1", 3,
             "1 2 3 4 | 1.25 0.8 0.61 3 | 9120334 30112044 88 4012 | 1720334112 912033441 | "
             "1714521600 2 4 2 0",
             2}}) {
    SCOPED_TRACE(c.tree);
    ScriptedNode::Reset();
    g_msgLogLevel = 40;
    g_kernelVariant = c.variant;
    SetHostRoot(FixturePath(c.tree));
    EXPECT_EQ(Dump(Read()), c.row);
    // The newer kernels tell paging elsewhere; nothing else is amiss.
    EXPECT_EQ(Lines("(ProcLib::GetProcMapValue)"), c.missingKeys);
    EXPECT_EQ(Lines("rror occ"), c.missingKeys);
  }
}

TEST_F(SystemSourceTest, OneBrokenFileLeavesTheOthersFigures) {
  const std::string load = "1 2 3 4 | 1.25 0.8 0.61 3 | ";
  const std::string paging = "9120334 30112044 88 4012 | ";
  const std::string counters = "1720334112 912033441 | ";
  struct Case {
    const char* removed;
    std::string row;
    std::vector<std::pair<int, const char*>> traces;
  };
  for (const Case& c :
       {Case{"/proc/stat",
             load + paging + "0 0 | 0 2 4 2 0",
             {{20, "Error occured in function (SystemSourceUser::ReadStatProc).(rc = -1)"},
              {30, "Error occured in function (ProcLib::GetBootTime).(rc = -1)"}}},
        Case{"/proc/vmstat",
             load + "0 0 0 0 | " + counters + "1714521600 2 4 2 0",
             {{20, "Error occured in function (SystemSourceUser::ReadVmstatProc).(rc = -1)"},
              {30, "Error occured in a function (ProcLib::BuildProcMap).(rc = -1, arg1 =  )"}}},
        Case{"/proc/loadavg",
             "1 2 3 4 | 0 0 0 0 | " + paging + counters + "1714521600 2 4 2 0",
             {{30, "An error occured in function (ProcLib::Initialize):(ProcLib::Initialize(file="},
              {30, "failed! errno: 2, arg1=7)"},
              {30, "Error occured in function (ProcLib::GetLine).(rc=-1, arg1=/proc/loadavg)"},
              {30, "Error occured in function (SystemSourceUser::ReadLoadavgProc).(rc = -1)"}}},
        // A process that has ended since /proc was looked at.
        Case{"/proc/92/status",
             load + paging + counters + "1714521600 2 4 0 0",
             {{30, "The error occurred by OS API(fopen). (en=2, arg1=/proc/92/status, arg2=r)"},
              {30, "Error occured in function (SystemSourceUser::CountUser).(rc=-1, arg1=0)"}}},
        // The counts of processes and of users tell it each at its own level.
        Case{"/proc",
             "1 2 3 4 | 0 0 0 0 | 0 0 0 0 | 0 0 | 0 2 0 0 0",
             {{20, "The error occurred by OS API(opendir). (en=2, arg1=/proc)"},
              {30, "Error occured in function (SystemSourceUser::CountUser).(rc=-1, arg1=0)"}}}}) {
    SCOPED_TRACE(c.removed);
    const process_tree::HostTree host;
    host.CopyFrom(FixturePath("6.1"));
    host.Remove(c.removed);
    ScriptedNode::Reset();
    g_msgLogLevel = 40;
    EXPECT_EQ(Dump(Read()), c.row);
    for (const auto& [level, text] : c.traces) {
      EXPECT_EQ(Level(text), level) << text;
    }
  }
  EXPECT_EQ(Lines("OS API(opendir)"), 2U);
  // Told once, until there was a host again.
  const process_tree::HostTree host;
  const std::string told = "There is no host to be read: " + host.Path("/proc").string() + " holds";
  g_msgLogLevel = 10;
  EXPECT_TRUE(Read().isNowhere && Read().isNowhere);
  EXPECT_EQ(Lines(told), 1U);
  EXPECT_EQ(Level(told), 10);
  host.Write("/proc/loadavg", "");
  EXPECT_FALSE(Read().isNowhere);
  host.Remove("/proc/loadavg");
  EXPECT_TRUE(Read().isNowhere);
  EXPECT_EQ(Lines(told), 2U);
  // An old kernel has no such file, and nobody looks for it.
  ScriptedNode::Reset();
  g_msgLogLevel = 40;
  g_kernelVariant = 2;
  SetHostRoot(FixturePath("2.4.21"));
  Read();
  EXPECT_EQ(Lines("vmstat"), 0U);
}

TEST_F(SystemSourceTest, ScalesMemoryByItsUnit) {
  constexpr unsigned long kMax = std::numeric_limits<unsigned long>::max();
  struct Case {
    unsigned long units;
    unsigned int unitBytes;
    float megabytes;
  };
  for (const Case& c : {Case{4096, 0, 0.0F}, Case{1536UL << 10, 1, 1.5F}, Case{3072, 4096, 12.0F},
                        // 64 bits with the highest one set, and a product that loses bits beyond.
                        Case{kMax, 1, 17592186044416.0F}, Case{(1UL << 60) + 1024, 4096, 4.0F}}) {
    g_sysinfo.freeram = g_sysinfo.totalswap = c.units;
    g_sysinfo.mem_unit = c.unitBytes;
    SetHostRoot(FixturePath("6.1"));
    const System row = Read();
    EXPECT_EQ(row.freeMemMB, c.megabytes) << c.units;
    EXPECT_EQ(row.totalSwapMB, c.megabytes) << c.units;
  }
  Os().sysinfo = [](struct ::sysinfo*) {
    errno = EFAULT;
    return -1;
  };
  EXPECT_EQ(Dump(Read()),
            "0 0 0 0 | 1.25 0.8 0.61 3 | 9120334 30112044 88 4012 | 1720334112 912033441 | "
            "1714521600 2 0 2 0");
  EXPECT_EQ(Level("The error occurred by OS API(sysinfo). (en=14, arg1="), 20);
}

TEST_F(SystemSourceTest, CountersKeepTheirLowBitsAndScanOneByOne) {
  const process_tree::HostTree host;
  host.Write("/proc/stat",
             "swap 7\npage x 5\nctxt 18446744073709551615\nintr 4294967298 1 1\nbtime 12\n");
  host.Write("/proc/vmstat",
             "pgpgin 4294967297\npgpgout -1\nnr_pswpin_like 6\npswpin 8\npswpout none\n");
  host.Write("/proc/loadavg", "1 2 3 4\n");
  EXPECT_EQ(Dump(Read()), "1 2 3 4 | 1 2 3 4 | 1 4294967295 6 0 | 4294967295 2 | 12 2 0 0 0");
  EXPECT_EQ(Level("An error occurred by OS API (sscanf).(en="), 30);
  EXPECT_EQ(Lines("arg1=7, arg2=%u %u)"), 1U);
  EXPECT_EQ(Lines("arg1=none, arg2=%u)"), 1U);
  // What was scanned before the fault counts; the newer file is not looked at.
  g_kernelVariant = 2;
  EXPECT_EQ(Dump(Read()), "1 2 3 4 | 1 2 3 4 | 0 0 7 0 | 4294967295 2 | 12 2 0 0 0");
}

TEST_F(SystemSourceTest, ScansTheLoadAsFarAsItGoes) {
  struct Case {
    const char* text;
    const char* load;
    bool complete;
  };
  for (const Case& c :
       {Case{"0.41 0.27 0.11 12/304 2209\n", " | 0.41 0.27 0.11 12 | ", true},
        Case{" +1.5\t.25 1e2 7", " | 1.5 0.25 100 7 | ", true},
        Case{"-0.5 2. 3 4/\n", " | -0.5 2 3 4 | ", true},
        Case{"0.5 0.25 0.125 /9\n", " | 0.5 0.25 0.125 0 | ", false},
        Case{"0.5 nan 1 2\n", " | 0.5 0 0 0 | ", false},
        Case{"1 inf 1 2\n", " | 1 0 0 0 | ", false}, Case{"1 +-1 1 2\n", " | 1 0 0 0 | ", false},
        Case{"1 1e999 1 2\n", " | 1 0 0 0 | ", false}, Case{"-\n", " | 0 0 0 0 | ", false},
        Case{"\n", " | 0 0 0 0 | ", false}}) {
    const process_tree::HostTree host;
    host.Write("/proc/loadavg", c.text);
    ScriptedNode::Reset();
    g_msgLogLevel = 40;
    EXPECT_NE(Dump(Read()).find(c.load), std::string::npos) << c.text;
    EXPECT_EQ(Lines("An error occurred by OS API (sscanf).(en="), c.complete ? 0U : 1U) << c.text;
    EXPECT_EQ(Lines("SystemSourceUser::ReadLoadavgProc"), 0U) << c.text;
  }
}

TEST_F(SystemSourceTest, CountsEachRealUserOnce) {
  const process_tree::HostTree host;
  host.Write("/proc/1/status", StatusOf("0"));
  host.Write("/proc/20/status", StatusOf("1000"));
  host.Write("/proc/21/status", StatusOf("1000"));
  host.Write("/proc/22/status", StatusOf("4294968296"));  // keeps 1000
  host.Write("/proc/self2/status", StatusOf("5"));
  // The line may come late, and be a piece of a longer one.
  host.Write("/proc/30/status", std::string(100000, '\n') + "Uid:\t7\n");
  host.Write("/proc/31/status", "Groups:" + std::string(1016, 'g') + "Uid: 8\n");
  // A name that is the word does not hide the line.
  host.Write("/proc/40/status", "Name:\tUid:\nUid:\t90\t1\t1\t1\n");
  host.Write("/proc/41/status", std::string("Na\0Uid: 91\nUid:\n", 16));
  host.Write("/proc/42/status", "Name:\tnone\n");
  host.Write("/proc/43/status", "");
  // None of these is a file to read; none may block.
  std::filesystem::create_directories(host.Path("/proc/50/status"));
  std::filesystem::create_directories(host.Path("/proc/51"));
  ASSERT_EQ(::mkfifo(host.Path("/proc/51/status").c_str(), 0600), 0);
  host.Link("/proc/52/status", "/dev/zero");
  const System row = Read();
  EXPECT_EQ(row.numUsers, 5U);
  EXPECT_EQ(row.numProcesses, 13U);
  EXPECT_EQ(Level("(SystemSourceUser :: GetLine).(rc=-1, arg1=/proc/42/status"), 30);
  EXPECT_EQ(Lines("(SystemSourceUser :: GetLine)"), 5U);
  EXPECT_EQ(Lines("arg2=%*s %u)"), 1U);

  // Off by default: the failures below level 20 are silent.
  host.Remove("/proc/42/status");
  ScriptedNode::Reset();
  g_msgLogLevel = 20;
  EXPECT_EQ(Read().numUsers, 0U);
  EXPECT_EQ(Lines("CountUser") + Lines("GetLine") + Lines("API(fopen). (en=2, arg1=/proc/42"), 0U);
}

TEST_F(SystemSourceTest, ReadsEachFileOnce) {
  const process_tree::HostTree host;
  const std::string filler(1 << 20, '\n');
  host.Write("/proc/stat", filler);
  host.Write("/proc/vmstat", filler);
  for (int pid = 1; pid <= 300; ++pid) {
    host.Write("/proc/" + std::to_string(pid) + "/status", StatusOf("0") + std::string(1000, 'x'));
  }
  const auto bytesRead = [] {
    std::ifstream io("/proc/self/io");
    std::string key;
    std::uint64_t bytes = 0;
    io >> key >> bytes;
    return bytes;
  };
  if (bytesRead() == 0) {
    GTEST_SKIP() << "this kernel does not account for bytes";
  }
  System row;
  SystemSourceUser source;
  ProcLib::ResetCaches();
  host.Write("/proc/stat", "btime 1\n");  // the boot time is not the source's own to read
  ASSERT_EQ(ProcLib::GetBootTime(), 1);
  host.Write("/proc/stat", filler);
  const std::uint64_t before = bytesRead();
  source.read(&row);
  EXPECT_LT(bytesRead() - before, (2U << 20) + 300 * 1100 + 10000);
  EXPECT_EQ(row.numUsers, 1U);
}

TEST_F(SystemSourceTest, AddsTheTrapsOfAllProcessors) {
  struct Case {
    const char* text;
    int result;
    std::uint32_t traps;
  };
  for (const Case& c : {Case{"  0: 5 IO-APIC\nNMI:   12   34   Non-maskable interrupts\n", 0, 46},
                        Case{"NMI: 4294967295 3 x86", 0, 88}, Case{"NMI:  none\n", -1, 0},
                        Case{"LOC: 1\n", -1, 0}}) {
    const process_tree::HostTree host;
    host.Write("/proc/interrupts", c.text);
    SystemSourceUser source;
    EXPECT_EQ(source.GetTrapCount(), c.result) << c.text;
    EXPECT_EQ(source.TrapCount(), c.traps) << c.text;
  }
  EXPECT_EQ(Lines("The error occured by OS API(sscanf).(en = "), 1U);
  EXPECT_EQ(Lines("An error occurred in a function (SystemSourceUser::GetLine).(rc=-1, arg1="), 1U);
  SetHostRoot("/nowhere");
  SystemSourceUser source;
  EXPECT_EQ(source.GetTrapCount(), -1);
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/interrupts,arg2=r)"), 1U);
}

TEST_F(SystemSourceTest, TellsEndedProcessesAndProcessorsAsCounted) {
  SetHostRoot(FixturePath("6.1"));
  g_accountingRecords = 41;
  Os().get_nprocs = [] { return 0; };
  const System row = Read();
  EXPECT_EQ(row.processesDied, 41U);
  EXPECT_EQ(row.numCPUs, 0U);
  EXPECT_EQ(Level("Error occured in function (ProcLib::GetNumCPUs).(rc = 0)"), 20);
  EXPECT_EQ(SystemSourceUser::SystemProcessDied(), 41);
}

}  // namespace
