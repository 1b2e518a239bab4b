#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

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
  for (int attempt = 0; attempt < 100; ++attempt) {
    row = json::parse(ShownBy(root, "get APP --json")).at(0).at("rows").at(0);
    if (row.at("Monitor 1 Count") == count) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return std::to_string(row.at("Monitor 1 Count").get<int>()) + " " +
         row.at("Application Status").get<std::string>() + " " +
         row.at("Application Exist").get<std::string>() + " " +
         row.at("Monitor 1 Range").get<std::string>();
}

TEST(ApplicationTest, AnApplicationFollowsItsProcessesAndOutlivesARestart) {
  const ProductRoot root("[Node]\nMessage Log Level=20\n");
  const std::string name = "app" + std::to_string(::getpid());
  {
    Daemon daemon(root, "errors");
    ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
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
  Daemon daemon(root, "errors again");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const NamedChild first(name);
  const NamedChild second(name);
  EXPECT_EQ(VerdictAt(root, 2), "2 NORMAL NORMAL 2-2");
}

/// Adds and deletes one application over and over, without waiting for the answers but the first.
class ChangeStorm {
 public:
  explicit ChangeStorm(const ProductRoot& root)
      : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    ::sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = root.AgentFolder() / "run/control.sock";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(m_socket, reinterpret_cast<::sockaddr*>(&address), sizeof address), 0);
    std::string changes;
    for (int i = 0; i < 100; ++i) {
      changes += R"({"op": "config_set", "item": 21, "value": "x"})"
                 "\n"
                 R"({"op": "config_set", "item": 22, "value": "x"})"
                 "\n";
    }
    EXPECT_EQ(::send(m_socket, changes.data(), changes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(changes.size()));
    std::array<char, 512> answer{};
    EXPECT_GT(::read(m_socket, answer.data(), answer.size() - 1), 0);
    EXPECT_NE(std::string(answer.data()).find("\"done\""), std::string::npos) << answer.data();
  }
  ~ChangeStorm() { ::close(m_socket); }
  ChangeStorm(const ChangeStorm&) = delete;
  ChangeStorm& operator=(const ChangeStorm&) = delete;

 private:
  int m_socket;
};

TEST(ApplicationTest, AKillAmongChangesLeavesAWholeFile) {
  const ProductRoot root("[Node]\nMessage Log Level=20\n");
  std::string whole = "A\tx\n";
  for (int i = 0; i < 15; ++i) {
    whole += "P\t0\t0\t0\t\n";
  }
  for (int i = 0; i < 10; i += 2) {
    Daemon daemon(root, "errors" + std::to_string(i));
    ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
    EXPECT_EQ(daemon.Errors().find("qmtapp read error"), std::string::npos);
    const ChangeStorm storm(root);
    std::this_thread::sleep_for(std::chrono::milliseconds(i));
    daemon.Signal(SIGKILL);
    EXPECT_EQ(daemon.ExitValue(), -1);
    const std::string text = root.Read("opt/qmtrx/mond/agent/qmtapp");
    EXPECT_TRUE(text.empty() || text == whole) << text;
    std::filesystem::remove(root.AgentFolder() / "qmtapp");
  }
}

/// Each block of docs/applications.md that is a file of applications.
TEST(ApplicationTest, TheExamplesOfItsPageAreFreeOfFaults) {
  const ProductRoot root;
  std::ifstream in(QMT_TEST_DIR "/../docs/applications.md");
  const std::string page{std::istreambuf_iterator<char>(in), {}};
  int examples = 0;
  for (std::size_t at = page.find("```\nA\t"); at != std::string::npos;
       at = page.find("```\nA\t", at + 1), ++examples) {
    const std::size_t begin = at + 4;
    std::ofstream(root.Path() / "qmtapp") << page.substr(begin, page.find("```", begin) - begin);
    EXPECT_EQ(ShownBy(root, std::string("check --daemon ") + QMTDMON_PROGRAM + " '" +
                                (root.Path() / "qmtapp").string() + "'"),
              "");
  }
  EXPECT_GT(examples, 0);
}

}  // namespace
