#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/Golden.h"

namespace {

const std::filesystem::path kModernHost =
    std::filesystem::path(QMT_TEST_DIR) / "fixtures/modern-6.18";
constexpr std::time_t kModernStart = 1'700'000'000;

/// The agent of the profile `modern` on a host of kernel 6.18, at the first of two samples.
class ModernPIrecordTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    Os().getpagesize = [] { return 4096; };
    m_host.CopyFrom(kModernHost / "first");
    s_now = kModernStart;
    StartAgent();
    g_hostProfile = HostProfile::kModern;
  }
  void TakeSecondSample() const {
    m_host.CopyFrom(kModernHost / "second");
    m_host.Remove("/proc/412");
    s_now = kModernStart + 10;
  }
};

TEST_F(ModernPIrecordTest, ASecondScheduledRowIsTheOneWorkedOutByHand) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 0, .calcRates = 1});
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  TakeSecondSample();
  const recordPI row = Look<recordPI>(batch);
  ExpectGolden(&row, sizeof(row), kModernHost / "PI.tsv");
  EXPECT_EQ(Lines("overflow occurred"), 0U) << "the time of waiting stepped back";
  EXPECT_EQ(Lines("The host"), 0U) << "nothing is missing";
}

TEST_F(ModernPIrecordTest, ProcessesOfTheBatchsOwnWalkAreCounted) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  const recordPI alone = Look<recordPI>(batch);
  EXPECT_EQ(alone.processes, 5U);
  EXPECT_EQ(alone.users, 3U);
  // The folders have no stat, so a walk of the processes' own records has none of them.
  batch.Add("PD", '3', {.realtime = 1, .calcRates = 0});
  EXPECT_EQ(Look<recordPI>(batch).processes, 0U);
}

