#include <sched.h>
#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cstdio>
#include <system_error>

#include "collect/modern/process/TaskStream.h"
#include "tests/helpers/bpf/TaskFixture.h"

// What a record shows of each kind of process is compared with /proc by tests/e2e/iterator.py.

namespace {

class TaskIteratorTest : public BpfTest {
 protected:
  void SetUp() override {
    BpfTest::SetUp();
    if (!IsSkipped()) {
      const HelperEnd end = RunHelper({"load", "--pin", Mounted() + "/agent"});
      ASSERT_EQ(end.value, 0) << end.words;
    }
  }
  static std::string Pin() { return Mounted() + "/agent/tasks"; }
};

/// A child that has prepared itself and stopped; ended and reaped with the object.
class StoppedChild {
 public:
  explicit StoppedChild(const std::function<void()>& prepare = [] {}) : m_pid(::fork()) {
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      prepare();
      ::kill(::getpid(), SIGSTOP);
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(m_pid, &status, WUNTRACED), m_pid);
    EXPECT_TRUE(WIFSTOPPED(status));
  }
  ~StoppedChild() { End(); }
  StoppedChild(const StoppedChild&) = delete;
  StoppedChild& operator=(const StoppedChild&) = delete;

  [[nodiscard]] pid_t Pid() const { return m_pid; }
  /// What the kernel tells of it at its end.
  struct ::rusage End() {
    struct ::rusage usage {};
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      EXPECT_EQ(::wait4(m_pid, nullptr, 0, &usage), m_pid);
    }
    m_pid = -1;
    return usage;
  }

 private:
  pid_t m_pid;
};

void StartThreads() {
  for (int count = 0; count < 5; ++count) {
    std::thread([] { ::pause(); }).detach();
  }
}

TaskFigures LeaderOf(const std::vector<TaskFigures>& tasks, pid_t process) {
  const auto found = std::ranges::find(tasks, process, &TaskFigures::pid);
  EXPECT_NE(found, tasks.end()) << process;
  return found == tasks.end() ? TaskFigures{} : *found;
}

/// Whether a guard of the machine keeps even root from the process: it may keep the stream from it.
bool IsGuarded(pid_t process) {
  std::error_code failed;
  [[maybe_unused]] const auto target =
      std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/ns/pid", failed);
  return failed == std::errc::permission_denied;
}

std::vector<pid_t> ProcessesOfProc() {
  std::vector<pid_t> processes;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      processes.push_back(std::stoi(name));
    }
  }
  return processes;
}

/// What stands behind the state in /proc/PID/stat, from field 4 on.
std::vector<std::int64_t> StatOf(pid_t process) {
  const std::string stat = FileText("/proc/" + std::to_string(process) + "/stat");
  std::istringstream behindName(stat.substr(stat.rfind(')') + 1));
  std::vector<std::int64_t> fields;
  std::string word;
  for (behindName >> word; behindName >> word;) {
    fields.push_back(static_cast<std::int64_t>(std::stoull(word)));  // "-1" too
  }
  return fields;
}

/// Whether /proc tells it with the flag that a thread of the kernel has.
bool IsOfKernel(pid_t process) {
  const std::vector<std::int64_t> stat = StatOf(process);
  return stat.size() > 5 && (stat[9 - 4] & 0x00200000) != 0;
}

TEST_F(TaskIteratorTest, ThreadsOfTheKernelHaveNoMemory) {
  if (std::ranges::none_of(ProcessesOfProc(), IsOfKernel)) {
    GTEST_SKIP() << "no thread of the kernel is in this PID namespace";
  }
  const std::vector<TaskFigures> tasks = ReadTasks(Pin());
  EXPECT_GT(std::ranges::count_if(tasks, &TaskFigures::isKernel), 0);
  for (const TaskFigures& task : tasks) {
    if (task.isKernel != 0) {
      EXPECT_EQ(task.present & kTaskHasMemory, 0U) << task.name;
      EXPECT_EQ(task.anonymousPages + task.virtualPages, 0U) << task.name;
    }
  }
}

/// Becomes a process of other figures than its parent's in all that no record shows.
void BecomeSpecial() {
  ::setsid();
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ::grantpt(master);
  ::unlockpt(master);
  // The first terminal that the leader of a session opens becomes its own.
  [[maybe_unused]] const int terminal = ::open(::ptsname(master), O_RDWR);
  if (const pid_t child = ::fork(); child == 0) {
    for (const std::clock_t begin = std::clock(); std::clock() - begin < CLOCKS_PER_SEC / 10;) {
      [[maybe_unused]] const int file = ::open("/none", O_RDONLY);
    }
    ::_exit(0);
  } else {
    ::waitpid(child, nullptr, 0);
  }
  // What is written and never reaches the disk.
  std::string name = "/tmp/qmt-task-XXXXXX";
  const int file = ::mkstemp(name.data());
  ::unlink(name.c_str());
  [[maybe_unused]] const ssize_t written = ::write(file, std::string(5000, 'x').data(), 5000);
  [[maybe_unused]] const int cut = ::ftruncate(file, 0);
  if (::setresgid(5, 6, 7) == 0 && ::setresuid(1, 0, 3) == 0) {
    ::setfsgid(8);
    ::setfsuid(4);
  }
}

