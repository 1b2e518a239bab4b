#include <new>

#include "tests/process/ProcessRecordFixture.h"
#include "tests/scripted/Golden.h"

namespace {

class PDSrecordTest : public ProcessRecordFixture {
 protected:
  /// `count` sleeping daemons of one user, of which the first has had `faults` page faults.
  void SetProcesses(int count, std::uint32_t faults = 0) {
    std::vector<Process>& list = *m_collector.GetProcess();
    list.clear();
    for (int pid = 1; pid <= count; ++pid) {
      Process& process = list.emplace_back();
      process.pid = pid;
      process.flags = kProcessInCore;
      process.state = kStateSleeping;
      process.tty = UINT64_MAX;
      process.minorFaults = pid == 1 ? faults : 0;
    }
  }
  recordPD_PDS Build(Asker& asker, bool isSameBatch = false) {
    if (!isSameBatch) {
      NewBatch();
    }
    asker.NextAnswer();
    EXPECT_EQ(m_builder.BuildPD_PDS(&asker.event, &asker.request), nullptr);
    EXPECT_EQ(asker.event.m_records.size(), 1U);
    return *static_cast<const recordPD_PDS*>(asker.event.m_records.back()->GetRecStart());
  }
};

TEST_F(PDSrecordTest, StartsAndEndsOfBothKindsOfRequest) {
  struct Step {
    int count;
    std::uint32_t faults, started, ended, activeProcesses;
  };
  const Step steps[] = {{10, 0, 0, 0, 0}, {12, 0, 2, 0, 2}, {9, 1, 0, 3, 1}, {9, 1, 0, 0, 0}};
  for (const int realtime : {0, 1}) {
    SCOPED_TRACE(realtime);
    Asker asker("PDS", '3', {.realtime = realtime, .calcRates = 0});
    for (const Step& step : steps) {
      SetProcesses(step.count, step.faults);
      const recordPD_PDS row = Build(asker);
      EXPECT_STREQ(row.recordType.c_str(), "PDS");
      EXPECT_EQ(row.recordTime, 1'700'000'000);
      EXPECT_EQ(row.processes, static_cast<std::uint32_t>(step.count));
      EXPECT_EQ(row.newProcesses, step.started);
      EXPECT_EQ(row.terminatedProcesses, step.ended);
      EXPECT_EQ(row.activeUserProcesses, step.activeProcesses);
      EXPECT_EQ(row.activeUsers, step.activeProcesses == 0 ? 0U : 1U);
      EXPECT_EQ(row.activeSystemProcesses + row.terminals, 0U);
      EXPECT_EQ(row.users, 1U);
      EXPECT_EQ(row.daemonProcesses, row.processes);
    }
    EXPECT_EQ(ScriptedNode::Instance().LinesWith(" Accounting is not effective.").size(),
              4U * (1U + static_cast<unsigned>(realtime)));
  }
}

TEST_F(PDSrecordTest, EachCountHasItsField) {
  SetProcesses(32);
  Asker asker("PDS", '3', {.realtime = 0, .calcRates = 0});
  (void)Build(asker);
  std::vector<Process>& list = *m_collector.GetProcess();
  for (std::size_t i = 0; i < list.size(); ++i) {
    list[i].state = i < 1 ? 2U : i < 3 ? 4U : i < 6 ? 5U : 1U;
    list[i].flags = (i < 5 ? 4U : 0U) | (i < 6 ? 16U : 0U) | (i < 7 ? 0U : 1U);
    list[i].majorFaults = i < 13 ? 1 : 0;
  }
  const recordPD_PDS row = Build(asker);
  const std::vector<std::uint32_t> fields{
      row.activeSystemProcesses, row.activeUserProcesses, row.memProcesses,
      row.runnableProcesses,     row.sleepingProcesses,   row.swappedProcesses,
      row.zombieProcesses,       row.stoppedProcesses,    row.daemonProcesses};
  EXPECT_EQ(fields, (std::vector<std::uint32_t>{5, 8, 6, 1, 26, 7, 2, 3, 32}));
}

TEST_F(PDSrecordTest, TwoIntervalsByteForByte) {
  g_kernelVariant = kNewestKernel;
  const auto add = [&](int pid, int uid, char state, const char* name, long ticks) {
    AddProcess({.pid = pid,
                .uid = uid,
                .state = state,
                .userTicks = ticks,
                .name = name,
                .commandLine = ""});
  };
  add(1, 0, 'S', "init", 5);
  add(2, 0, 'S', "kswapd0", 0);
  add(50, 33, 'R', "httpd", 100);
  add(51, 33, 'S', "httpd", 0);
  add(60, 1000, 'Z', "sh", 0);
  add(61, 1000, 'T', "vi", 0);
  add(62, 0, 'D', "dd", 9);
  const std::filesystem::path fixture = std::filesystem::path(QMT_TEST_DIR) / "fixtures/PDS";
  Asker schedule("PDS", '3', {.realtime = 0, .calcRates = 0});
  Collect();
  recordPD_PDS row = Build(schedule);
  ExpectGolden(&row, sizeof row, fixture / "first.tsv");
  Asker sameBatch("PDS", '3', {.realtime = 0, .calcRates = 0});
  Build(sameBatch, true);

  s_now += 10;
  add(50, 33, 'R', "httpd", 101);
  for (const char* gone : {"/proc/51", "/proc/60", "/proc/61"}) {
    m_host.Remove(gone);
  }
  add(70, 33, 'S', "httpd", 0);
  Collect();
  row = Build(schedule);
  ExpectGolden(&row, sizeof row, fixture / "second.tsv");
  row = Build(sameBatch, true);
  ExpectGolden(&row, sizeof row, fixture / "second.tsv");
}

TEST_F(PDSrecordTest, ARowThatCannotBeFilledLosesNothing) {
  for (const int realtime : {0, 1}) {
    Asker asker("PDS", '3', {.realtime = realtime, .calcRates = 0});
    SetProcesses(10);
    (void)Build(asker);
    const auto time = Os().time;
    Os().time = [](std::time_t*) -> std::time_t { throw std::bad_alloc(); };
    EXPECT_EQ(m_builder.BuildPD_PDS(&asker.event, &asker.request), nullptr);
    Os().time = time;
    EXPECT_EQ(asker.event.m_records.size(), 1U) << "that of the build before";
    EXPECT_GE(Lines("Unable to get process summary information: std::bad_alloc."), 1U);
    SetProcesses(12);
    EXPECT_EQ(Build(asker).newProcesses, 2U);
  }
}

}  // namespace
