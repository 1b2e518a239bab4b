#include "node/LayoutRegistry.h"
#include "records/RecordClasses.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/Golden.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr std::time_t kFirstTime = 1'700'000'000;
const fs::path kFixture = fs::path(QMT_TEST_DIR) / "fixtures/pi";

unsigned long g_freePages = 0;

/// A host of two processors at the first of two samples, ten seconds apart, and the agent on it.
class PIrecordTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    Os().sysinfo = [](struct ::sysinfo* info) {
      info->totalram = 1'023'811;
      info->freeram = g_freePages;
      info->totalswap = 524'287;
      info->freeswap = 400'001;
      info->mem_unit = 4096;
      return 0;
    };
    m_host.CopyFrom(kFixture / "first");
    s_now = kFirstTime;
    g_freePages = 300'000;
    StartAgent();
  }

  void TakeSecondSample() const {
    m_host.CopyFrom(kFixture / "second");
    s_now = kFirstTime + 10;
    g_freePages = 200'003;
  }
};

TEST_F(PIrecordTest, AHostThatIsNotThereHasNoRow) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  m_host.Remove("/proc");
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  EXPECT_TRUE(batch.entries[0]->event.m_records.empty());
  EXPECT_EQ(Lines("Failed to collect the record. (record=PI, detail=There is no host to be read.)"),
            1U);
}

TEST_F(PIrecordTest, ASecondScheduledRowIsTheOneWorkedOutByHand) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 0, .calcRates = 1});
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  EXPECT_TRUE(batch.entries[0]->event.m_records.empty());
  EXPECT_EQ(Lines("Created 1 PI record(s)."), 1U);
  EXPECT_EQ(Lines("Current interval data"), 0U);

  TakeSecondSample();
  // A look in between leaves the differences of the schedule alone.
  s_now = kFirstTime + 4;
  Batch look;
  look.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  EXPECT_EQ(Look<recordPI>(look).contextSwitches, 834'567U);
  s_now = kFirstTime + 10;
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  ASSERT_EQ(batch.entries[0]->event.m_records.size(), 1U);
  const CMBRecord& answer = *batch.entries[0]->event.m_records.front();
  ASSERT_EQ(answer.GetRecSize(), 516);
  ExpectGolden(answer.GetRecStart(), 516, kFixture / "row.tsv");

  // The host's count of pages read has passed 32 bits.
  for (const std::string name : {"page_in_count", "page_in_ops"}) {
    EXPECT_EQ(Lines("Current interval data for field (" + name +
                    ") is less than that during previous intervalcurrent Interval Data = 2704, "
                    "Previous interval Data = 4294960000)"),
              1U);
  }
  EXPECT_EQ(Lines("Current interval data"), 2U);
}

TEST_F(PIrecordTest, LooksOnDemandShowTotalsAndCompareWithTheirOwnLastAnswer) {
  Batch plain;
  plain.Add("PI", '4', {.realtime = 1, .calcRates = 0});
  Batch withRates;
  withRates.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  const recordPI alone = Look<recordPI>(plain);
  Look<recordPI>(withRates);
  TakeSecondSample();
  const recordPI compared = Look<recordPI>(plain);
  const recordPI sinceBoot = Look<recordPI>(withRates);

  // Ticks since boot: user 3421, kernel 909, idle 16353, wait 553.
  const struct {
    const char* name;
    recordPI row;
    std::uint32_t interval, contextSwitches, started;
    float contextSwitchesPerSec;
    double user, kernel, busy, wait, idle;
  } cases[] = {
      {"without a predecessor", alone, 1'700'000'000, 800'000, 0, 800'000.0F, 0, 0, 0, 0, 0},
      {"with a predecessor", compared, 1'700'000'010, 834'567, 2, 834'567.0F, 371 / 20.03,
       209 / 20.03, 580 / 20.03, 70 / 20.03, 1353 / 20.03},
      {"with rates", sinceBoot, 500'010, 834'567, 2, 834'567.0F / 500'010.0F, 3421 / 212.36,
       909 / 212.36, 4330 / 212.36, 553 / 212.36, 16353 / 212.36},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(one.row.interval, one.interval);
    EXPECT_EQ(one.row.contextSwitches, one.contextSwitches);
    EXPECT_EQ(one.row.processesStarted, one.started);
    EXPECT_EQ(one.row.contextSwitchesPerSec, one.contextSwitchesPerSec);
    EXPECT_FLOAT_EQ(one.row.userCpuPercent, static_cast<float>(one.user));
    EXPECT_FLOAT_EQ(one.row.kernelCpuPercent, static_cast<float>(one.kernel));
    EXPECT_FLOAT_EQ(one.row.cpuPercent, static_cast<float>(one.busy));
    EXPECT_FLOAT_EQ(one.row.waitPercent, static_cast<float>(one.wait));
    EXPECT_FLOAT_EQ(one.row.idlePercent, static_cast<float>(one.idle));
  }
  EXPECT_EQ(compared.totalUserModeTime, (tagUTIME{34, 210000})) << "a look leaves the totals alone";
  EXPECT_EQ(compared.totalPkts, 1420U + 1136U);
}

TEST_F(PIrecordTest, StartsAndEndsOfProcessesFollowTheirCount) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  const std::string status = "Name:\tx\nUid:\t0\t0\t0\t0\n";
  const struct {
    Texts come, go;
    std::uint32_t processes, started, ended;
  } steps[] = {
      {{}, {}, 4, 0, 0},
      {{"5", "6", "7"}, {}, 7, 3, 0},
      {{}, {"5", "6", "411"}, 4, 0, 3},
      {{"8"}, {"7"}, 4, 0, 0},
  };
  for (const auto& step : steps) {
    for (const std::string& pid : step.come) {
      m_host.Write("/proc/" + pid + "/status", status);
    }
    for (const std::string& pid : step.go) {
      m_host.Remove("/proc/" + pid);
    }
    const recordPI row = Look<recordPI>(batch);
    EXPECT_EQ(row.processes, step.processes);
    EXPECT_EQ(row.processesStarted, step.started) << "of " << step.processes;
    EXPECT_EQ(row.processesEnded, step.ended) << "of " << step.processes;
  }
}

