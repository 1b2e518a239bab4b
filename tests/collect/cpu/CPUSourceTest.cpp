#include "collect/cpu/CPUSourceLINUX.h"

#include "tests/collect/CpuRows.h"

namespace {

class CPUSourceTest : public CollectFixture {
 protected:
  static void SetProcessors(int (*online)(), int (*configured)()) {
    ProcLib::ResetCaches();
    Os().get_nprocs = online;
    Os().get_nprocs_conf = configured;
  }
  static std::vector<CPU> Read() { return ReadAll<CPUSourceUser, CPU>(); }
  static std::string Failure() { return FailureOf<CPUSourceUser, CPU>(); }
};

TEST_F(CPUSourceTest, ReadsTheProcessorsOfEachKernel) {
  // Without a wait column the times of the oldest kernel stay 0.
  SetHostRoot(FixturePath("2.4.21"));
  SetProcessors([] { return 1; }, [] { return 1; });
  EXPECT_EQ(DumpCpus(Read()), "140 0 0 0+0 0+0 0+0 0+0 4012342 0 [Pentium III (Coppermine)]\n");
  EXPECT_EQ(Lines("An error occurred in a function (sscanf). (rc=4, arg1=94236 1203 23801 3562719, "
                  "arg2=%lu %lu %lu %lu %lu)"),
            1U);

  SetHostRoot(FixturePath("2.6.9"));
  SetProcessors([] { return 2; }, [] { return 2; });
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 2061+440000 602+270000 495601+720000 151+50000 251602200 0 "
            "[              Intel(R) Xeon(TM) CPU 3.00]\n"
            "140 1 0 2060+340000 602+280000 495601+720000 151+60000 251602211 0 "
            "[              Intel(R) Xeon(TM) CPU 3.00]\n");

  SetHostRoot(FixturePath("6.1"));
  SetProcessors([] { return 4; }, [] { return 4; });
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 3011+50000 1050+200000 220300+10000 127+550000 32011 0 "
            "[Intel(R) Core(TM) i5-8265U CPU @ 1.60GHz]\n"
            "140 1 0 3012+60000 1050+300000 220301+20000 127+560000 10004 0 "
            "[Intel(R) Core(TM) i5-8265U CPU @ 1.60GHz]\n"
            "140 2 0 3013+490000 1050+300000 220301+400000 127+550000 441 0 "
            "[Intel(R) Core(TM) i5-8265U CPU @ 1.60GHz]\n"
            "140 3 0 3027+50000 1050+300000 220301+10000 127+560000 525 0 "
            "[Intel(R) Core(TM) i5-8265U CPU @ 1.60GHz]\n");
  EXPECT_EQ(Lines("GetTraps"), 0U);
}

TEST_F(CPUSourceTest, TellsProcessorsOfManyApart) {
  const process_tree::HostTree host;
  std::string stat = "cpu  1 1 1 1 1\n";
  std::string info;
  std::string interrupts = "  1:";
  for (int cpu = 0; cpu < 12; ++cpu) {
    const std::string number = std::to_string(cpu);
    stat.append("cpu").append(number).append(" ").append(number).append("00 0 0 0 0 0 0\n");
    info.append("processor\t: ").append(number).append("\nmodel name\t: M").append(number);
    info.append("\n\n");
    interrupts.append(" ").append(number).append("0");
  }
  host.Write("/proc/stat", stat);
  host.Write("/proc/cpuinfo", info);
  host.Write("/proc/interrupts", interrupts + "\n  2: 5 6\n 3x: 1\n  4:\nNMI: 7 7\n");
  SetProcessors([] { return 12; }, [] { return 16; });
  const std::vector<CPU> rows = Read();
  ASSERT_EQ(rows.size(), 12U);
  for (std::uint32_t cpu = 0; cpu < rows.size(); ++cpu) {
    EXPECT_EQ(rows[cpu].GetCpuId(), cpu);
    EXPECT_EQ(rows[cpu].GetUserTime().seconds, static_cast<std::int32_t>(cpu));
    EXPECT_EQ(rows[cpu].GetType(), std::string("M") + std::to_string(cpu));
    EXPECT_EQ(rows[cpu].GetInterrupts(), cpu * 10 + (cpu == 0 ? 6 : 0) + (cpu == 1 ? 6 : 0));
  }
  // The line of the second kind of number counts, the named one does not; only two have a column
  // there.
  EXPECT_EQ(Lines("(CPUSourceUser::GetTraps). (rc=-1"), 10U);
}

