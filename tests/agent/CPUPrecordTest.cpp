#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/Golden.h"

namespace {

/// A host of two processors, and the agent on it.
class CPUPrecordTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    Write("cpuinfo",
          "processor\t: 0\nmodel name\t: Example CPU A\n\n"
          "processor\t: 1\nmodel name\t: Example CPU B\n\n");
    SetSample(1'700'000'000, "100 20 30 400 5 6 7 8 0 0", "50 0 50 900 0 0 0 0 0 0", 1000, 10);
    StartAgent();
  }

  void Write(const std::string& name, const std::string& text) const {
    m_host.Write("/proc/" + name, text);
  }
  void SetSample(std::time_t now, const std::string& cpu0, const std::string& cpu1, int interrupts0,
                 int interrupts1) const {
    s_now = now;
    Write("stat", "cpu  1 2 3 4 5 6 7 8 0 0\ncpu0 " + cpu0 + "\ncpu1 " + cpu1 +
                      "\nintr 5\nctxt 7\nbtime 1699990000\n");
    Write("interrupts", "            CPU0       CPU1\n   1:       " + std::to_string(interrupts0) +
                            "         " + std::to_string(interrupts1) +
                            "   IO-APIC   1-edge      i8042\nNMI:          0          0\n");
  }
};

void ExpectRows(const std::vector<recordPI_CPUP>& rows, const char* table) {
  ExpectGolden(rows.data(), rows.size() * sizeof(recordPI_CPUP),
               std::filesystem::path(QMT_TEST_DIR) / "fixtures/CPUP" / table);
}

TEST_F(CPUPrecordTest, ASecondScheduledIntervalHoldsDifferences) {
  Batch batch;
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Asker& asker = *batch.entries[0];
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  EXPECT_TRUE(asker.event.m_records.empty());
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Created 2 CPUP record(s).").size(), 1U);

  // Ten seconds on: the first processor ran, the second has stopped.
  SetSample(1'700'000'010, "200 120 130 1000 105 6 7 8 0 0", "50 0 50 900 0 0 0 0 0 0", 1250, 10);
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  ASSERT_EQ(asker.event.m_records.size(), 2U);

  EXPECT_EQ(asker.event.m_records.front()->GetRecSize(), 188);
  ExpectRows(asker.Rows<recordPI_CPUP>(), "interval.tsv");
}

TEST_F(CPUPrecordTest, LooksOnDemandCompareWithTheirOwnLastAnswer) {
  Batch batch;
  batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 0});
  batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 1});
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  const auto row = [&](std::size_t asker) {
    return *static_cast<const recordPI_CPUP*>(
        batch.entries[asker]->event.m_records.front()->GetRecStart());
  };
  ExpectRows({row(0)}, "look.tsv");
  EXPECT_EQ(row(1).interval, 10000U);
  EXPECT_FLOAT_EQ(row(1).interruptsPerSec, 0.1F);
  EXPECT_NEAR(row(1).cpuPercent, 100.0 * 1.5 / 5.55, 1e-4);

  SetSample(1'700'000'001, "150 20 30 450 5 6 7 8 0 0", "10 0 50 900 0 0 0 0 0 0", 1000, 10);
  Answer(batch);
  EXPECT_FLOAT_EQ(row(0).cpuPercent, 50.0F);
  EXPECT_STREQ(row(0).status.c_str(), "On Line");
  const auto* second =
      static_cast<const recordPI_CPUP*>(batch.entries[0]->event.m_records.back()->GetRecStart());
  EXPECT_STREQ(second->status.c_str(), "Unknown") << "its total went backwards";
}

