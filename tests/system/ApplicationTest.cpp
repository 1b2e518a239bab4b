#include <sys/prctl.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

/// A waiting child under a name of its own, gone with the object.
class NamedChild {
 public:
  explicit NamedChild(const std::string& name) : m_pid(::fork()) {
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::prctl(PR_SET_NAME, name.c_str());
      for (;;) {
        ::pause();
      }
    }
  }
  ~NamedChild() {
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
  }
  NamedChild(const NamedChild&) = delete;
  NamedChild& operator=(const NamedChild&) = delete;

 private:
  pid_t m_pid;
};

/// Status and existence of the first application once `count` processes match its first condition.
std::string VerdictAt(const ProductRoot& root, int count) {
  json row;
  EXPECT_TRUE(WaitUntil([&] {
    row = json::parse(ShownBy(root, "get APP --json")).at(0).at("rows").at(0);
    return row.at("Monitor 1 Count") == count;
  }));
  return std::to_string(row.at("Monitor 1 Count").get<int>()) + " " +
         row.at("Application Status").get<std::string>() + " " +
         row.at("Application Exist").get<std::string>() + " " +
         row.at("Monitor 1 Range").get<std::string>();
}

TEST(ApplicationTest, AnApplicationFollowsItsProcessesAndOutlivesARestart) {
  const ProductRoot root("[Node]\nMessage Log Level=20\n");
  const std::string name = "app" + std::to_string(::getpid());
  {
    RunningDaemon daemon(root);
    for (const std::string& words : std::initializer_list<std::string>{
             "21 web", "1001 Execute", "1002 '" + name.substr(0, 3) + "?" + name.substr(4) + "*'",
             "1003 2-2"}) {
      ASSERT_FALSE(ShownBy(root, "config set " + words).starts_with("failed")) << words;
    }
    const NamedChild first(name);
    EXPECT_EQ(VerdictAt(root, 1), "1 ABNORMAL ABNORMAL 2-2");
    {
      const NamedChild second(name);
      EXPECT_EQ(VerdictAt(root, 2), "2 NORMAL NORMAL 2-2");
    }
    EXPECT_EQ(VerdictAt(root, 1), "1 ABNORMAL ABNORMAL 2-2");
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.ExitValue(), 0);
  }
  RunningDaemon daemon(root, "errors again");
  const NamedChild first(name);
  const NamedChild second(name);
  EXPECT_EQ(VerdictAt(root, 2), "2 NORMAL NORMAL 2-2");
}

}  // namespace
