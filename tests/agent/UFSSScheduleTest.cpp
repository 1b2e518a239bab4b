#include "agent/ConfigNames.h"
#include "tests/agent/ConfigFixture.h"

namespace {

namespace fs = std::filesystem;

std::time_t g_now = 0;

class UFSSScheduleTest : public ConfigFixture {
 protected:
  void SetUp() override {
    SwitchUFSSOn();
    g_now = At(12, 30, 40);
    Os().time = [](std::time_t*) { return g_now; };
  }
  /// A moment of one day in spring, local time.
  static std::time_t At(int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = 123;
    parts.tm_mon = 4;
    parts.tm_mday = 17;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
  }
  void TearDown() override { ::signal(SIGCHLD, SIG_DFL); }
  /// Here is no program, which each start tells.
  static std::size_t Starts() {
    return Node().LinesWith("OS API (execl). (en=2, arg1=./qmt_ufss").size();
  }
  std::string LockPath() const {
    return (m_root.Path() / "opt/qmtrx/mond/qmt_ufss_.lock").string();
  }
  /// Waits until the scan, a script, has written `name` whole.
  std::string Written(const std::string& name) const {
    EXPECT_TRUE(WaitUntil([&] { return fs::exists(m_root.Path() / name); }));
    return m_root.Read(name);
  }
};

TEST_F(UFSSScheduleTest, TheScanRunsDailyAtItsTimeWithTheSecondsOfNow) {
  const struct {
    const char* time;
    std::time_t first;
  } cases[] = {
      {"12:30", At(12, 30, 40)},       {"12:31", At(12, 31, 40)},
      {"23:59xyz", At(23, 59, 40)},    {"12:29", At(12, 29, 40) + 86400},
      {"00:00", At(0, 0, 40) + 86400},
  };
  Ini(kUFSSTimeLabel) = "3:3";
  ASSERT_EQ(0, Init());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.time);
    Node().lines.clear();
    ASSERT_EQ(0, Update(kUFSSTimeId, std::string(row.time)));
    ASSERT_EQ(1U, Node().scheduled.size()) << "the former event is still there";
    EXPECT_EQ(row.first, Node().scheduled[0].firstTime);
    EXPECT_EQ(86400, Node().scheduled[0].period);
    EXPECT_EQ(-1, Node().scheduled[0].repeat);
    EXPECT_STREQ("UFSSEvent", Node().scheduled[0].event->IsA());
    EXPECT_EQ(
        1U,
        Node().LinesWith(std::string("Scheduling UFSS collection event for: ") + row.time).size());
  }
  Node().lines.clear();
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("00:00")));
  EXPECT_TRUE(Node().LinesWith("Scheduling").empty());
}

TEST_F(UFSSScheduleTest, AScanThatWasMissedStartsAtOnce) {
  Ini(kUFSSTimeLabel) = "12:31";
  ASSERT_EQ(0, Init());
  EXPECT_EQ(1U, Starts()) << "there are no results at all";
  fs::create_directory("storage.d");
  for (const auto& [age, starts] : {std::pair<long, std::size_t>{0, 0}, {1, 1}}) {
    const timespec modified{At(12, 31, 40) - 86400 - age, 0};
    const std::array times{modified, modified};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, "storage.d", times.data(), 0));
    Node().lines.clear();
    MakeAgent(0);
    ASSERT_EQ(0, Init());
    EXPECT_EQ(starts, Starts()) << age;
  }
}

