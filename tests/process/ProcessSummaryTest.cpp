#include "process/ProcessSummary.h"

#include <sys/sysmacros.h>

#include "collect/Collector.h"
#include "collect/device/DeviceMap.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::uint64_t kNone = UINT64_MAX;

class ProcessSummaryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
  }
  Process& Add(int pid, int uid = 0, std::uint32_t state = 1, std::uint32_t flags = 1,
               std::uint64_t tty = kNone) {
    Process process;
    process.pid = pid;
    process.euid = uid;
    process.state = state;
    process.flags = flags;
    process.tty = tty;
    return m_collector.GetProcess()->emplace_back(process);
  }
  void Full(int realtime = 0, ProcessSamples* previous = nullptr) {
    EXPECT_EQ(m_summary.BuildFullSummary(++m_cycle, realtime, previous), nullptr);
  }
  /// Active processes; the two counts split them by their system flag.
  [[nodiscard]] int Active() const {
    return m_summary.GetActiveUserProcessCount() + m_summary.GetActiveSystemProcessCount();
  }

  std::uint32_t m_cycle = 0;
  Collector m_collector;
  DeviceMap m_devices;
  ProcessSummary m_summary{&m_collector, &m_devices};
};

TEST_F(ProcessSummaryTest, CountsByStateFlagUserAndTerminal) {
  EXPECT_EQ(m_summary.GetProcessCount(), 0);
  EXPECT_EQ(ScriptedNode::Instance()
                .LinesWith("Retrieving data from uninitialized ProcessSummary class.")
                .size(),
            1U);
  // Not in order of identifiers. Device files that every host has stand for terminals.
  Add(30, 7, 0, 1, ::makedev(1, 3));
  Add(10, -2, 1, 4, ::makedev(1, 5));
  Add(20, -1, 2, 16, ::makedev(1, 3));
  Add(40, 7, 3, 5, ::makedev(4000, 77));  // no such device
  for (const std::uint32_t state : {4U, 5U, 6U, 7U, 8U, 9U, 10U, 0xFFFFFFFFU}) {
    Add(100 + static_cast<int>(state % 50), 0, state);
  }
  Full();
  const ProcessSummary& counts = m_summary;
  EXPECT_EQ(counts.GetProcessCount(), 12);
  const std::vector<int> states{counts.GetStateNoneCount(),   counts.GetStateSleepCount(),
                                counts.GetStateRunCount(),    counts.GetStateIdleCount(),
                                counts.GetStateZombieCount(), counts.GetStateStopCount(),
                                counts.GetStateOnCPUCount()};
  EXPECT_EQ(states, std::vector<int>(7, 1)) << "7, 8 and 9 are in no count";
  EXPECT_EQ(counts.GetStateUnknownCount(), 2);
  EXPECT_EQ(counts.GetSystemProcessCount(), 2);
  EXPECT_EQ(counts.GetMemMgmtProcessCount(), 1);
  EXPECT_EQ(counts.GetSwappedProcessCount(), 2);
  EXPECT_EQ(counts.GetDaemonProcessCount(), 9);
  EXPECT_EQ(counts.GetUniqueUserCount(), 4) << "-2, -1, 0, 7";
  EXPECT_EQ(counts.GetActiveUserCount(), 4);
  EXPECT_EQ(counts.GetActiveTerminalCount(), 2);
  EXPECT_EQ(counts.GetActiveSystemProcessCount(), 2);
  EXPECT_EQ(counts.GetActiveUserProcessCount(), 10);

  EXPECT_EQ(m_summary.BuildLiteSummary(++m_cycle), nullptr);
  EXPECT_EQ(counts.GetActiveUserCount() + counts.GetActiveTerminalCount() + Active(), 0);
  m_collector.GetProcess()->clear();
  EXPECT_EQ(m_summary.BuildLiteSummary(m_cycle), nullptr);
  EXPECT_EQ(counts.GetProcessCount(), 12) << "counted once a cycle";
  EXPECT_EQ(m_summary.BuildFullSummary(m_cycle, 0, nullptr), nullptr);
  EXPECT_EQ(counts.GetProcessCount(), 0) << "a lite summary is no full one";
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("found 0 current processes.").size(), 1U);
}