TEST_F(CPUPrecordTest, ProcessorsOfOneTypeAreToldByTheirIdAndTheirLastTotalByEachLook) {
  Write("cpuinfo",
        "processor\t: 0\nmodel name\t: Example CPU\n\n"
        "processor\t: 1\nmodel name\t: Example CPU\n\n");
  Batch batch;
  batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 0});
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Asker& asker = *batch.entries[0];
  Asker& schedule = *batch.entries[1];
  const char* const statuses[] = {"Unknown", "On Line", "Off Line"};
  for (int look = 0; look < 3; ++look) {
    SCOPED_TRACE(look);
    // The first one spends all its time in user mode, the second all in the kernel; then both stop.
    const std::string ticks = look == 0 ? "100" : "300";
    SetSample(1'700'000'000 + look, ticks + " 0 0 0 0 0 0 0 0 0", "0 0 " + ticks + " 0 0 0 0 0 0 0",
              1000, 10);
    asker.NextAnswer();
    asker.previous.reverse();
    schedule.NextAnswer();
    ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
    for (const auto& row : schedule.Rows<recordPI_CPUP>()) {
      EXPECT_EQ(row.userTime + row.systemTime, (tagUTIME{look == 1 ? 2 : 0, 0}));
    }
    const auto rows = asker.Rows<recordPI_CPUP>();
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_STREQ(rows[0].type.c_str(), rows[1].type.c_str());
    for (const auto& row : rows) {
      EXPECT_STREQ(row.status.c_str(), statuses[look]);
    }
    EXPECT_FLOAT_EQ(rows[0].userPercent, look == 1 ? 100.0F : 0.0F);
    EXPECT_FLOAT_EQ(rows[1].systemPercent, look == 1 ? 100.0F : 0.0F);
  }
}

/// A host of three processors of which one is off line at first, read as a host of today.
class ModernCPUPrecordTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    m_host.Write("/sys/devices/system/cpu/present", "0-2\n");
    m_host.Write("/proc/cpuinfo", "processor\t: 0\nmodel name\t: Example CPU A\n\n");
    SetLook(0, "0-1", "cpu0 100 20 30 400 50 6 4 99 10 0\ncpu1 9000 0 0 0 0 0 0 0 0 0\n",
            "CPU0 CPU1\n 24: 1000 7\nLOC: 50 70 Local timer\nERR: 5\n");
    StartAgent();
    // The start chose what the settings say.
    g_hostProfile = HostProfile::kModern;
  }
  void SetLook(int seconds, const std::string& online, const std::string& processors,
               const std::string& interrupts) const {
    s_now = 1'700'000'000 + seconds;
    m_host.Write("/sys/devices/system/cpu/online", online + "\n");
    m_host.Write("/proc/stat",
                 "cpu  1 2 3 4 5 6 7 8 0 0\n" + processors + "intr 5\nctxt 7\nbtime 1699990000\n");
    m_host.Write("/proc/interrupts", interrupts);
  }
  /// The second processor goes off line; the first one's wait steps back.
  void SetSecondOff() const {
    SetLook(10, "0", "cpu0 200 120 100 1100 45 21 19 300 10 0\n",
            "CPU0\n 24: 1250\nLOC: 100 Local timer\nERR: 5\n");
  }
  /// All are on line; the first one has lost a line of interrupts.
  void SetAllOn(int seconds, const std::string& thirdUser) const {
    SetLook(seconds, "0-2",
            "cpu0 200 120 100 1100 45 21 19 300 10 0\ncpu1 9050 0 0 0 0 0 0 0 0 0\ncpu2 " +
                thirdUser + " 0 0 0 0 0 0 0 0 0\n",
            "CPU0 CPU1 CPU2\nLOC: 105 82 3 Local timer\nERR: 5\n");
  }
};

