#include "tests/helpers/bpf/TaskKinds.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/fsuid.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

namespace {

void Spin(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
  }
}

[[noreturn]] void WaitForEver() {
  for (;;) {
    ::pause();
  }
}

/// Reads and writes a file of its own.
void Transfer() {
  std::array<char, 5000> bytes{};
  std::string name = "/tmp/qmt-task-XXXXXX";
  const int file = ::mkstemp(name.data());
  ::unlink(name.c_str());
  for (int count = 0; count < 7; ++count) {
    [[maybe_unused]] const ssize_t written = ::write(file, bytes.data(), bytes.size());
  }
  ::fsync(file);
  [[maybe_unused]] const ssize_t read = ::pread(file, bytes.data(), 77, 0);
  // What is written and never reaches the disk.
  [[maybe_unused]] const ssize_t more = ::write(file, bytes.data(), bytes.size());
  [[maybe_unused]] const int cut = ::ftruncate(file, 0);
}

void RunThreads() {
  for (int count = 0; count < 5; ++count) {
    std::thread([] {
      Spin(std::chrono::milliseconds(30));
      WaitForEver();
    }).detach();
  }
  std::vector<std::thread> ending;
  for (int count = 0; count < 3; ++count) {
    ending.emplace_back([] {
      Spin(std::chrono::milliseconds(30));
      Transfer();
    });
  }
  for (std::thread& thread : ending) {
    thread.join();
  }
}

void UseMemory() {
  constexpr std::size_t kSize = 3 << 20;
  for (const int kind : {MAP_SHARED, MAP_PRIVATE}) {
    void* memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, kind | MAP_ANONYMOUS, -1, 0);
    std::memset(memory, 1, kSize);
  }
  // What the peak remembers.
  void* gone = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  std::memset(gone, 1, kSize);
  ::munmap(gone, kSize);
}

void TakeTerminal() {
  ::setsid();
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ::grantpt(master);
  ::unlockpt(master);
  // The first terminal that the leader of a session opens becomes its own.
  [[maybe_unused]] const int terminal = ::open(::ptsname(master), O_RDWR);
}

void ReapChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    Spin(std::chrono::milliseconds(50));
    ::_exit(0);
  }
  ::waitpid(child, nullptr, 0);
}

void UsePolicy(int policy, int priority) {
  const struct ::sched_param parameter { priority };
  ::sched_setscheduler(0, policy, &parameter);
}

void EndLeader() {
  std::thread([] { WaitForEver(); }).detach();
  ::syscall(SYS_exit, 0);
}

char StateOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line, '\0');
  const std::size_t place = line.rfind(')');
  return place == std::string::npos ? '\0' : line[place + 2];
}

/// Whether it has the state and goes on in it: the wait for its parent may look the same.
bool HasSettled(pid_t process, char state) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (StateOf(process) != state) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace

const TaskKind kTaskKinds[18] = {
    {"Plain", [] {}},
    {"Busy", [] { Spin(std::chrono::hours(1)); }, '\0'},
    {"Threads", RunThreads},
    {"LeaderEnded", EndLeader, 'Z'},
    {"Zombie", [] { ::_exit(3); }, 'Z'},
    {"Stopped", [] { ::raise(SIGSTOP); }, 'T'},
    {"Traced",
     [] {
       ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
       ::raise(SIGSTOP);
     },
     't'},
    {"Renamed", [] { ::prctl(PR_SET_NAME, "a) R 1 (\n\xff\t"); }},
    {"LongName", [] { ::prctl(PR_SET_NAME, "123456789012345"); }},
    {"OtherIds",
     [] {
       [[maybe_unused]] int failed = ::setresgid(5, 6, 7);
       ::setfsgid(8);
       failed = ::setresuid(1, 0, 3);
       ::setfsuid(4);
     }},
    {"UserNamespace", [] { ::unshare(CLONE_NEWUSER); }},
    {"Nice", [] { ::setpriority(PRIO_PROCESS, 0, 13); }},
    {"Fifo", [] { UsePolicy(SCHED_FIFO, 7); }},
    {"IdlePolicy", [] { UsePolicy(SCHED_IDLE, 0); }},
    {"Terminal", TakeTerminal},
    {"Transfers", Transfer},
    {"Memory", UseMemory},
    {"ReapedChild", ReapChild},
};

KindProcess::KindProcess(const TaskKind& kind) {
  std::array<int, 2> ready{};
  EXPECT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
  m_pid = ::fork();
  if (m_pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Until it has told, it has not settled. One that never comes back from it has to do so before.
    if (kind.settled != 'S') {
      ::close(ready[1]);
    }
    kind.prepare();
    ::close(ready[1]);
    WaitForEver();
  }
  ::close(ready[1]);
  char none = '\0';
  EXPECT_EQ(::read(ready[0], &none, 1), 0);
  ::close(ready[0]);
  if (kind.settled == '\0') {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
  } else {
    EXPECT_TRUE(HasSettled(m_pid, kind.settled)) << kind.name << " is " << StateOf(m_pid);
  }
}

KindProcess::~KindProcess() {
  ::kill(m_pid, SIGKILL);
  ::waitpid(m_pid, nullptr, 0);
}