TEST_F(ProcessSummaryTest, ItsCallsAreMessagesOfTheirOwn) {
  g_msgLogLevel = 40;
  Full();
  const auto& node = ScriptedNode::Instance();
  EXPECT_EQ(node.CountMessages(10498), 2);
  EXPECT_EQ(node.CountMessages(10499), 2);
  const auto full = node.LinesWith("(ProcessSummary::BuildFullSummary)");
  ASSERT_EQ(full.size(), 2U);
  EXPECT_EQ(full[0].text,
            "Started the function (ProcessSummary::BuildFullSummary). (arg1=1, arg2=0, arg3=0x0, "
            "arg4=unused).");
  EXPECT_EQ(full[1].text, " Exited the function (ProcessSummary::BuildFullSummary). (rc=0).");
  EXPECT_EQ(full[1].level, 40);
}

TEST_F(ProcessSummaryTest, WhatMakesAProcessActive) {
  struct Case {
    const char* name;
    std::function<void(Process&)> change;
    int active;
  };
  const Case cases[] = {
      {"nothing", [](Process&) {}, 0},
      {"user time", [](Process& p) { p.userTime.nanoseconds -= 1; }, 1},
      {"user seconds", [](Process& p) { p.userTime.seconds = 4; }, 1},
      {"system time", [](Process& p) { p.systemTime.nanoseconds += 1; }, 1},
      {"more minor faults", [](Process& p) { p.minorFaults = 0x80000000U; }, 1},
      {"less minor faults", [](Process& p) { p.minorFaults -= 1; }, 0},
      {"more major faults", [](Process& p) { p.majorFaults += 1; }, 1},
      {"more context switches", [](Process& p) { p.contextSwitches = 1; }, 1},
      {"more signals", [](Process& p) { p.signals = 1; }, 1},
      {"more reads", [](Process& p) { p.reads = 1; }, 1},
      {"more writes", [](Process& p) { p.writes = 1; }, 1},
      {"less bytes", [](Process& p) { p.totalBytes -= 1; }, 1},
      {"another directory", [](Process& p) { p.cwdInode ^= 1ULL << 40; }, 1},
      {"another user", [](Process& p) { p.euid = 9; }, 0},
      {"another identifier", [](Process& p) { p.pid = 51; }, 1},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    m_collector.GetProcess()->clear();
    for (const int pid : {60, 40, 50}) {
      Process& process = Add(pid, 100 - pid, 1, 1, ::makedev(1, 3));
      process.userTime = process.systemTime = {3, 500};
      process.minorFaults = process.majorFaults = process.totalBytes = 100;
      process.cwdInode = 1;
    }
    Full();
    one.change(m_collector.GetProcess()->back());
    Full();
    EXPECT_EQ(Active(), one.active);
    EXPECT_EQ(m_summary.GetActiveUserCount(), one.active);
    EXPECT_EQ(m_summary.GetActiveTerminalCount(), one.active);
  }
  EXPECT_EQ(m_summary.ProcessActive(nullptr), 0);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Bad pointer passed.").size(), 1U);
}

TEST_F(ProcessSummaryTest, ARealtimeLookLeavesTheOwnPictureAlone) {
  Add(1);
  Add(2);
  Full();
  ProcessSamples past{{.pid = 2}, {.pid = 1}};  // out of order
  m_collector.GetProcess()->clear();
  const Process newest = Add(3);
  Add(1).minorFaults = 1;
  Add(2);
  Full(1, &past);
  EXPECT_EQ(Active(), 2) << "1 had a fault, 3 is new";
  EXPECT_EQ(past.size(), 2U);
  EXPECT_EQ(m_summary.MatchProc(&newest), nullptr);
  Full();
  EXPECT_EQ(Active(), 2) << "as the own picture has it";
  past.pop_back();
  Full(0, &past);
  EXPECT_EQ(Active(), 3) << "2 and 3 are not in the past given";
  EXPECT_EQ(past.size(), 1U) << "which stays the caller's";
  for (const int pid : {3, 1, 2, 1}) {
    Process sought;
    sought.pid = pid;
    ASSERT_NE(m_summary.MatchProc(&sought), nullptr) << pid;
    EXPECT_EQ(m_summary.MatchProc(&sought)->pid, pid);
  }
}

}  // namespace