TEST_F(ModernCPUPrecordTest, IntervalsHoldNoStepBackAndNoReturn) {
  Batch batch;
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Asker& asker = *batch.entries[0];
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  SetSecondOff();
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  ExpectRows(asker.Rows<recordPI_CPUP>(), "modern-interval.tsv");

  // Back again, one goes on from where it stood and one, never seen before, begins.
  SetAllOn(20, "8000");
  Answer(batch);
  const auto back = asker.Rows<recordPI_CPUP>();
  EXPECT_EQ(back[0].interrupts, 0U);
  EXPECT_EQ(tagUTIME(back[1].userTime), (tagUTIME{0, 500000}));
  EXPECT_FLOAT_EQ(back[1].userPercent, 100.0F);
  EXPECT_EQ(back[1].interrupts, 5U);
  EXPECT_EQ(tagUTIME(back[2].userTime), tagUTIME{});
  EXPECT_EQ(back[2].interrupts, 0U);
  EXPECT_STREQ(back[2].status.c_str(), "On Line");

  SetAllOn(30, "8100");
  Answer(batch);
  EXPECT_EQ(tagUTIME(asker.Rows<recordPI_CPUP>()[2].userTime), (tagUTIME{1, 0}));
}

TEST_F(ModernCPUPrecordTest, LooksTellTheStatusAtOnceAndCompareWhatRan) {
  Batch batch;
  batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 0});
  batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 1});
  Asker& asker = *batch.entries[0];
  Asker& sinceBoot = *batch.entries[1];
  // The second processor's figures stand while it is off line.
  struct Look {
    const char* status[3];
    float userPercent[3];
    tagUTIME secondTime;
    std::uint32_t secondInterrupts;
    float secondPercentSinceBoot;
  };
  const Look looks[] = {
      {{"On Line", "On Line", "Off Line"}, {0.0F, 0.0F, 0.0F}, {90, 0}, 77, 100.0F},
      {{"On Line", "Off Line", "Off Line"}, {20.0F, 0.0F, 0.0F}, {90, 0}, 77, 0.0F},
      {{"On Line", "On Line", "On Line"}, {0.0F, 0.0F, 0.0F}, {90, 500000}, 82, 100.0F},
      {{"On Line", "On Line", "On Line"}, {0.0F, 0.0F, 100.0F}, {90, 500000}, 82, 100.0F}};
  for (std::size_t look = 0; look < std::size(looks); ++look) {
    SCOPED_TRACE(look);
    if (look == 1) {
      SetSecondOff();
    } else if (look > 1) {
      SetAllOn(20, look == 2 ? "8000" : "8100");
    }
    Answer(batch);
    const auto rows = asker.Rows<recordPI_CPUP>();
    const auto rowsSinceBoot = sinceBoot.Rows<recordPI_CPUP>();
    ASSERT_EQ(rows.size(), 3U);
    ASSERT_EQ(rowsSinceBoot.size(), 3U);
    EXPECT_EQ(tagUTIME(rows[1].userTime), looks[look].secondTime);
    EXPECT_EQ(rows[1].interrupts, looks[look].secondInterrupts);
    EXPECT_FLOAT_EQ(rowsSinceBoot[1].userPercent, looks[look].secondPercentSinceBoot);
    for (std::size_t row = 0; row < rows.size(); ++row) {
      EXPECT_STREQ(rows[row].status.c_str(), looks[look].status[row]) << row;
      EXPECT_FLOAT_EQ(rows[row].userPercent, looks[look].userPercent[row]) << row;
    }
  }
}

TEST_F(ModernCPUPrecordTest, TheOverviewKeepsWhatAProcessorThatWentOffHasDone) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  const auto userTime = [&] { return tagUTIME(Look<recordPI>(batch).totalUserModeTime); };
  EXPECT_EQ(userTime(), (tagUTIME{91, 200000}));
  SetSecondOff();
  EXPECT_EQ(userTime(), (tagUTIME{93, 200000}));
  // What the third processor did before it was seen on line is in no sum.
  SetAllOn(20, "8000");
  EXPECT_EQ(userTime(), (tagUTIME{93, 700000}));
  SetAllOn(30, "8100");
  EXPECT_EQ(userTime(), (tagUTIME{94, 700000}));
  SetSecondOff();
  EXPECT_EQ(userTime(), (tagUTIME{94, 700000}));
  SetAllOn(40, "8300");
  EXPECT_EQ(userTime(), (tagUTIME{96, 700000}));
}

}  // namespace
