#include "collect/modern/cpu/CpuSource.h"

#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/cpu/Interrupts.h"
#include "tests/collect/CpuRows.h"

namespace {

class ModernCpuSourceTest : public CollectFixture {
 protected:
  static std::vector<CPU> Read() { return ReadAll<ModernCpuSource, CPU>(); }
  static std::string Failure() { return FailureOf<ModernCpuSource, CPU>(); }
};

TEST_F(ModernCpuSourceTest, ReadsTheProcessorsOfEachHost) {
  // Guests are users already, stolen time is nobody's; the second's interrupts went round.
  SetHostRoot(FixturePath("vm-offline"));
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 10+500000 3+650000 200+0 2+0 1031 0 [Example(R) Virtual processor : 7]\n"
            "140 1 0 21+0 4+400000 300+0 3+0 2029 0 [Example(R) Virtual processor : 7]\n"
            "140 2 1 0+0 0+0 0+0 0+0 0 0 []\n"
            "140 3 0 21+500000 5+530000 400+0 2+0 3055 0 [Example(R) Virtual processor : 7]\n");
  SetHostRoot(FixturePath("arm64"));
  EXPECT_EQ(DumpCpus(Read()),
            "140 0 0 10+0 4+500000 250+0 0+500000 500362 0 [ARM Neoverse-N1]\n"
            "140 1 0 20+0 5+500000 250+0 0+500000 600460 0 [0x41 part 0xfff]\n");
  EXPECT_EQ(Lines("The host"), 0U);
}

TEST_F(ModernCpuSourceTest, ReadsFiveHundredProcessors) {
  constexpr int kCount = 512;
  const process_tree::HostTree host;
  std::string stat = "cpu  1 1 1 1 1 1 1 1 0 0\n";
  std::string info;
  std::string head = "    ";
  std::string disk = "  24:";
  std::string timer = "LOC:";
  for (int cpu = 0; cpu < kCount; ++cpu) {
    if (cpu == 500) {
      continue;
    }
    const std::string number = std::to_string(cpu);
    stat.append("cpu").append(number).append(" ").append(number).append("00 0 0 500 0 0 0 0 0 0\n");
    info.append("processor\t: ").append(number).append("\nmodel name\t: M").append(number);
    info.append("\n\n");
    head.append("       CPU").append(number);
    disk.append("          ").append(number);
    timer.append(" 2000000000");
  }
  host.Write("/proc/stat", stat + "intr 1 2 3\ncpu1 9 9 9 9 9 9 9 9 9 9\n");
  host.Write("/proc/cpuinfo", info);
  host.Write("/proc/interrupts", head + "\n" + disk + "  PCI-MSI 1-edge nvme0q1\n" + timer +
                                     "  Local timer interrupts\nERR:  77\n");
  host.Write("/sys/devices/system/cpu/present", "0-511\n");
  host.Write("/sys/devices/system/cpu/online", "0-499,501-511\n");
  ASSERT_GT(disk.size(), 5U << 10U);
  const std::vector<CPU> rows = Read();
  ASSERT_EQ(rows.size(), kCount);
  for (std::uint32_t cpu = 0; cpu < kCount; ++cpu) {
    SCOPED_TRACE(cpu);
    const bool isOff = cpu == 500;
    EXPECT_EQ(rows[cpu].GetCpuId(), cpu);
    EXPECT_EQ(rows[cpu].GetOnline(), isOff ? 1U : 0U);
    EXPECT_EQ(rows[cpu].GetUserTime().seconds, static_cast<std::int32_t>(isOff ? 0U : cpu));
    EXPECT_EQ(rows[cpu].GetIdleTime().seconds, isOff ? 0 : 5);
    EXPECT_EQ(rows[cpu].GetInterrupts(), isOff ? 0U : 2000000000U + cpu);
    EXPECT_EQ(rows[cpu].GetType(), isOff ? std::string() : "M" + std::to_string(cpu));
  }
}

TEST_F(ModernCpuSourceTest, TellsOnceWhatTheHostLacks) {
  // A host that has it all: nothing counts as told before.
  SetHostRoot(FixturePath("vm-offline"));
  EXPECT_EQ(Read().size(), 4U);
  const process_tree::HostTree host;
  EXPECT_EQ(Failure(), "Error in calculating number of CPUs");
  // Without lists the lines of processors make them; a short line has what it has.
  host.Write("/proc/stat", "cpu  1 1 1 1\ncpu0 100 20 30 400\ncpu7 x\ncpu99999 1 1\ncpu 5\n");
  const std::string rows =
      "140 0 0 1+200000 0+300000 4+0 0+0 0 0 []\n140 7 0 0+0 0+0 0+0 0+0 0 0 []\n";
  EXPECT_EQ(DumpCpus(Read()), rows);
  EXPECT_EQ(DumpCpus(Read()), rows);
  for (const char* part :
       {"/sys/devices/system/cpu/present", "/sys/devices/system/cpu/online", "/proc/interrupts",
        "/proc/cpuinfo", "/proc/stat: all times of each processor"}) {
    EXPECT_EQ(Lines(std::string("(") + part + ")"), 1U) << part;
    EXPECT_EQ(Level(std::string("(") + part + ")"), 20) << part;
  }
  // Lists that are none; a processor on line that has no figures; one that has but is off.
  host.Write("/sys/devices/system/cpu/present", "3-0\n");
  host.Write("/sys/devices/system/cpu/online", "0-7-9\n");
  host.Write("/proc/interrupts", "NMI: 5\n");
  EXPECT_EQ(DumpCpus(Read()), rows);
  EXPECT_EQ(Lines("list of processors"), 2U);
  EXPECT_EQ(Lines("(/proc/interrupts: a column of each processor)"), 1U);
  host.Write("/sys/devices/system/cpu/present", "0-1\n");
  host.Write("/sys/devices/system/cpu/online", "1\n");
  EXPECT_EQ(DumpCpus(Read()), "140 0 1 0+0 0+0 0+0 0+0 0 0 []\n140 1 0 0+0 0+0 0+0 0+0 0 0 []\n");
  EXPECT_EQ(Lines("a line of each processor that is on line"), 1U);

  host.Write("/proc/stat", std::string((4U << 20U) + 1, '7'));
  EXPECT_EQ(Failure(), "/proc/stat has more than 4194304 bytes");
}