/// The inode of the process's folder in the unified tree of control groups; 0 where there is none.
std::uint64_t ControlGroupOf(pid_t process) {
  std::ifstream groups("/proc/" + std::to_string(process) + "/cgroup");
  std::string group;
  while (std::getline(groups, group) && !group.starts_with("0::/")) {
  }
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; !group.empty() && std::getline(mounts, line);) {
    std::istringstream words(line);
    std::string word;
    std::string root;
    std::string place;
    words >> word >> word >> word >> root >> place;
    struct ::stat folder {};
    if (root == "/" && line.find(" - cgroup2 ") != std::string::npos &&
        ::stat((place + group.substr(3)).c_str(), &folder) == 0) {
      return folder.st_ino;
    }
  }
  return 0;
}

TEST_F(TaskIteratorTest, TellsWhatNoRecordShows) {
  const StoppedChild child(BecomeSpecial);
  const TaskFigures task = LeaderOf(ReadTasks(Pin()), child.Pid());
  const std::vector<std::int64_t> stat = StatOf(child.Pid());
  ASSERT_GT(stat.size(), 13U);
  EXPECT_EQ(task.ttyGroup, stat[8 - 4]);
  constexpr std::uint64_t kTick = 10'000'000;
  EXPECT_EQ(task.childUtime / kTick, static_cast<std::uint64_t>(stat[16 - 4]));
  EXPECT_EQ(task.childStime / kTick, static_cast<std::uint64_t>(stat[17 - 4]));
  EXPECT_GT(task.childUtime + task.childStime, 0U);
  EXPECT_EQ(task.suid, 3U);
  EXPECT_EQ(task.sgid, 7U);
  EXPECT_EQ(task.fsuid, 4U);
  EXPECT_EQ(task.fsgid, 8U);
  if (const std::uint64_t inode = ControlGroupOf(child.Pid()); inode != 0) {
    EXPECT_EQ(task.controlGroup, inode);
  }
  if ((task.present & kTaskHasBytes) != 0) {
    std::ifstream io("/proc/" + std::to_string(child.Pid()) + "/io");
    std::string word;
    std::uint64_t cancelled = 0;
    while (io >> word >> cancelled) {
    }
    EXPECT_EQ(word, "cancelled_write_bytes:");
    EXPECT_EQ(task.cancelledBytes + task.deadCancelledBytes, cancelled);
  }
}

TEST_F(TaskIteratorTest, TellsSessionAndTerminalApartFromTheProcessGroup) {
  const StoppedChild group([] { ::setpgid(0, 0); });
  const StoppedChild session([] { ::setsid(); });
  const std::vector<TaskFigures> tasks = ReadTasks(Pin());
  const TaskFigures member = LeaderOf(tasks, group.Pid());
  EXPECT_EQ(member.pgrp, group.Pid());
  EXPECT_EQ(member.session, ::getsid(0));
  const std::vector<std::int64_t> stat = StatOf(group.Pid());
  ASSERT_GT(stat.size(), 4U);
  EXPECT_EQ(member.ttyGroup, stat[8 - 4]);
  EXPECT_EQ(LeaderOf(tasks, session.Pid()).ttyGroup, -1) << "a new session has no terminal";
}

TEST_F(TaskIteratorTest, HasEachThreadOnceAndUpwards) {
  const StoppedChild threads(StartThreads);
  const std::vector<pid_t> before = ProcessesOfProc();
  const std::vector<TaskFigures> tasks = ReadTasks(Pin());
  const std::vector<pid_t> after = ProcessesOfProc();
  std::set<pid_t> told;
  pid_t last = 0;
  for (const TaskFigures& task : tasks) {
    EXPECT_EQ(task.size, sizeof(TaskFigures));
    EXPECT_EQ(task.version, unsigned{QMT_TASK_FIGURES_VERSION});
    EXPECT_GT(task.pid, last);
    last = task.pid;
    if (task.pid == task.tgid) {
      told.insert(task.pid);
    }
  }
  for (const pid_t process : before) {
    if (std::find(after.begin(), after.end(), process) != after.end() && !IsGuarded(process)) {
      EXPECT_TRUE(told.contains(process)) << process;
    }
  }
  EXPECT_EQ(std::ranges::count(tasks, threads.Pid(), &TaskFigures::tgid), 6);
}

TEST_F(TaskIteratorTest, GivesWholeStructuresByReadsOfAnySize) {
  const StoppedChild child;
  for (const std::size_t step : {std::size_t{1}, sizeof(TaskFigures) - 1, sizeof(TaskFigures) + 1,
                                 std::size_t{4096}, std::size_t{1} << 20}) {
    // It may be told to have stopped before it has left its processor.
    EXPECT_TRUE(WaitUntil([&] {
      const TaskFigures expected = LeaderOf(ReadTasks(Pin()), child.Pid());
      const TaskFigures task = LeaderOf(ReadTasks(Pin(), step), child.Pid());
      return std::memcmp(&task, &expected, sizeof task) == 0;
    })) << step;
  }
}