TEST_F(PIrecordTest, ASecondIntervalInTheSameSecondFailsThatRequestAlone) {
  g_msgLogLevel = 30;
  Batch batch;
  batch.Add("PI", '4', {.realtime = 0, .calcRates = 1});
  batch.Add("PI", '4', {.realtime = 0, .calcRates = 1});
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  EXPECT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10300), 1);
  EXPECT_EQ(Lines("(record=PI, detail=RecordBuilder::BuildRates_PI: Attempt to calculate rates for "
                  "a zero second interval.)"),
            1U);
  EXPECT_EQ(Lines("Created 1 PI record(s)."), 2U);
  EXPECT_EQ(Lines("PI - Processing Interval Request."), 2U);
  EXPECT_EQ(Lines(" Accounting is not effective."), 3U);
  EXPECT_EQ(batch.entries[2]->event.m_records.size(), 1U);
}

TEST_F(PIrecordTest, WhatCannotBeReadIsZeroAndTheRestIsFilled) {
  Batch batch;
  batch.Add("PI", '4', {.realtime = 1, .calcRates = 1});
  const recordPI whole = Look<recordPI>(batch);
  const RecordLayout* layout = LayoutRegistry::Instance().Find("PI");
  ASSERT_NE(layout, nullptr);
  const struct {
    const char* file;
    Texts labels;  ///< parts of the labels of the fields that it feeds
    std::size_t fields;
  } cases[] = {
      {"/proc/cpuinfo", {"-Mode Time", "Idle", "Wait", "CPU %"}, 9},
      {"/proc/net/snmp", {"Pkts"}, 13},
      {"/proc/loadavg", {"-Minute Run Queue Avg"}, 3},
      {"/proc/vmstat",
       {"Page-", "Pages ", "Page Ops", "Swap-", "Swapped-", "Total Swaps", "Mem I/O Ops"},
       21},
      {"/proc/310/status", {"Users"}, 1},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.file);
    m_host.Remove(one.file);
    const recordPI row = Look<recordPI>(batch);
    std::size_t fed = 0;
    for (const FieldLayout& field : layout->fields) {
      const auto has = [&](const std::string& part) {
        return std::strstr(field.label, part.c_str()) != nullptr;
      };
      const auto* before = reinterpret_cast<const unsigned char*>(&whole) + field.offset;
      const auto* after = reinterpret_cast<const unsigned char*>(&row) + field.offset;
      if (std::none_of(one.labels.begin(), one.labels.end(), has)) {
        EXPECT_EQ(HexOf(after, field.width), HexOf(before, field.width)) << field.label;
      } else {
        ++fed;
        EXPECT_EQ(HexOf(after, field.width), std::string(2 * field.width, '0')) << field.label;
      }
    }
    EXPECT_EQ(fed, one.fields);
    m_host.CopyFrom(kFixture / "first");
  }
}

}  // namespace