// The clock has been set since the start, and processors have come.
TEST_F(ModernPIrecordTest, BootTimeAndProcessorsAreThoseOfTheBatch) {
  m_host.Write("/proc/stat", "cpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\ncpu4 1\nbtime 1699999000\n");
  m_host.AddProcess({.pid = 900, .userTicks = 40'000, .name = "busy", .commandLine = "busy"});
  Batch overview;
  overview.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  Batch others;
  for (const auto& [record, category] : {std::pair{"CPUP", '4'}, {"PDI", '3'}, {"DEVS", '4'}}) {
    others.Add(record, static_cast<unsigned char>(category), {.realtime = 1, .calcRates = 1});
  }
  Answer(others);
  const auto processor = others.entries[0]->Rows<recordPI_CPUP>().at(0);
  EXPECT_STREQ(processor.upTime.c_str(), Look<recordPI>(overview).systemUpTime.c_str());
  EXPECT_EQ(processor.bootTime, 1'699'999'000);
  EXPECT_EQ(others.entries[1]->Rows<recordPD_PDI>().at(0).cpuPercent, 40.0F / 5);
  EXPECT_EQ(others.entries[2]->Rows<recordPI_DEVS>().at(0).interval, 1000U);
}

TEST_F(ModernPIrecordTest, LooksCompareWithTheirOwnLastAnswer) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  const recordPI alone = Look<recordPI>(batch);
  EXPECT_EQ(alone.processesStarted, 0U);
  EXPECT_EQ(alone.runQueue, 3.0F);
  TakeSecondSample();
  const recordPI second = Look<recordPI>(batch);
  EXPECT_EQ(second.processesStarted, 37U);
  EXPECT_EQ(second.processesEnded, 35U);
  EXPECT_EQ(second.waitPercent, 0.0F);
  EXPECT_FLOAT_EQ(second.idlePercent, 100 * 1211.0F / 1942);
  // More processes than were made, and a run queue that counts nobody.
  m_host.Write("/proc/stat", "btime 1699500000\nprocesses 272310\nprocs_running 0\n");
  m_host.Write("/proc/600/status", "Uid:\t0\t0\t0\t0\n");
  m_host.Write("/proc/601/status", "Uid:\t0\t0\t0\t0\n");
  const recordPI third = Look<recordPI>(batch);
  EXPECT_EQ(third.processesStarted, 1U);
  EXPECT_EQ(third.processesEnded, 0U);
  EXPECT_EQ(third.runQueue, 0.0F);
}

TEST_F(ModernPIrecordTest, IntervalsHoldNoFallOfACounterAndNoReturn) {
  const struct {
    std::string reads, writes, idle, switches, differences;
  } samples[] = {{"1000", "500", "1000", "4294967290", ""},
                 // The second disk has gone; the counter has passed 32 bits.
                 {"1010", "505", "1100", "4294967306", "0 0 0 16 1+0"},
                 // Neither file can be read.
                 {"", "", "", "", "0 0 0 0 0+0"},
                 {"1030", "512", "1400", "4294967406", "20 7 27 100 3+0"}};
  m_host.Write("/sys/block/sda/queue/rotational", "0\n");
  Batch batch;
  batch.Add("PI", '4', {.realtime = 0, .calcRates = 1});
  s_now = kModernStart;
  for (const auto& sample : samples) {
    const bool isFirst = s_now == kModernStart;
    const bool isRead = !sample.reads.empty();
    const std::string disks = "254 0 vda " + sample.reads + " 0 80 9 " + sample.writes +
                              " 0 80 9 0 9 9\n" +
                              (isFirst ? "8 0 sda 5000 0 80 9 4000 0 80 9 0 9 9\n" : "");
    const std::string stat = "cpu0 100 0 100 " + sample.idle + "\nctxt " + sample.switches + "\n";
    m_host.Write("/proc/diskstats", isRead ? disks : "");
    m_host.Write("/proc/stat", isRead ? stat : "");
    if (isFirst) {
      Answer(batch);
    } else {
      const auto row = Look<recordPI>(batch);
      const tagUTIME idle = row.totalIdleTime;
      std::ostringstream text;
      text << row.physicalReads << ' ' << row.physicalWrites << ' ' << row.totalPageOps << ' '
           << row.contextSwitches << ' ' << idle.seconds << '+' << idle.microseconds;
      EXPECT_EQ(text.str(), sample.differences);
    }
    s_now += 10;
  }
}

TEST_F(ModernPIrecordTest, PercentagesSinceBootTakeAllBitsOfTheSums) {
  // 6,000,000,000 seconds of idle, more than a word of 32 bits holds, and a third of it in user
  // mode.
  const std::string processor = " 66666666600 0 0 200000000000 0 0 0 0 0 0\n";
  m_host.Write("/sys/devices/system/cpu/present", "0-2\n");
  m_host.Write("/sys/devices/system/cpu/online", "0-2\n");
  m_host.Write("/proc/stat",
               "cpu0" + processor + "cpu1" + processor + "cpu2" + processor + "btime 1699500000\n");
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  const recordPI row = Look<recordPI>(batch);
  EXPECT_NEAR(row.idlePercent, 75.0, 1e-3);
  EXPECT_NEAR(row.userCpuPercent, 25.0, 1e-3);
  EXPECT_NEAR(row.cpuPercent, 25.0, 1e-3);
}

TEST_F(ModernPIrecordTest, AHostThatIsNotThereHasNoRowAndMissingFilesAreToldOnce) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  m_host.Remove("/proc/vmstat");
  m_host.Remove("/proc/meminfo");
  m_host.Remove("/proc/net");
  for (int time = 0; time < 2; ++time) {
    const recordPI row = Look<recordPI>(batch);
    EXPECT_EQ(row.faults + row.totalPktsIn + row.nfsClientTotalOps, 0U);
    EXPECT_EQ(row.allocMemPercent, 0.0F);
    EXPECT_EQ(row.contextSwitches, 14'786'161U);
  }
  for (const std::string file : {"vmstat", "meminfo", "net/snmp", "net/snmp6", "net/rpc/nfs"}) {
    EXPECT_EQ(Lines("so its figures are 0. (/proc/" + file + ")"), 1U) << file;
  }
  EXPECT_EQ(Lines("Error occured in"), 0U);
  m_host.Remove("/proc");
  Answer(batch);
  EXPECT_TRUE(batch.entries[0]->event.m_records.empty());
  EXPECT_EQ(Lines("There is no host to be read"), 2U) << "by the source once and by the record";
}

TEST_F(ModernPIrecordTest, TheManualNamesTheFieldsWithoutASource) {
  std::set<std::string> told;
  std::ifstream manual(std::filesystem::path(QMT_TEST_DIR) / "../docs/host-profile.md");
  bool isOfPI = false;
  for (std::string line; std::getline(manual, line);) {
    isOfPI = line.starts_with("## ") ? line == "## PI" : isOfPI;
    const std::size_t end = line.find(" | - | - |");
    if (isOfPI && line.starts_with("| ") && end != std::string::npos) {
      told.insert(line.substr(2, end - 2));
    }
  }
  std::set<std::string> without;
  for (const FieldLayout& field : RecordTraits<recordPI>::Layout(HostProfile::kModern).fields) {
    if (!field.hasSource) {
      without.insert(field.label);
    }
  }
  EXPECT_EQ(told, without);
}

}  // namespace