TEST_F(TaskIteratorTest, MemoryOfAnEndedLeaderStandsWithTheOthers) {
  const StoppedChild child([] {
    std::thread([] {
      while (::kill(::getpid(), SIGSTOP) == 0) {
      }
    }).detach();
    ::syscall(SYS_exit, 0);
  });
  std::set<pid_t> told;
  // A stop may come before the leader's end.
  for (int tries = 0; tries < 1000; ++tries) {
    const std::vector<TaskFigures> tasks = ReadTasks(Pin());
    if (TaskStateLetter(LeaderOf(tasks, child.Pid()).state) != 'Z') {
      ::kill(child.Pid(), SIGCONT);
      continue;
    }
    for (const TaskFigures& task : tasks) {
      if (task.tgid == child.Pid()) {
        const bool isLeader = task.pid == task.tgid;
        EXPECT_EQ((task.present & kTaskHasMemory) != 0, !isLeader) << task.pid;
        EXPECT_EQ(task.virtualPages != 0, !isLeader) << task.pid;
        told.insert(task.pid);
      }
    }
    break;
  }
  EXPECT_EQ(told.size(), 2U);
}

// /proc has no sum of them; the kernel gives it to who reaps the process.
TEST_F(TaskIteratorTest, KeepsTheSwitchesOfEndedThreads) {
  constexpr std::uint64_t kThreads = 3;
  constexpr std::uint64_t kWaits = 40;
  StoppedChild child([] {
    for (std::uint64_t count = 0; count < kThreads; ++count) {
      std::thread([] {
        for (std::uint64_t wait = 0; wait < kWaits; ++wait) {
          std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
      }).join();
    }
  });
  const TaskFigures task = LeaderOf(ReadTasks(Pin()), child.Pid());
  const struct ::rusage usage = child.End();
  EXPECT_GE(task.deadVoluntarySwitches, kThreads * kWaits);
  constexpr std::uint64_t kOfItsEnd = 3;
  const std::uint64_t told = task.voluntarySwitches + task.deadVoluntarySwitches;
  EXPECT_LE(told, static_cast<std::uint64_t>(usage.ru_nvcsw));
  EXPECT_GE(told + kOfItsEnd, static_cast<std::uint64_t>(usage.ru_nvcsw));
}

TEST_F(TaskIteratorTest, CountsTheProgramsThatAProcessBecomes) {
  std::vector<std::uint64_t> ids;
  for (const char* command : {"kill -STOP $$", "exec sh -c 'kill -STOP $$'"}) {
    const StoppedChild child(
        [command] { ::execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr)); });
    ids.push_back(LeaderOf(ReadTasks(Pin()), child.Pid()).selfExecId);
  }
  EXPECT_EQ(ids[1], ids[0] + 1);
}

/// Reads the processes of a PID namespace of its own; whether all numbers are those of that place.
bool IsToldFromBelow(const std::string& pin) {
  const StoppedChild leader([] { ::setsid(); });
  const StoppedChild threads(StartThreads);
  const std::vector<TaskFigures> tasks = ReadTasks(pin);
  const TaskFigures task = LeaderOf(tasks, leader.Pid());
  // Itself and the two, one of which has six threads.
  return tasks.size() == 8 && tasks.front().pid == 1 && tasks.front().ppid == 0 &&
         task.tgid == leader.Pid() && task.pgrp == leader.Pid() && task.session == leader.Pid() &&
         task.ppid == 1 && std::ranges::count(tasks, threads.Pid(), &TaskFigures::tgid) == 6;
}

TEST_F(TaskIteratorTest, TellsTheNumbersOfTheReadersNamespace) {
  const pid_t outer = ::fork();
  if (outer == 0) {
    if (::unshare(CLONE_NEWPID) != 0) {
      ::_exit(3);
    }
    const pid_t inner = ::fork();
    if (inner == 0) {
      ::_exit(IsToldFromBelow(Pin()) ? 0 : 1);
    }
    int status = 0;
    ::waitpid(inner, &status, 0);
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 4);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(outer, &status, 0), outer);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0);
}

TEST_F(TaskIteratorTest, WalksThousandsInMilliseconds) {
  std::vector<pid_t> children;
  for (int count = 0; count < 1000; ++count) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::pause();
      ::_exit(0);
    }
    children.push_back(child);
  }
  const auto begin = std::chrono::steady_clock::now();
  const std::vector<TaskFigures> tasks = ReadTasks(Pin());
  const auto time = std::chrono::steady_clock::now() - begin;
  const double milliseconds = std::chrono::duration<double, std::milli>(time).count();
  std::printf("%zu threads, %zu bytes each, in %.2f ms\n", tasks.size(), sizeof(TaskFigures),
              milliseconds);
  std::set<pid_t> told;
  for (const TaskFigures& task : tasks) {
    told.insert(task.pid);
  }
  for (const pid_t child : children) {
    EXPECT_TRUE(told.contains(child)) << child;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
}

}  // namespace
