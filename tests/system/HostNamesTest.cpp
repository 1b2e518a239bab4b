#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "support/HostNameWire.h"
#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

/// The helper's real program between two pipes.
class HostUtilTest : public testing::Test {
 protected:
  HostUtilTest() {
    const std::string prefix = m_folder.Path() / "p";
    ::mkfifo((prefix + ".pipe").c_str(), 0600);
    ::mkfifo((prefix + ".pipeOut").c_str(), 0600);
    m_questions = ::open((prefix + ".pipe").c_str(), O_RDWR | O_CLOEXEC);
    m_answers = ::open((prefix + ".pipeOut").c_str(), O_RDWR | O_CLOEXEC);
    m_pid = ::fork();
    if (m_pid == 0) {
      const int errors = ::open((m_folder.Path() / "errors").c_str(), O_WRONLY | O_CREAT, 0600);
      ::dup2(errors, STDERR_FILENO);
      ::execl(QMT_HOSTUTIL_PROGRAM, "qmt_hostutil", prefix.c_str(), "off", nullptr);
      ::_exit(127);
    }
  }
  ~HostUtilTest() override {
    ::close(m_questions);
    ::close(m_answers);
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
    }
  }
  void Ask(const char* query, std::int32_t stamp) const {
    HostNameWire wire;
    wire.stampSeconds = stamp;
    HostNameWire::SetText(wire.query, query);
    ASSERT_EQ(::write(m_questions, &wire, sizeof wire), 3096);
  }
  [[nodiscard]] std::string Answer() const {
    HostNameWire wire;
    if (::read(m_answers, &wire, sizeof wire) != sizeof wire) {
      return "no answer";
    }
    return std::to_string(wire.stampSeconds) + " " + wire.query.data() + " " +
           wire.resultName.data() + " " + wire.resultAddress.data();
  }

  TempFolder m_folder;
  int m_questions = -1;
  int m_answers = -1;
  pid_t m_pid = -1;
};

TEST_F(HostUtilTest, LocalhostResolvesBothWaysAndNothingElseStopsIt) {
  const std::string piece(100, 'x');
  HostNameWire unending;
  unending.query.fill('q');
  ASSERT_EQ(::write(m_questions, piece.data(), piece.size()), 100);
  for (int i = 0; i < 3000 && m_folder.Read("errors").find("100 bytes") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  // These wait in the pipe together.
  Ask("localhost", 1);
  ASSERT_EQ(::write(m_questions, &unending, sizeof unending), 3096);
  Ask("127.0.0.1", 2);
  Ask("", 3);
  EXPECT_EQ(Answer(), "1 localhost localhost 127.0.0.1");
  EXPECT_EQ(Answer(), "2 127.0.0.1 localhost 127.0.0.1");
  EXPECT_EQ(Answer(), "3   ");
  EXPECT_NE(m_folder.Read("errors").find("3096 bytes is refused"), std::string::npos);
  // Without a writer the helper ends.
  ::close(m_questions);
  m_questions = -1;
  int status = -1;
  ASSERT_EQ(::waitpid(m_pid, &status, 0), m_pid);
  m_pid = -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(HostNamesTest, InterfacesAreThoseOfTheHost) {
  const ProductRoot root;
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const json rows = json::parse(AskDaemon(root, "get --raw --json NIND").output).at(0).at("rows");
  std::map<std::string, json> byName;
  for (const json& row : rows) {
    byName[row.at("Interface")] = row;
  }
  int compared = 0;
  for (const json& link : json::parse(RunCommand("ip -j addr").output)) {
    for (const json& address : link.value("addr_info", json::array())) {
      // The kernel's older interface tells the first address of an interface.
      if (address.at("family") != "inet" || address.value("secondary", false) ||
          address.at("label") != link.at("ifname")) {
        continue;
      }
      const json& row = byName.at(link.at("ifname"));
      EXPECT_EQ(row.at("IP Address"), address.at("local"));
      const std::string flags = "," + row.at("Flags").get<std::string>() + ",";
      EXPECT_EQ(flags.find(",UP,") != std::string::npos,
                link.at("flags").dump().find("\"UP\"") != std::string::npos);
      EXPECT_EQ(row.at("Max Transmission Unit"), link.at("mtu"));
      if (row.at("IP Address") != "127.0.0.1") {
        EXPECT_EQ(row.at("Broadcast Address"), address.value("broadcast", ""));
      }
      const int prefix = address.at("prefixlen");
      std::uint32_t mask = prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
      std::string text;
      for (int shift = 24; shift >= 0; shift -= 8) {
        text += (text.empty() ? "" : ".") + std::to_string((mask >> shift) & 255U);
      }
      EXPECT_EQ(row.at("Network Mask"), text);
      ++compared;
    }
  }
  EXPECT_GE(compared, 1);
}

}  // namespace