TEST_F(CPUSourceTest, GoesByPositionWhereProcessorsAreOffLine) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "cpu0 100 0 0 0 0\ncpu2 200 0 0 0 0\n");
  host.Write("/proc/cpuinfo", "processor\t: 0\nmodel name\t: A\n\nprocessor\t: 2\n\n");
  host.Write("/proc/interrupts", " CPU0 CPU2\n 1: 10 20\n");
  SetProcessors([] { return 2; }, [] { return 4; });
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 1+0 0+0 0+0 0+0 10 0 [A]\n"
            "140 2 0 2+0 0+0 0+0 0+0 20 0 []\n");

  // Listed processors are never more than configured ones, nor reported ones more than listed.
  SetProcessors([] { return 3; }, [] { return 1; });
  EXPECT_EQ(DumpCpus(Read()), "140 0 0 1+0 0+0 0+0 0+0 10 0 [A]\n");
  // A processor that /proc/cpuinfo does not list has the word 1.
  SetProcessors([] { return 3; }, [] { return 3; });
  EXPECT_EQ(Read().at(2).GetOnline(), 1U);
}

TEST_F(CPUSourceTest, OnlyAKeyMakesAProcessor) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "cpu0 100 0 0 0 0\ncpu1 200 0 0 0 0\n");
  host.Write("/proc/cpuinfo",
             "processor\t: 0\nmodel name\t: AMX processor 5\nprocessor ids\t: 9\n\n"
             "processor\t: 1\nvendor\t: the model name: x\nmodel name\t: B processor : 1\n\n");
  host.Write("/proc/interrupts", " CPU0 CPU1\n 1: 10 20\n");
  SetProcessors([] { return 2; }, [] { return 2; });
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 1+0 0+0 0+0 0+0 10 0 [AMX processor 5]\n"
            "140 1 0 2+0 0+0 0+0 0+0 20 0 [B processor : 1]\n");
  EXPECT_EQ(Lines("sscanf"), 0U);
}

TEST_F(CPUSourceTest, FailsOnlyWithoutTheListOfProcessors) {
  SetHostRoot(FixturePath("6.1"));
  SetProcessors([] { return -1; }, [] { return 4; });
  EXPECT_EQ(Failure(), "Error in calculating number of CPUs");
  SetProcessors([] { return 4; }, [] { return -1; });
  EXPECT_EQ(Failure(), "Error in calculating CPU types");
  EXPECT_EQ(Lines("(ProcLib::GetCPUIds). (rc="), 1U);

  const process_tree::HostTree host;
  SetProcessors([] { return 2; }, [] { return 2; });
  EXPECT_EQ(Failure(), "Error in calculating CPU types");
  EXPECT_EQ(Lines("Unable to open file (/proc/stat): (ProcLib::Initialize(file=/proc/stat): "
                  "fopen(/proc/stat) failed! errno: 2)"),
            1U);
  host.Write("/proc/cpuinfo", "processor\t: 0\nprocessor\t: 1\n");
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 0+0 0+0 0+0 0+0 0 0 []\n"
            "140 1 0 0+0 0+0 0+0 0+0 0 0 []\n");
  // Tried, and told, once for each processor.
  EXPECT_EQ(Lines("(CPUSourceUser::GetInterrupts). (rc=-1"), 2U);
  EXPECT_EQ(Lines("(ProcLib::BuildProcMap). (rc=-1"), 4U);
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10100), 2);
  ExpectLevels({{20, "(ProcLib::GetNumCPUs). (rc=-1)"},
                {20, "(ProcLib::GetCPUIds). (rc=0)"},
                {20, "(ProcLib::GetCPUTypes). (rc=0)"},
                {20, "Unable to open file (/proc/cpuinfo)"},
                {30, "Unable to open file (/proc/stat)"},
                {30, "Unable to open file (/proc/interrupts)"},
                {30, "(CPUSourceUser::GetInterrupts). (rc=-1"},
                {30, "(ProcLib::GetProcFp). (rc=0"},
                {30, "(ProcLib::BuildProcMap). (rc=-1"}});
  host.Write("/proc/stat", "cpu0 1\n");
  host.Write("/proc/interrupts", "NMI: none\n");
  Read();
  ExpectLevels(
      {{30, "An error occurred in a function (sscanf). (rc=1"},
       {30, "An error occurred in a function (ProcLib::GetProcMapValue). (rc=-1, arg1=cpu1"},
       {30, "(CPUSourceUser::GetTraps). (rc=-1"}});
}

TEST_F(CPUSourceTest, TakesAnyBytes) {
  SetProcessors([] { return 2; }, [] { return 2; });
  const std::string binary("\0\xff\x01processor\0model name\n\0\n", 24);
  const std::vector<std::string> texts{
      "",
      "\n",
      "processor",
      "processor\t:",
      "processor\nmodel name",
      "cpu0 99999999999999999999 -1 1 1 1\ncpu1 x\nNMI:\nNMI: 4\n",
      std::string(1 << 20, '7'),
      "1: " + std::string(1 << 20, '9') + "\n",
      std::string(1 << 20, ' ') + "processor",
      binary,
      std::string(3000, '\0'),
  };
  for (const std::string& text : texts) {
    const process_tree::HostTree host;
    for (const char* file : {"/proc/stat", "/proc/interrupts", "/proc/cpuinfo"}) {
      host.Write(file, text);
    }
    EXPECT_EQ(Read().size(), 2U) << text.substr(0, 40);
  }
}

}  // namespace
