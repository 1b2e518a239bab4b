#include "process/ApplicationMonitor.h"
#include "process/ProcessRules.h"
#include "tests/process/ProcessRecordFixture.h"

// The records of processes under the profile `modern`. Figures are worked out by hand.

namespace {

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30U;
constexpr std::int32_t kStartSecond = 1'699'999'000;
constexpr double kUnlimited = 18446744073709551615.0;

class ModernProcessTest : public ProcessRecordFixture {
 protected:
  void SetUp() override {
    ProcessRecordFixture::SetUp();
    g_hostProfile = HostProfile::kModern;
  }
  /// A process that was started at kStartSecond.
  Process& Add(std::int32_t pid, std::uint64_t startTicks, char state = 'S') {
    Process& process = AddToList(pid, kStartSecond);
    process.modern.state = state;
    process.modern.startTicks = startTicks;
    return process;
  }
  void NewList() {
    NewBatch();
    m_collector.GetProcess()->clear();
  }
};

TEST_F(ModernProcessTest, ARowOfPDByteForByte) {
  Process& process = Add(4242, 900'000, 'D');
  process.x_proc::name = {'a', ' ', 'b', ' ', '(', 'c', ')'};
  process.ppid = 1;
  process.euid = process.ruid = process.egid = process.rgid = 33;
  process.startTime.nanoseconds = 250'000'000;
  process.userTime = {10, 0};
  process.contextSwitches = 77;
  process.reads = 2997;
  process.writes = 999;
  process.blockOps = 3996;
  process.ioKbytes = 1'073'741'824;  // the low 32 bits of what is below
  process.stackKB = 136;
  process.codeKB = 900;
  process.dataKB = 6'000'000;
  process.sharedKB = 30'000;
  process.modern.ioBytes = 5120 * kGiB;
  process.modern.kernelFlags = 0x00400140;
  process.modern.policy = 3;
  process.modern.residentKB = 6 * kGiB >> 10U;
  process.modern.virtualKB = 5'000'000'000;
  process.modern.totalKB = 8'388'608;
  process.modern.heapKB = 6'000'000;
  process.modern.sharedLibKB = 12'000;
  m_collector.GetProcessLimits()->assign(1, {.dataSize = {1, kUnlimited},
                                             .fileSize = {2, 3},
                                             .openFiles = {1024, 524'288},
                                             .virtualMemSize = {4, 5},
                                             .stackSize = {8'388'608, 6},
                                             .coreSize = {0, 7},
                                             .cpuTime = {kUnlimited, 8}});
  Asker look("PD", '3', {.realtime = 1, .calcRates = 1});
  ASSERT_EQ(m_builder.BuildPD(&look.event, &look.request), nullptr);

  ExpectTable(RowOf<recordPD>(look, 4242), "modern-processes/PD-look.tsv");

  Add(4243, 1).startTime.seconds = 1'700'000'005;
  look.NextAnswer();
  ASSERT_EQ(m_builder.BuildPD(&look.event, &look.request), nullptr);
  const recordPD future = RowOf<recordPD>(look, 4243);
  EXPECT_EQ(static_cast<tagUTIME>(future.elapsedTime), tagUTIME{});
  EXPECT_EQ(RowOf<recordPD>(look, 4242).openFilesLimit, 0.0) << "limits of another list";
}

TEST_F(ModernProcessTest, StatesAndClassesAndFlagsAsWords) {
  const std::string letters = "RSDIZTtXxPW";
  const char* const states[] = {"RUN",  "SLEEP", "DISK", "IDLE",  "ZOMBIE", "STOP",
                                "STOP", "DEAD",  "DEAD", "OTHER", "OTHER"};
  const char* const classes[] = {"TS", "FF", "RR", "B", "ISO", "IDL", "DLN", "EXT", "?", "?", "?"};
  for (std::size_t i = 0; i < letters.size(); ++i) {
    Process& process = Add(static_cast<std::int32_t>(i) + 1, 0, letters[i]);
    process.modern.policy = static_cast<std::uint32_t>(i);
    process.modern.kernelFlags = i == 0 ? 0xFFFFFFFF : i == 1 ? 0x04208060 : 0;
  }
  Asker look("PD", '3', {.realtime = 1, .calcRates = 0});
  ASSERT_EQ(m_builder.BuildPD(&look.event, &look.request), nullptr);
  const auto rows = look.Rows<recordPD>();
  ASSERT_EQ(rows.size(), letters.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].state.view(), states[i]) << letters[i];
    EXPECT_EQ(rows[i].schedulerClass.view(), classes[i]) << i;
  }
  EXPECT_EQ(rows[0].flags.view(),
            "PF_IDLE,PF_EXITING,PF_WQ_WORKER,PF_FORKNOEXEC,PF_MCE_PROCESS,PF_SUPERPRIV,"
            "PF_DUMPCORE,PF_SIGNALED,PF_MEMALLOC")
      << "whole words, as far as the field goes";
  EXPECT_EQ(rows[1].flags.view(),
            "PF_WQ_WORKER,PF_FORKNOEXEC,PF_NOFREEZE,PF_KTHREAD,PF_NO_SETAFFINITY");
  EXPECT_TRUE(rows[2].flags.view().empty());
}

TEST_F(ModernProcessTest, ARowWithoutAStartTimeHasNoRatesSinceIt) {
  const auto take = [&](std::uint32_t reads) {
    NewList();
    Process& process = Add(7, 900'000);
    process.startTime = {};
    process.userTime = {static_cast<std::int32_t>(reads) / 10, 0};
    process.reads = process.blockOps = reads;
    process.modern.ioBytes = std::uint64_t{reads} * 1024;
    process.modern.residentKB = 100;
  };
  for (const int realtime : {0, 1}) {
    SCOPED_TRACE(realtime);
    s_now = 1'700'000'000;
    RecordBuilder builder{nullptr, &m_collector, "pipe"};
    ASSERT_EQ(builder.Init(), nullptr);
    Asker pd("PD", '3', {.realtime = realtime, .calcRates = 1});
    Asker look("PD", '3', {.realtime = realtime, .calcRates = 0});
    Asker pdi("PDI", '3', {.realtime = realtime, .calcRates = 1});
    Asker pgm("PGM", '3', {.realtime = realtime, .calcRates = 0});
    Asker wgrp("WGRP", '4', {.realtime = realtime, .calcRates = 1});
    for (const bool isFirst : {true, false}) {
      take(isFirst ? 100 : 200);
      for (Asker* asker : {&pd, &look, &pdi, &pgm, &wgrp}) {
        asker->NextAnswer();
      }
      ASSERT_EQ(builder.BuildPD(&pd.event, &pd.request), nullptr);
      ASSERT_EQ(builder.BuildPD(&look.event, &look.request), nullptr);
      ASSERT_EQ(builder.BuildPD_PDI(&pdi.event, &pdi.request), nullptr);
      ASSERT_EQ(builder.BuildPD_PGM(&pgm.event, &pgm.request), nullptr);
      ASSERT_EQ(builder.Build_WGRP(&wgrp.event, &wgrp.request), nullptr);
      // Ten more reads and one second of CPU a second, from the second time on.
      const float known = isFirst ? 0.0F : 1.0F;
      const recordPD whole = RowOf<recordPD>(pd, 7);
      EXPECT_EQ(static_cast<tagUTIME>(whole.elapsedTime), tagUTIME{});
      EXPECT_EQ(whole.startTime, 0);
      EXPECT_EQ(whole.cpuPercentEach + whole.readsPerSec + whole.throughputPerSec, 0.0F);
      EXPECT_EQ(RowOf<recordPD>(look, 7).cpuPercentEach, known * 100);
      const recordPD_PDI row = RowOf<recordPD_PDI>(pdi, 7);
      EXPECT_EQ(row.interval, isFirst ? 0U : 10U);
      EXPECT_EQ(row.cpuPercentEach, known * 100);
      EXPECT_EQ(row.readsPerSec, known * 10);
      EXPECT_EQ(row.throughputPerSec, known * 10);
      EXPECT_EQ(row.reads, realtime != 0 && !isFirst ? 200U : 100U);
      const recordPD_PGM program = pgm.Rows<recordPD_PGM>().at(0);
      EXPECT_EQ(program.readsPerSec, realtime != 0 ? 0 : known * 10);
      EXPECT_EQ(program.reads, realtime != 0 && !isFirst ? 200U : 100U);
      if (!isFirst) {
        EXPECT_EQ(wgrp.Rows<recordPI_WGRP>().at(0).realMemKbytes, 100U);
      }
      s_now += 10;
    }
  }
}

struct SecondLook {
  const char* name;
  std::int32_t startTime;
  std::uint64_t startTicks;
  std::uint32_t oldReads, reads;
  std::uint64_t oldBytes, bytes;
  // What is expected ten seconds on, over that time or since the start, 1,010 seconds ago.
  std::uint32_t interval, readsDelta;
  float kbytes;
  float cpuPercent;  ///< of 12 seconds now, 10 before
  bool wasUnknown = false, isUnknown = false;
};
const SecondLook kSecondLooks[] = {
    {"3 Kbytes more than 16 Tbytes", kStartSecond, 900'000, 5, 25, 16384 * kGiB,
     16384 * kGiB + 3072, 10, 20, 3.0F, 20.0F},
    {"the clock was set", kStartSecond + 1, 900'000, 5, 25, 1024, 4096, 10, 20, 3.0F, 20.0F},
    {"a number used again within the second", kStartSecond, 900'001, 5, 1010, 1024, 1010 * 1024,
     1010, 1010, 1010.0F, 1200.0F / 1010},
    {"io that may not be read any more", kStartSecond, 900'000, 0xFFFFFFF0, 0, 4096, 0, 10, 0, 0.0F,
     20.0F, false, true},
    {"io that may be read again", kStartSecond, 900'000, 0, 1000, 0, 4096, 10, 0, 0.0F, 20.0F,
     true},
    {"a number used again by one whose io may be read", kStartSecond, 900'001, 0, 1010, 0,
     1010 * 1024, 1010, 1010, 1010.0F, 1200.0F / 1010, true},
    {"a counter that wrapped", kStartSecond, 900'000, 0xFFFFFFF0, 24, 1024, 4096, 10, 40, 3.0F,
     20.0F},
};

TEST_F(ModernProcessTest, TheSameProcessInTwoLooks) {
  for (const int realtime : {0, 1}) {
    for (const SecondLook& one : kSecondLooks) {
      SCOPED_TRACE(one.name);
      SCOPED_TRACE(realtime);
      s_now = 1'700'000'000;
      RecordBuilder builder{nullptr, &m_collector, "pipe"};
      ASSERT_EQ(builder.Init(), nullptr);
      Asker pdi("PDI", '3', {.realtime = realtime, .calcRates = 1});
      Asker pd("PD", '3', {.realtime = realtime, .calcRates = 0});
      const auto look = [&](const Process& figures) {
        NewList();
        m_collector.GetProcess()->push_back(figures);
        pdi.NextAnswer();
        pd.NextAnswer();
        EXPECT_EQ(builder.BuildPD_PDI(&pdi.event, &pdi.request), nullptr);
        EXPECT_EQ(builder.BuildPD(&pd.event, &pd.request), nullptr);
        return RowOf<recordPD_PDI>(pdi, 7);
      };
      NewList();
      Process process = Add(7, 900'000);
      process.x_proc::name = {'<', 'd', 'e', 'f', 'u', 'n', 'c', 't', '>'};
      process.userTime = {10, 0};
      process.reads = one.oldReads;
      process.modern.ioBytes = one.oldBytes;
      process.modern.isIoUnknown = one.wasUnknown;
      (void)look(process);
      s_now += 10;
      process.startTime.seconds = one.startTime;
      process.modern.startTicks = one.startTicks;
      process.userTime = {12, 0};
      process.reads = one.reads;
      process.modern.ioBytes = one.bytes;
      process.modern.isIoUnknown = one.isUnknown;
      const recordPD_PDI row = look(process);
      const auto seconds = static_cast<float>(one.interval);
      EXPECT_EQ(row.interval, one.interval);
      EXPECT_FLOAT_EQ(row.readsPerSec, static_cast<float>(one.readsDelta) / seconds);
      EXPECT_FLOAT_EQ(row.throughputPerSec, one.kbytes / seconds);
      EXPECT_FLOAT_EQ(row.cpuPercentEach, one.cpuPercent);
      EXPECT_EQ(row.reads, realtime == 0 ? one.readsDelta : one.reads);
      EXPECT_FLOAT_EQ(row.totalIoKbytes,
                      realtime == 0 ? one.kbytes : static_cast<float>(one.bytes >> 10U));
      EXPECT_FLOAT_EQ(RowOf<recordPD>(pd, 7).cpuPercentEach, one.cpuPercent);
    }
  }
}

TEST_F(ModernProcessTest, TheSummaryOfTwoLooks) {
  const auto takeFirst = [&] {
    NewList();
    const std::string letters = "RSDIZXTtP";
    for (std::size_t i = 0; i < letters.size(); ++i) {
      Process& process = Add(static_cast<std::int32_t>(i) + 1, 100 + i, letters[i]);
      process.modern.swapKB = i < 2 ? 4 : 0;
    }
    std::vector<Process>& list = *m_collector.GetProcess();
    list[2].modern.kernelFlags = 0x00220000;  // kswapd0
    list[3].modern.kernelFlags = 0x00200000;
    list[8].modern.kernelFlags = 0x00200000;
    list[0].tty = list[1].tty = 0x8801;  // no device file has either
    list[5].tty = list[6].tty = 0x8802;
    list[0].euid = list[1].euid = 1000;
    list[7].euid = 33;  // has no terminal
    list[0].reads = list[0].writes = 9;
    list[1].modern.isIoUnknown = true;
  };
  for (const int realtime : {0, 1}) {
    SCOPED_TRACE(realtime);
    Asker asker("PDS", '3', {.realtime = realtime, .calcRates = 0});
    const auto rowOf = [&] {
      asker.NextAnswer();
      EXPECT_EQ(m_builder.BuildPD_PDS(&asker.event, &asker.request), nullptr);
      return asker.Rows<recordPD_PDS>().at(0);
    };
    takeFirst();
    ExpectTable(rowOf(), "modern-processes/PDS-first-look.tsv");

    takeFirst();
    std::vector<Process>& list = *m_collector.GetProcess();
    list[2].contextSwitches = 1;  // kswapd0
    list[7].contextSwitches = 1;
    // What became unknown or known is no activity.
    list[0].reads = list[0].writes = 0;
    std::swap(list[0].modern.isIoUnknown, list[1].modern.isIoUnknown);
    list[1].reads = list[1].writes = 9;
    list[6].modern.startTicks = 9000;  // another process of that number
    list[6].tty = kNoTerminal;
    list.erase(list.begin() + 4, list.begin() + 6);
    Add(20, 9000);
    ExpectTable(rowOf(), "modern-processes/PDS-second-look.tsv");
  }
}

TEST_F(ModernProcessTest, SumsOverProcesses) {
  Asker users("USER", '3', {.realtime = 0, .calcRates = 0});
  Asker programs("PGM", '3', {.realtime = 0, .calcRates = 0});
  Asker groups("WGRP", '4', {.realtime = 0, .calcRates = 1});
  const auto take = [&](std::uint64_t startTicksOfTheSecond, std::uint32_t growth) {
    NewList();
    // Its io can be read at the second look only, so nobody knows what it did since the first.
    Process& hidden = Add(3, 50);
    hidden.x_proc::name = {'d', 'b'};
    if (growth == 0) {
      hidden.modern.isIoUnknown = true;
    } else {
      hidden.reads = hidden.blockOps = 5000;
      hidden.ioKbytes = 5000;
      hidden.modern.ioBytes = 5000 * 1024;
    }
    for (const std::int32_t pid : {1, 2}) {
      Process& process = Add(pid, pid == 2 ? startTicksOfTheSecond : 50);
      process.x_proc::name = {'d', 'b'};
      process.userTime = {1, 0};
      process.contextSwitches = 100 + growth;
      process.reads = 990 + growth;
      process.blockOps = process.reads;
      process.modern.ioBytes = std::uint64_t{process.reads} * 4096;
      process.ioKbytes = process.reads * 4;
      process.modern.residentKB = 6'291'456;  // 6 Gbytes
      process.modern.virtualKB = 2'500'000'000;
    }
    for (Asker* asker : {&users, &programs, &groups}) {
      asker->NextAnswer();
    }
    EXPECT_EQ(m_builder.BuildPD_USER(&users.event, &users.request), nullptr);
    EXPECT_EQ(m_builder.BuildPD_PGM(&programs.event, &programs.request), nullptr);
    EXPECT_EQ(m_builder.Build_WGRP(&groups.event, &groups.request), nullptr);
  };
  take(60, 0);
  s_now += 10;
  take(61, 20);  // the first has done 20 more, the second is another one, of 1,010 seconds
  const recordPD_PGM program = programs.Rows<recordPD_PGM>().at(0);
  const recordPD_USER user = users.Rows<recordPD_USER>().at(0);
  const recordPI_WGRP group = groups.Rows<recordPI_WGRP>().at(0);
  EXPECT_EQ(program.processCount, 3U);
  EXPECT_EQ(program.contextSwitches, 20U + 120U);
  EXPECT_EQ(program.reads, 20U + 1010U);
  EXPECT_EQ(program.totalIoOps, 1030U);
  EXPECT_EQ(program.totalIoKbytes, 4120U);
  EXPECT_FLOAT_EQ(program.avgIoKbytes, 4.0F);
  EXPECT_FLOAT_EQ(program.readsPerSec, 2.0F + 1.0F);
  EXPECT_FLOAT_EQ(program.totalIoOpsPerSec, 3.0F);
  EXPECT_FLOAT_EQ(program.throughputPerSec, 12.0F);
  EXPECT_EQ(program.realMemKbytes, 12'582'912U);
  EXPECT_EQ(program.virtualMemKbytes, 4'294'967'295U);
  EXPECT_FLOAT_EQ(user.readsPerSec, 3.0F);
  EXPECT_FLOAT_EQ(user.virtualMemKbytes, 5e9F);
  EXPECT_EQ(group.reads, 1030U);
  EXPECT_EQ(group.totalIoKbytes, 4120U);
  EXPECT_EQ(static_cast<tagUTIME>(group.userCpu), (tagUTIME{1, 0})) << "of the other one";
  EXPECT_EQ(group.realMemKbytes, 12'582'912U);
  EXPECT_EQ(group.virtualMemKbytes, 4'294'967'295U);
}

TEST_F(ModernProcessTest, AnApplicationMayHaveBlanksInItsName) {
  ApplicationMonitor applications;
  ASSERT_EQ(applications.ReadText("A\tx y\nP\t1\t1\t1\ta b (c)\nP\t1\t1\t1\ta b*)\n"), 1);
  m_builder.SetApplications(&applications);
  for (const char* name : {"a b (c)", "a"}) {
    Process& process = Add(5, 0);
    std::string_view(name).copy(process.x_proc::name.data(), 255);
  }
  Asker look("APP", '3', {.realtime = 1, .calcRates = 0});
  ASSERT_EQ(m_builder.BuildPD_APP(&look.event, &look.request), nullptr);
  const recordPD_APP row = look.Rows<recordPD_APP>().at(0);
  EXPECT_EQ(row.applicationStatus.view(), "NORMAL");
  EXPECT_EQ(row.monitor1Count, 1U);
  EXPECT_EQ(row.monitor2Count, 1U);
  m_builder.SetApplications(nullptr);
}

}  // namespace