TEST_F(UFSSScheduleTest, TheScanGetsItsLockAndNothingElseOfTheAgent) {
  std::ofstream("qmt_ufss") << "#!/bin/sh\n"
                               "{ echo \"$@\"; nice; umask; ls -l /proc/self/fd;"
                               " sed -n 's/^SigIgn:\t0*/ignored /p' /proc/self/status; } >out.$$\n"
                               "mv out.$$ out.$2\nread line <pipe\n";
  fs::permissions("qmt_ufss", fs::perms::owner_all);
  ASSERT_EQ(::mkfifo("pipe", 0600), 0);
  std::ofstream("secret").close();
  const int secret = ::open("secret", O_RDONLY);  // no CLOEXEC
  ::signal(SIGTERM, SIG_IGN);
  const ::mode_t mask = ::umask(027);
  ASSERT_EQ(0, Init());
  ::umask(mask);
  ::signal(SIGTERM, SIG_DFL);
  ::close(secret);
  const std::string first = Written("out.1");
  EXPECT_EQ(first.find(LockPath() + " 1\n19\n0027\n"), 0U) << first;
  EXPECT_NE(first.find("-> " + LockPath() + "\n"), std::string::npos) << first;
  EXPECT_NE(first.find("ignored \n"), std::string::npos) << first;
  EXPECT_EQ(first.find("secret"), std::string::npos) << first;
  EXPECT_EQ(Starts(), 0U);

  // While it runs, a second one finds the lock taken.
  UFSSEvent event;
  EXPECT_EQ(0, m_agent->NotifyEvent(&event));
  EXPECT_EQ(Node().LinesWith("Failed to access the file or directory (" + LockPath()).size(), 1U);
  std::ofstream("pipe") << "end\n";
  EXPECT_TRUE(WaitUntil([&] { return fs::exists("out.") || m_agent->NotifyEvent(&event) < 0; }));
  EXPECT_EQ(Written("out.").substr(0, LockPath().size() + 1), LockPath() + "\n")
      << "no further argument";
  std::ofstream("pipe") << "end\n";
}

TEST_F(UFSSScheduleTest, AChildThatDoesNotBecomeTheScanEndsWithNine) {
  static pid_t child = -1;
  Os().fork = [] { return child = ::fork(); };
  sigset_t ends;
  sigset_t before;
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &ends, &before);  // the end is for the test
  const auto exitValue = [] {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(0, Init());
  EXPECT_EQ(9, exitValue()) << "no program";
  fs::create_directory(LockPath());
  UFSSEvent event;
  EXPECT_EQ(0, m_agent->NotifyEvent(&event));
  EXPECT_EQ(9, exitValue()) << "no lock";
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(UFSSScheduleTest, AFailedStartIsTold) {
  ASSERT_EQ(0, Init());
  EXPECT_FALSE(fs::exists(LockPath())) << "removed where there is no program";
  fs::create_directory(LockPath());
  UFSSEvent event;
  EXPECT_EQ(0, m_agent->NotifyEvent(&event));
  EXPECT_EQ(Node().LinesWith("Failed to access the file or directory (" + LockPath()).size(), 1U);
  Os().fork = [] {
    errno = EAGAIN;
    return pid_t{-1};
  };
  EXPECT_EQ(0, m_agent->NotifyEvent(&event));
  for (const char* line :
       {"QMTX10150-W An error occurred in an OS API (fork). (en=11, arg1=qmt_ufss",
        "QMTX10300-W An attempt to collect a record failed. (record=PD_UFSS)",
        "Failed to collect the record. (record=UFSS, detail=Fail to create qmt_ufss process.)",
        "Unable to start up UFSS data collection script."}) {
    EXPECT_EQ(Node().LinesWith(line).size(), 1U) << line;
  }
}

TEST_F(UFSSScheduleTest, NeverEndsTheScansAndRemovesTheirResults) {
  ASSERT_EQ(0, Init());
  ASSERT_EQ(1U, Node().scheduled.size());
  fs::create_directories("storage.d/deep");
  fs::create_directory("elsewhere");
  fs::create_directory_symlink("../elsewhere", "storage.d/link");
  std::ofstream("storage.d/deep/file") << "x";
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("NEVER")));
  EXPECT_TRUE(Node().scheduled.empty());
  EXPECT_FALSE(fs::exists("storage.d"));
  EXPECT_TRUE(fs::exists("elsewhere"));
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("01:00")));
  EXPECT_EQ(1U, Node().scheduled.size());
}

}  // namespace
