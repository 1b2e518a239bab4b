#include "local/loop/ServiceStatus.h"

#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

/// Another process. It runs `action`, tells that it has and then waits until it is killed.
class OtherProcess {
 public:
  template <class Action>
  explicit OtherProcess(Action action) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    m_pid = ::fork();
    if (m_pid == 0) {
      const char result = action() ? 'y' : 'n';
      if (::write(ends[1], &result, 1) == 1) {
        ::pause();
      }
      ::_exit(1);
    }
    ::close(ends[1]);
    char result = 0;
    EXPECT_EQ(::read(ends[0], &result, 1), 1);
    EXPECT_EQ(result, 'y');
    ::close(ends[0]);
  }
  ~OtherProcess() { Kill(); }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  [[nodiscard]] pid_t Pid() const { return m_pid; }
  void Kill() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
      m_pid = 0;
    }
  }

 private:
  pid_t m_pid = 0;
};

}  // namespace

TEST(ServiceStatus, ASecondProcessIsRefusedUntilTheFirstHasGone) {
  const TempFolder folder;
  ServiceStatus first(folder.Path());
  OtherProcess holder([&] { return first.Initialize('U', 'A', 'D') == 0; });
  ServiceStatus second(folder.Path());
  EXPECT_EQ(second.Initialize('U', 'A', 'D'), -85);
  EXPECT_THAT(second.Reason(), HasSubstr(folder.Path().string() + "/run/UAD.lock"));
  EXPECT_THAT(second.Reason(), HasSubstr("process " + std::to_string(holder.Pid())));
  EXPECT_EQ(folder.Read("run/UAD.lock"), std::to_string(holder.Pid()) + '\n');
  short status = 0;
  EXPECT_NE(second.SetStatus(82, "main.cpp", 1, status), 0);

  ServiceStatus otherService(folder.Path());
  EXPECT_EQ(otherService.Initialize('X', 'Y', 'Z'), 0);

  holder.Kill();
  EXPECT_EQ(second.Initialize('U', 'A', 'D'), 0);
  EXPECT_EQ(second.Reason(), "");
  EXPECT_EQ(second.SetStatus(82, "main.cpp", 1, status), 0);
  EXPECT_EQ(status, 82);
  EXPECT_EQ(second.Status(), 82);
  EXPECT_EQ(folder.Read("run/UAD.lock"), std::to_string(::getpid()) + '\n');
}

TEST(ServiceStatus, TerminateFreesTheServiceThoughAChildLives) {
  const TempFolder folder;
  ServiceStatus first(folder.Path());
  ASSERT_EQ(first.Initialize('U', 'A', 'D'), 0);
  const OtherProcess child([] { return true; });
  first.Terminate();
  first.Terminate();
  EXPECT_EQ(folder.Read("run/UAD.lock"), "");
  ServiceStatus next(folder.Path());
  EXPECT_EQ(next.Initialize('U', 'A', 'D'), 0) << next.Reason();
}

TEST(ServiceStatus, OtherFailuresTellTheirReason) {
  const TempFolder folder;
  const fs::path run = folder.Path() / "run";
  const auto expectFailure = [&](const char* reason) {
    ServiceStatus status(folder.Path());
    EXPECT_EQ(status.Initialize('U', 'A', 'D'), ServiceStatus::kFailed);
    EXPECT_THAT(status.Reason(), HasSubstr(reason));
    EXPECT_THAT(status.Reason(), HasSubstr(run.string()));
  };
  std::ofstream(run) << "no folder";
  expectFailure("Not a directory");
  fs::remove(run);
  fs::create_directory(run);
  ASSERT_EQ(::mkfifo((run / "UAD.lock").c_str(), 0600), 0);
  expectFailure("no regular file");
  fs::remove(run / "UAD.lock");
  fs::create_symlink("elsewhere", run / "UAD.lock");
  expectFailure("can't be opened");

  ServiceStatus status(folder.Path());
  EXPECT_EQ(status.Initialize('.', '.', '/'), ServiceStatus::kFailed);
  EXPECT_THAT(status.Reason(), HasSubstr("three letters"));
  EXPECT_EQ(ServiceStatus(folder.Path() / "none").Initialize('U', 'A', 'D'),
            ServiceStatus::kFailed);
}
