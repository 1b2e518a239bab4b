#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>

#include "tests/system/Daemon.h"

namespace {

/// A child of this process with more busy threads than anybody else, gone with the object.
class BusyChild {
 public:
  BusyChild() : m_pid(::fork()) {
    constexpr int kThreads = 16;
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (int i = 1; i < kThreads; ++i) {
        std::thread(KeepBusy).detach();
      }
      KeepBusy();
    }
  }
  ~BusyChild() {
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
  }
  BusyChild(const BusyChild&) = delete;
  BusyChild& operator=(const BusyChild&) = delete;
  [[nodiscard]] pid_t Pid() const { return m_pid; }

 private:
  static void KeepBusy() {
    const std::atomic<bool> stop{false};
    while (!stop) {
    }
  }

  pid_t m_pid;
};

TEST(TopTest, ABusyProcessComesFirstAndCanBeChosen) {
  const ProductRoot root;
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const BusyChild busy;
  const std::string pid = std::to_string(busy.Pid());

  const std::string top = ShownBy(root, "top --by cpu --count 2 --every 1 --rows 3");
  const std::size_t second = top.rfind("processes  load ");
  ASSERT_NE(second, std::string::npos) << top;
  const std::string head = top.substr(second, top.find('\n', second) - second);
  EXPECT_NE(head.find(" %  by cpu, "), std::string::npos) << head;
  const std::size_t first = top.find('\n', top.find("Program", second)) + 1;
  std::istringstream words(top.substr(first));
  std::string program;
  std::string shown;
  std::string user;
  std::string state;
  double percent = 0;
  words >> program >> shown >> user >> state >> percent;
  EXPECT_EQ(shown, pid) << top;
  EXPECT_GT(percent, 10) << top;

  EXPECT_EQ(ShownBy(root,
                    "get PDI --raw --csv --columns 'State,PID' --where 'program~system_*' "
                    "--where PID=" +
                        pid),
            "State,PID\nRUN," + pid + "\n");
  EXPECT_NE(ShownBy(root, "get PD --sort 'CPU'").find("did you mean \"CPU %\""), std::string::npos);
}

}  // namespace