TEST_F(ModernCpuSourceTest, CutsANameToTheRoomOfTheRow) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "cpu0 1 1 1 1 1 1 1 1 0 0\n");
  host.Write("/proc/cpuinfo",
             "processor\t: 0\nmodel name\t: a name of more than forty characters, cut\n");
  ASSERT_EQ(Read().size(), 1U);
  EXPECT_STREQ(Read().front().GetType(), "a name of more than forty characters, cu");
}

TEST_F(ModernCpuSourceTest, TakesAnyBytes) {
  const std::string binary("\0\xff\x01processor\0model name\n\0\ncpu0", 29);
  const std::vector<std::string> texts{"",
                                       "\n",
                                       "cpu",
                                       "cpu0",
                                       "cpu-1 -1",
                                       "cpu0 99999999999999999999 1",
                                       "CPU0 CPU0\n1:1 2\n 2: 3",
                                       "CPU4294967295 CPU8192 CPU8191\n1: 1 2 3\n",
                                       "processor:4294967295\nCPU part:0x\nCPU part:",
                                       std::string(1U << 20U, '7'),
                                       "CPU0 CPU1\n1:" + std::string(1U << 20U, ' '),
                                       binary,
                                       "0-8191," + std::string(1U << 20U, ',')};
  for (const std::string& text : texts) {
    const process_tree::HostTree host;
    for (const char* file : {"/proc/interrupts", "/proc/cpuinfo", "/sys/devices/system/cpu/online",
                             "/sys/devices/system/cpu/present"}) {
      host.Write(file, text);
    }
    host.Write("/proc/stat", text + "\n");
    (void)Failure();
    host.Write("/sys/devices/system/cpu/present", "0-1,8191");
    EXPECT_EQ(Read().size(), 3U) << text.substr(0, 40);
  }
}

TEST(CpuListTest, TakesRangesAndRefusesTheRest) {
  struct Case {
    const char* text;
    bool isList;
    std::vector<std::size_t> processors;
  };
  const Case cases[] = {{"0\n", true, {0}},
                        {"0-3,5,8-9\n", true, {0, 1, 2, 3, 5, 8, 9}},
                        {"2-4,3-5,3", true, {2, 3, 4, 5}},
                        {"\n", true, {}},
                        {"8191\n", true, {8191}},
                        {"1,8192\n", false, {1}},
                        {"1,3-2\n", false, {1}},
                        {"1-\n", false, {}},
                        {"1,\n", false, {1}},
                        {"-1\n", false, {}},
                        {"1 2\n", false, {1}},
                        {"0-18446744073709551617", false, {}}};
  for (const Case& test : cases) {
    CpuSet found;
    EXPECT_EQ(ParseCpuList(test.text, found), test.isList) << test.text;
    CpuSet expected;
    for (const std::size_t processor : test.processors) {
      expected.set(processor);
    }
    EXPECT_EQ(found, expected) << test.text;
  }
}

TEST(CpuinfoTest, NamesEachKindOfProcessor) {
  struct Case {
    const char* block;
    const char* type;
  };
  const Case cases[] = {
      {"processor\t: 0\ncpu family\t: 6\nmodel name\t: A processor : 5\n", "A processor : 5"},
      {"processor\t: 0\nmodel name\t: a name of more than forty characters, whole\n",
       "a name of more than forty characters, whole"},
      {"processor\t: 0\nCPU part\t: 0x0af\nCPU implementer\t: 0x43\n", "Cavium ThunderX2"},
      {"processor\t: 0\nmodel name\t: ARMv7\nCPU implementer\t: 0x41\nCPU part\t: 0xd0c\n",
       "ARMv7"},
      {"processor\t: 0\nCPU implementer\t: 0x6d\nCPU part\t: 0x7\n", "0x6d part 0x007"},
      {"processor\t: 0\nCPU implementer\t: 0x41\n", ""},
      {"processor\t: 0\ncpu\t\t: POWER9, altivec supported\nclock\t\t: 2500MHz\n",
       "POWER9, altivec supported"},
      {"processor\t: 0\nhart\t: 0\nuarch\t\t: sifive,u74-mc\nisa\t\t: rv64imafdc\n",
       "sifive,u74-mc"},
  };
  for (const Case& test : cases) {
    CpuinfoBlock block;
    std::istringstream lines(test.block);
    for (std::string line; std::getline(lines, line);) {
      TakeCpuinfoLine(line, block);
    }
    NameByPart(block);
    EXPECT_STREQ(block.type.data(), test.type) << test.block;
    EXPECT_EQ(block.processor, 0U) << test.block;
  }
}

TEST(InterruptsTest, CountsNoTotalOnAHostOfOneProcessor) {
  std::vector<std::uint64_t> sums(1);
  std::vector<std::uint64_t> counts(1);
  for (const char* line : {"  0:  40  IO-APIC 2-edge timer", "LOC:  2  Local timer interrupts",
                           "ERR:  100", "MIS:  100", "Err:  100", "100", "TLB:", "RES: x"}) {
    AddInterruptLine(line, sums, counts);
  }
  EXPECT_EQ(sums[0], 42U);
}

}  // namespace
