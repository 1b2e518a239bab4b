#include "support/HostNameWire.h"
#include "tests/system/Daemon.h"

namespace {

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
  ASSERT_TRUE(
      WaitUntil([this] { return m_folder.Read("errors").find("100 bytes") != std::string::npos; }));
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

}  // namespace
