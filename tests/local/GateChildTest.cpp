#include "local/GateChild.h"

#include <sys/ptrace.h>
#include <sys/wait.h>

#include "local/GateRun.h"
#include "support/ProgramBeside.h"
#include "tests/local/FakeAgent.h"
#include "tests/support/Testing.h"

namespace {

using std::chrono::milliseconds;
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
      Script("stat=$(cut -d' ' -f6,7 /proc/$$/stat)\n[ \"$stat\" = \"$$ 0\" ] && session=own\n"
             "echo \"$1 $2 $(ls /proc/self/fd | wc -l) $(readlink /proc/$$/fd/0) \"\\\n"
             "\"$(readlink /proc/$$/fd/1) $session\" >&2\nprintf 'no end' >&2\nexit 3\n"),
      Report());
  const auto begin = Steady::now();
  child.Start();
  RunUntil([&] { return std::ranges::count(m_told, "qmt_gate: no end") >= 4; });
  EXPECT_GE(Steady::now() - begin, milliseconds(20 + 40 + 80));
  m_told.resize(3);
  // Three standard ones, and the folder that is listed.
  EXPECT_THAT(m_told,
              ElementsAre("qmt_gate: --child a b 4 /dev/null /dev/null own", "qmt_gate: no end",
                          "qmt_gate has ended with status 3 and is started again"));
  child.Terminate();
  child.Wait();
}

TEST_F(GateChildTest, ItIsReadOnWhereWordsLackMemory) {
  int tries = 0;
  GateChild child(m_loop, Script("while :; do echo more >&2; sleep 0.01; done\n"),
                  [&](const std::string&) {
                    ++tries;
                    throw std::bad_alloc();
                  });
  child.Start();
  RunUntil([&] { return tries >= 2; });
  child.Terminate();
  child.Wait();
}

TEST_F(GateChildTest, AStopAsksThenKillsWithinItsPatience) {
  const struct {
    const char* script;
    bool isKilled;
  } rows[] = {{"echo $$ >pid\necho up >&2\nexec sleep 60\n", false},
              {"echo $$ >pid\ntrap '' TERM\necho up >&2\nwhile :; do sleep 1; done\n", true}};
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
    ::pid_t process = 0;
    std::ifstream("pid") >> process;
    EXPECT_EQ(child.IsOrWas(process), !row.isKilled) << "what it had sent is still its own";
    EXPECT_FALSE(child.IsOrWas(::getpid()) || child.IsOrWas(0));
    EXPECT_EQ(taken >= milliseconds(300), row.isKilled) << row.script;
    EXPECT_LT(taken, milliseconds(1500));
    EXPECT_THAT(m_told, ElementsAre("qmt_gate: up")) << "it is not started again";
  }
}

TEST_F(GateChildTest, AStopWaitsNoLongerForOneThatIsNotOver) {
  GateChild child(m_loop, Script("echo $$ >pid\necho up >&2\nexec sleep 60\n"), Report());
  child.Start();
  RunUntil([&] { return IsTold("qmt_gate: up"); });
  ::pid_t process = 0;
  std::ifstream("pid") >> process;
  // Who is traced is over only when the tracer has seen its end.
  const ::pid_t tracer = ::fork();
  if (tracer == 0) {
    if (::ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0) {
      ::raise(SIGSTOP);
      ::sleep(4);
    }
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(tracer, &status, WUNTRACED), tracer);
  if (!WIFSTOPPED(status)) {
    GTEST_SKIP() << "no process may be traced here";
  }
  const auto begin = Steady::now();
  ::kill(tracer, SIGCONT);
  child.Terminate();
  child.Wait();
  EXPECT_FALSE(child.IsRunning());
  EXPECT_LT(Steady::now() - begin, milliseconds(3000));
  ::kill(tracer, SIGKILL);
  ::waitpid(tracer, nullptr, 0);
  ::waitpid(process, nullptr, WNOHANG);
}

TEST_F(GateChildTest, AFloodOfWordsIsCutAndAProgramThatIsNoneIsTold) {
  GateChild flood(
      m_loop,
      Script("head -c 5000 /dev/zero | tr '\\0' x >&2\nseq 1 50000 >&2\ntouch end\nsleep 60\n"),
      Report());
  const auto begin = Steady::now();
  flood.Start();
  RunUntil([] { return std::filesystem::exists("end"); });
  EXPECT_GE(Steady::now() - begin, milliseconds(200)) << "it is read at leisure";
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
  const std::string program = Script("echo $$ >pid\necho \"$*\" >&2\nexec sleep 60\n").program;
  const bool isRoot = ::geteuid() == 0;
  gate.Start(program);
  RunUntil([&] { return !m_told.empty() && m_told.back().starts_with("qmt_gate: "); });
  EXPECT_THAT(m_told.back(), HasSubstr("qmt_gate: --child " + std::to_string(::getpid()) +
                                       " --control run/gate.sock"));
  EXPECT_THAT(m_told.back(), HasSubstr(" --state run/gate-state"));
  EXPECT_EQ(m_told.back().find("--user ") != std::string::npos, isRoot);
  EXPECT_EQ(m_told.size() == 2, m_told.back().find(" nobody") != std::string::npos)
      << "who is nobody's is told";
  PeerIdentity peer{::getpid(), ::geteuid(), 0, {}};
  EXPECT_FALSE(gate.IsGate(peer));
  std::ifstream("pid") >> peer.process;
  EXPECT_TRUE(gate.IsGate(peer));
  struct stat status {};
  ASSERT_EQ(::stat("run/gate.sock", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_uid != ::geteuid(), isRoot);
  struct stat state {};
  ASSERT_EQ(::stat("run/gate-state", &state), 0);
  EXPECT_EQ(state.st_mode & 07777U, 0700U);
  EXPECT_EQ(state.st_uid, status.st_uid);
  EXPECT_EQ(gate.IsGate({1, status.st_uid, 0, {}}), isRoot) << "whoever has that user";
  gate.Terminate();
  gate.Wait();
  EXPECT_FALSE(std::filesystem::exists("run/gate.sock"));
  // What is no folder there is none to write to, and nothing behind a link is given away.
  std::filesystem::create_directory("other");
  std::filesystem::remove("run/gate-state");
  std::filesystem::create_directory_symlink("../other", "run/gate-state");
  m_told.clear();
  GateRun linked(m_loop, operations, Report());
  linked.Start(program);
  RunUntil([&] { return !m_told.empty() && m_told.back().starts_with("qmt_gate: "); });
  EXPECT_THAT(m_told.back(), ::testing::Not(HasSubstr("--state")));
  EXPECT_THAT(m_told, ::testing::Contains(HasSubstr("run/gate-state: ")));
  ASSERT_EQ(::stat("other", &state), 0);
  EXPECT_EQ(state.st_uid, ::geteuid());
  linked.Terminate();
  linked.Wait();
  if (!isRoot) {
    return;
  }
  for (const auto& [owner, mode] : {std::pair(64321U, 0755U), std::pair(0U, 0775U)}) {
    ASSERT_EQ(::chown("run", owner, 0) + ::chmod("run", mode), 0);
    m_told.clear();
    GateRun refused(m_loop, operations, Report());
    refused.Start(program);
    EXPECT_THAT(m_told.back(), HasSubstr("run: does not belong to root alone: nothing is served"));
    EXPECT_FALSE(std::filesystem::exists("run/gate.sock"));
  }
}

}  // namespace
