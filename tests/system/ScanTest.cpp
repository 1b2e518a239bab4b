#include <cstdint>
#include <nlohmann/json.hpp>

#include "support/Descriptor.h"
#include "tests/system/Daemon.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// A host of the kernel generation that has scans, with one file system.
class ScanTest : public ::testing::Test {
 protected:
  ScanTest() {
    fs::copy(QMT_TEST_DIR "/fixtures/2.4.21", m_host.Path(),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::create_directories(m_host.Path() / "proc/sys/kernel");
    std::ofstream(m_host.Path() / "proc/sys/kernel/osrelease") << "2.4.21-4.EL\n";
    std::ofstream(m_host.Path() / "etc/mtab") << "/dev/hda2 /data/one ext3 rw 0 0\n";
    fs::create_directories(m_host.Path() / "data/one/deep");
    std::ofstream(m_host.Path() / "data/one/deep/file") << std::string(3'000'000, 'x');
    std::ofstream(m_root.AgentFolder() / "optrecs.dat") << "UFSS\n";
    ::setenv("QMT_HOST_ROOT", m_host.Path().c_str(), 1);
  }
  ~ScanTest() override { ::unsetenv("QMT_HOST_ROOT"); }

  [[nodiscard]] fs::path Results() const { return m_root.AgentFolder() / "storage.d"; }
  [[nodiscard]] std::string LockPath() const { return m_root.PipeFolder() / "qmt_ufss_.lock"; }
  /// Whether no scan holds the lock.
  [[nodiscard]] bool IsScanOver() const {
    const Descriptor lock(::open(LockPath().c_str(), O_RDWR | O_CLOEXEC));
    return !lock.IsOpen() || ::lockf(lock.Get(), F_TEST, 0) == 0;
  }
  /// What the file system's owner has, in blocks of 512 bytes.
  [[nodiscard]] std::uint64_t Blocks() const {
    std::uint64_t blocks = 0;
    for (const char* name : {"data/one", "data/one/deep", "data/one/deep/file"}) {
      struct ::stat status {};
      EXPECT_EQ(::stat((m_host.Path() / name).c_str(), &status), 0);
      blocks += static_cast<std::uint64_t>(status.st_blocks);
    }
    return blocks;
  }
  /// Runs the scan program with `signals` waiting for it. Its exit value and what it says.
  [[nodiscard]] Outcome Scan(std::initializer_list<int> signals) const {
    const std::string said = m_root.Path() / "scan";
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::sigset_t all;
      ::sigfillset(&all);
      ::sigprocmask(SIG_SETMASK, &all, nullptr);
      for (const int number : signals) {
        ::raise(number);
      }
      const int out = ::open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (out < 0 || ::dup2(out, STDERR_FILENO) < 0 || ::chdir(m_root.AgentFolder().c_str()) != 0) {
        ::_exit(126);
      }
      ::execl("./qmt_ufss", "qmt_ufss", LockPath().c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, m_root.Read("scan")};
  }

  TempFolder m_host;
  ProductRoot m_root{"[Node]\nMessage Log Level=20\n"};
};

TEST_F(ScanTest, TheFirstRunsAtTheStartAndIsAnswered) {
  Daemon daemon(m_root, "errors");
  ASSERT_TRUE(WaitUntil([&] { return fs::exists(Results() / ":data:one"); })) << daemon.Errors();
  const json row = json::parse(AskDaemon(m_root, "get --json UFSS").output).at(0).at("rows").at(0);
  EXPECT_EQ(row.at("File System"), "/data/one");
  EXPECT_EQ(row.at("User ID"), ::geteuid());
  EXPECT_DOUBLE_EQ(row.at("Mbytes in Use"), static_cast<double>(Blocks()) / 2048);
  const json mount = json::parse(AskDaemon(m_root, "get --json FSL").output).at(0).at("rows").at(0);
  EXPECT_EQ(row.at("File System Size Mbytes"), mount.at("Total Size Mbytes"));

  EXPECT_FALSE(ShownBy(m_root, "config set 3 Never").starts_with("failed"));
  EXPECT_TRUE(WaitUntil([&] { return !fs::exists(Results()); }));
  // The first scan has shown its result, but may hold off the next one until it has ended.
  EXPECT_TRUE(WaitUntil([&] { return IsScanOver(); }));
  EXPECT_FALSE(ShownBy(m_root, "config set 3 03:30").starts_with("failed"));
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(Results() / ":data:one"); })) << "made anew";
  daemon.Signal(SIGTERM);
  EXPECT_EQ(daemon.ExitValue(), 0);
}

TEST_F(ScanTest, ARunningScanHoldsOffASecondOne) {
  // A scan as it is between its lock and its work.
  const pid_t running = ::fork();
  if (running == 0) {
    const int lock = ::open(LockPath().c_str(), O_RDWR | O_CREAT, 0666);
    if (lock < 0 || ::lockf(lock, F_TLOCK, 0) != 0 || ::chdir(m_root.AgentFolder().c_str()) != 0) {
      ::_exit(126);
    }
    ::raise(SIGSTOP);
    ::execl("./qmt_ufss", "qmt_ufss", LockPath().c_str(), "1", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(running, &status, WUNTRACED), running);
  ASSERT_TRUE(WIFSTOPPED(status));
  {
    Daemon daemon(m_root, "errors");
    EXPECT_TRUE(daemon.Says("Failed to access the file or directory (" + LockPath()));
    EXPECT_FALSE(fs::exists(Results()));
    const Outcome byHand = Scan({});
    EXPECT_EQ(byHand.exitValue, 1);
    EXPECT_NE(byHand.output.find("another scan runs"), std::string::npos) << byHand.output;
  }
  ::kill(running, SIGCONT);
  ASSERT_EQ(::waitpid(running, &status, 0), running);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(fs::exists(Results() / ":data:one")) << "it has outlasted the daemon";
}

TEST_F(ScanTest, SignalsAskForProgressAndBreakItOff) {
  const Outcome asked = Scan({SIGUSR1});
  EXPECT_EQ(asked.exitValue, 0);
  EXPECT_NE(asked.output.find("qmt_ufss: /data/one (1 of 1): "), std::string::npos) << asked.output;
  const std::string before = m_root.Read("opt/qmtrx/mond/agent/storage.d/:data:one");
  EXPECT_NE(before.find('\t' + std::to_string(Blocks()) + '\n'), std::string::npos) << before;
  std::ofstream(m_host.Path() / "data/one/more") << std::string(1'000'000, 'x');
  const Outcome stopped = Scan({SIGTERM});
  EXPECT_EQ(stopped.exitValue, 1);
  EXPECT_NE(stopped.output.find("broken off"), std::string::npos) << stopped.output;
  EXPECT_EQ(m_root.Read("opt/qmtrx/mond/agent/storage.d/:data:one"), before);
  EXPECT_FALSE(fs::exists(m_root.AgentFolder() / "storage.d.new"));
}

}  // namespace
