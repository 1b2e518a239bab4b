#include "local/GateChild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "local/GateRun.h"
#include "tests/local/FakeAgent.h"

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Steady = std::chrono::steady_clock;

/// The loop runs until a condition holds, for at most ten seconds.
class GateChildTest : public ::testing::Test {
 protected:
  GateCommand Script(const std::string& text) {
    std::ofstream("gate.sh") << "#!/bin/sh\n" << text;
    ::chmod("gate.sh", 0755);
    GateCommand command;
    command.program = std::filesystem::absolute("gate.sh");
    command.arguments = {"--child", "a b"};
    command.firstPause = milliseconds(20);
    command.longestPause = milliseconds(80);
    command.patience = milliseconds(300);
    return command;
  }
  void RunUntil(std::function<bool()> isDone) {
    const auto deadline = Steady::now() + std::chrono::seconds(10);
    LoopTimer timer(m_loop);
    std::function<void()> look = [&] {
      if (isDone() || Steady::now() > deadline) {
        EventLoop::RequestStop();
      } else {
        timer.After(milliseconds(5), look);
      }
    };
    look();
    m_loop.Run(m_agent);
    EXPECT_TRUE(isDone());
  }
  [[nodiscard]] bool IsTold(const std::string& text) const {
    return std::ranges::find(m_told, text) != m_told.end();
  }
  ProblemReport Report() {
    return [this](const std::string& line) { m_told.push_back(line); };
  }

  const ScratchDirectory m_directory;
  EventLoop m_loop;
  FakeAgent m_agent;
  std::vector<std::string> m_told;
};

TEST_F(GateChildTest, ItsWordsAreToldAndItIsStartedAgainWithLongerPauses) {
  GateChild child(
      m_loop,
      Script("echo \"$1 $2 $(ls /proc/self/fd | wc -l)\" >&2\nprintf 'no end' >&2\nexit 3\n"),
      Report());
  const auto begin = Steady::now();
  child.Start();
  RunUntil([&] { return std::ranges::count(m_told, "qmt_gate: no end") >= 4; });
  EXPECT_GE(Steady::now() - begin, milliseconds(20 + 40 + 80));
  m_told.resize(3);
  // Three standard ones, and the folder that is listed.
  EXPECT_THAT(m_told, ElementsAre("qmt_gate: --child a b 4", "qmt_gate: no end",
                                  "qmt_gate has ended with status 3 and is started again"));
  child.Terminate();
  child.Wait();
}

TEST_F(GateChildTest, AStopAsksThenKillsWithinItsPatience) {
  const struct {
    const char* script;
    bool isKilled;
  } rows[] = {{"echo up >&2\nexec sleep 60\n", false},
              {"trap '' TERM\necho up >&2\nwhile :; do sleep 1; done\n", true}};
  for (const auto& row : rows) {
    m_told.clear();
    GateChild child(m_loop, Script(row.script), Report());
    child.Start();
    RunUntil([&] { return IsTold("qmt_gate: up"); });
    const auto begin = Steady::now();
    child.Terminate();
    child.Wait();
    const auto taken = Steady::now() - begin;
    EXPECT_FALSE(child.IsRunning());
    EXPECT_EQ(taken >= milliseconds(300), row.isKilled) << row.script;
    EXPECT_LT(taken, milliseconds(1500));
    EXPECT_THAT(m_told, ElementsAre("qmt_gate: up")) << "it is not started again";
  }
}

TEST_F(GateChildTest, AFloodOfWordsIsCutAndAProgramThatIsNoneIsTold) {
  GateChild flood(m_loop,
                  Script("head -c 5000 /dev/zero | tr '\\0' x >&2\nseq 1 50000 >&2\nsleep 60\n"),
                  Report());
  flood.Start();
  RunUntil([&] { return static_cast<int>(m_told.size()) >= GateChild::kMostLines; });
  RunUntil([end = Steady::now() + milliseconds(200)] { return Steady::now() > end; });
  EXPECT_EQ(m_told.size(), std::size_t{GateChild::kMostLines});
  EXPECT_EQ(m_told.front().size(), GateChild::kMaxLine + std::string("qmt_gate: ").size());
  flood.Terminate();
  flood.Wait();

  m_told.clear();
  GateCommand none = Script("");
  none.program = "/nowhere/qmt_gate";
  GateChild missing(m_loop, none, Report());
  missing.Start();
  RunUntil([&] { return m_told.size() >= 2; });
  EXPECT_THAT(m_told[0], HasSubstr("can't be started: No such file"));
  EXPECT_EQ(FindProgramBeside("qmt_gate", "no-such-folder"), "");
}

TEST_F(GateChildTest, ItHasASocketOfItsOwnToReadBy) {
  BatchDesk desk;
  LastRows rows;
  ScheduleBook schedule(m_loop, desk, rows);
  HistoryStore history([](const std::string&) {});
  ControlOperations operations(m_loop, desk, schedule, rows, history);
  GateRun gate(m_loop, operations, Report());
  gate.Start(Script("echo \"$*\" >&2\n[ -S $3 ] && stat -c %a:%u $3 >&2\nexec sleep 60\n").program);
  RunUntil([&] { return m_told.size() >= 2; });
  EXPECT_THAT(m_told[0], HasSubstr("qmt_gate: --child --control run/gate.sock"));
  EXPECT_EQ(m_told[0].find("--user ") != std::string::npos, ::geteuid() == 0);
  struct stat status {};
  ASSERT_EQ(::stat("run/gate.sock", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_uid != ::geteuid(), ::geteuid() == 0);
  gate.Terminate();
  gate.Wait();
  EXPECT_FALSE(std::filesystem::exists("run/gate.sock"));
}

}  // namespace
