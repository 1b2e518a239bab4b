#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/helpers/bpf/ProcFigures.h"
#include "tests/helpers/bpf/TaskFixture.h"
#include "tests/helpers/bpf/TaskKinds.h"

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

/// Whether a guard of the machine keeps even root from the process: it may keep the stream from it.
bool IsGuarded(pid_t process) {
  std::error_code failed;
  [[maybe_unused]] const auto target =
      std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/ns/pid", failed);
  return failed == std::errc::permission_denied;
}

/// What is different in the stream from /proc read before and after it.
std::string DifferencesOf(const std::string& pin, pid_t process) {
  const ProcessFigures before = FiguresFromProc(process);
  const ProcessFigures now = FiguresFromStream(ReadTasks(pin), process);
  return Differences(before, now, FiguresFromProc(process));
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

class TaskKindTest : public TaskIteratorTest, public ::testing::WithParamInterface<TaskKind> {};

TEST_P(TaskKindTest, TellsWhatProcTells) {
  const KindProcess process(GetParam());
  EXPECT_EQ(DifferencesOf(Pin(), process.Pid()), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, TaskKindTest, ::testing::ValuesIn(kTaskKinds),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(TaskIteratorTest, TellsOfThreadsOfTheKernel) {
  constexpr pid_t kThreadOfThreads = 2;
  EXPECT_EQ(DifferencesOf(Pin(), kThreadOfThreads), "");
  for (const TaskFigures& task : ReadTasks(Pin())) {
    if (task.isKernel != 0) {
      EXPECT_EQ(task.present & kTaskHasMemory, 0U) << task.name;
      EXPECT_EQ(task.anonymousPages + task.virtualPages, 0U) << task.name;
    }
  }
}

TEST_F(TaskIteratorTest, HasEachThreadOnceAndUpwards) {
  const KindProcess threads(kTaskKinds[2]);
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
  EXPECT_EQ(std::count_if(tasks.begin(), tasks.end(),
                          [&](const TaskFigures& task) { return task.tgid == threads.Pid(); }),
            6);
}

TEST_F(TaskIteratorTest, GivesWholeStructuresByReadsOfAnySize) {
  const KindProcess process(kTaskKinds[0]);
  for (const std::size_t step : {std::size_t{1}, sizeof(TaskFigures) - 1, sizeof(TaskFigures) + 1,
                                 std::size_t{4096}, std::size_t{1} << 20}) {
    const ProcessFigures figures = FiguresFromStream(ReadTasks(Pin(), step), process.Pid());
    EXPECT_EQ(Differences(FiguresFromProc(process.Pid()), figures, FiguresFromProc(process.Pid())),
              "")
        << step;
  }
}

TEST_F(TaskIteratorTest, MemoryOfAnEndedLeaderStandsWithTheOthers) {
  const KindProcess process(kTaskKinds[3]);
  for (const TaskFigures& task : ReadTasks(Pin())) {
    if (task.tgid == process.Pid()) {
      const bool isLeader = task.pid == task.tgid;
      EXPECT_EQ((task.present & kTaskHasMemory) != 0, !isLeader) << task.pid;
      EXPECT_EQ(task.virtualPages != 0, !isLeader) << task.pid;
    }
  }
}

// /proc has no sum of them; the kernel gives it to who reaps the process.
TEST_F(TaskIteratorTest, KeepsTheSwitchesOfEndedThreads) {
  constexpr std::uint64_t kThreads = 3;
  constexpr std::uint64_t kWaits = 40;
  const pid_t child = ::fork();
  if (child == 0) {
    for (std::uint64_t count = 0; count < kThreads; ++count) {
      std::thread([] {
        for (std::uint64_t wait = 0; wait < kWaits; ++wait) {
          std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
      }).join();
    }
    ::raise(SIGSTOP);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
  const std::vector<TaskFigures> tasks = ReadTasks(Pin());
  ::kill(child, SIGKILL);
  struct ::rusage usage {};
  ASSERT_EQ(::wait4(child, &status, 0, &usage), child);
  const auto task = std::find_if(tasks.begin(), tasks.end(),
                                 [child](const TaskFigures& one) { return one.pid == child; });
  ASSERT_NE(task, tasks.end());
  EXPECT_GE(task->deadVoluntarySwitches, kThreads * kWaits);
  constexpr std::uint64_t kOfItsEnd = 3;
  const std::uint64_t told = task->voluntarySwitches + task->deadVoluntarySwitches;
  EXPECT_LE(told, static_cast<std::uint64_t>(usage.ru_nvcsw));
  EXPECT_GE(told + kOfItsEnd, static_cast<std::uint64_t>(usage.ru_nvcsw));
}

TEST_F(TaskIteratorTest, CountsTheProgramsThatAProcessBecomes) {
  std::vector<std::uint64_t> ids;
  for (const char* command : {"kill -STOP $$", "exec sh -c 'kill -STOP $$'"}) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::execl("/bin/sh", "sh", "-c", command, nullptr);
      ::_exit(127);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    for (const TaskFigures& task : ReadTasks(Pin())) {
      if (task.pid == child) {
        ids.push_back(task.selfExecId);
      }
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
  }
  ASSERT_EQ(ids.size(), 2U);
  EXPECT_EQ(ids[1], ids[0] + 1);
}

/// Compares all processes in a PID namespace of its own with the /proc of that place. The exit
/// value.
int LookFromBelow(const std::string& pin) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("proc", "/proc", "proc", 0, nullptr) != 0) {
    return 2;
  }
  const KindProcess plain(kTaskKinds[0]);
  const KindProcess threads(kTaskKinds[2]);
  const KindProcess terminal(kTaskKinds[14]);
  std::string told;
  for (const pid_t process : {plain.Pid(), threads.Pid(), terminal.Pid()}) {
    told += DifferencesOf(pin, process);
  }
  const std::vector<TaskFigures> tasks = ReadTasks(pin);
  // Itself and the three, one of which has six threads.
  if (tasks.size() != 9 || tasks.front().pid != 1 || tasks.front().ppid != 0) {
    told += std::to_string(tasks.size()) + " threads\n";
  }
  std::fputs(told.c_str(), stderr);
  return told.empty() ? 0 : 1;
}

TEST_F(TaskIteratorTest, TellsTheNumbersOfTheReadersNamespace) {
  const pid_t outer = ::fork();
  if (outer == 0) {
    if (::unshare(CLONE_NEWPID) != 0) {
      ::_exit(3);
    }
    const pid_t inner = ::fork();
    if (inner == 0) {
      ::_exit(LookFromBelow(Pin()));
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
