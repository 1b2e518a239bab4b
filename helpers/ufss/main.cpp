#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "helpers/ufss/Mounts.h"
#include "helpers/ufss/OwnerWalk.h"
#include "helpers/ufss/Results.h"
#include "support/Capabilities.h"
#include "support/HostPaths.h"

// The agent's scan of the local file systems: sums what each owner has on them and leaves the sums
// in ./storage.d, a file per file system.
//
//   qmt_ufss LOCK [1]      LOCK: the file whose lock keeps a second scan out; 1: the agent's first
//
// SIGTERM breaks it off, and the results of the last scan stay. SIGUSR1 has it tell its progress on
// standard error, where it also goes as it comes if that is a terminal.

namespace {

constexpr int kUsage = 2;
constexpr int kFailed = 1;
constexpr int kLowestPriority = 19;
// From ioprio_set(2); the kernel's own header is no C++ in every version.
constexpr int kIoPriorityWhoProcess = 1;
constexpr int kIoPriorityIdle = 3;
constexpr int kIoPriorityClassShift = 13;
constexpr int kIoPriorityLowestLevel = 7;
constexpr double kBlocksPerMbyte = 2048.0;

volatile std::sig_atomic_t g_isStopped = 0;
volatile std::sig_atomic_t g_isAsked = 0;

void HandleSignals() {
  struct ::sigaction action {};
  action.sa_flags = SA_RESTART;
  action.sa_handler = [](int) { g_isStopped = 1; };
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    ::sigaction(number, &action, nullptr);
  }
  action.sa_handler = [](int) { g_isAsked = 1; };
  ::sigaction(SIGUSR1, &action, nullptr);
  // Whoever starts it may have them blocked.
  ::sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Takes the lock; the agent's child, which this program may have been, has it already. The
/// descriptor stays open, as closing any of the file gives the lock up.
bool TakeLock(const char* path) {
  const int lock = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock < 0) {
    std::fprintf(stderr, "qmt_ufss: %s: %s\n", path, std::strerror(errno));
    return false;
  }
  if (::lockf(lock, F_TLOCK, 0) != 0) {
    std::fprintf(stderr, "qmt_ufss: %s: another scan runs\n", path);
    return false;
  }
  return true;
}

/// Gives way to everything else on the processor and on the disks.
void LowerPriority() {
  [[maybe_unused]] const int ignored = ::nice(kLowestPriority);
  ::syscall(SYS_ioprio_set, kIoPriorityWhoProcess, 0,
            (kIoPriorityIdle << kIoPriorityClassShift) | kIoPriorityLowestLevel);
}

/// Tells how far the scan is, when asked for and once a second on a terminal.
class ProgressLine {
 public:
  explicit ProgressLine(std::size_t count) : m_count(count) {}

  void Begin(const std::string& mountPoint) {
    m_mountPoint = &mountPoint;
    ++m_place;
  }
  void Show(const WalkProgress& progress) {
    const auto now = std::chrono::steady_clock::now();
    const bool isDue = m_isTerminal && now >= m_next;
    if (g_isAsked == 0 && !isDue) {
      return;
    }
    m_next = now + std::chrono::seconds(1);
    std::fprintf(stderr, "%sqmt_ufss: %s (%zu of %zu): %llu files, %llu directories, %.0f Mbytes%s",
                 m_isTerminal ? "\r\033[K" : "", m_mountPoint->c_str(), m_place, m_count,
                 static_cast<unsigned long long>(progress.files),
                 static_cast<unsigned long long>(progress.directories),
                 static_cast<double>(progress.blocks) / kBlocksPerMbyte,
                 m_isTerminal && g_isAsked == 0 ? "" : "\n");
    g_isAsked = 0;
  }

 private:
  const bool m_isTerminal = ::isatty(STDERR_FILENO) == 1;
  std::size_t m_count;
  std::size_t m_place = 0;
  const std::string* m_mountPoint = nullptr;
  std::chrono::steady_clock::time_point m_next;
};

/// Walks one file system and writes its results. One that can't be read at all is left out. False
/// if the scan is to end.
bool Scan(const LocalMount& mount, ProgressLine& line, Results& results) {
  if (!Results::CanName(mount.mountPoint)) {
    std::fprintf(stderr, "qmt_ufss: %s: the name is too long for a file of results\n",
                 mount.mountPoint.c_str());
    return true;
  }
  OwnerBlocks owners;
  WalkProgress progress;
  line.Begin(mount.mountPoint);
  const bool isWhole = SumByOwner(mount.path, owners, progress, [&](const WalkProgress& now) {
    line.Show(now);
    return g_isStopped == 0;
  });
  if (g_isStopped != 0) {
    return false;
  }
  if (!isWhole) {
    std::fprintf(stderr, "qmt_ufss: %s can't be read\n", mount.mountPoint.c_str());
    return true;
  }
  if (progress.unread != 0) {
    std::fprintf(stderr, "qmt_ufss: %s: %llu directories could not be read\n",
                 mount.mountPoint.c_str(), static_cast<unsigned long long>(progress.unread));
  }
  return results.Write(mount.mountPoint, owners);
}

/// The exit value.
int ScanAll() {
  const std::string table = HostMountTable();
  std::vector<LocalMount> mounts;
  if (!FindLocalMounts(table, mounts)) {
    std::fprintf(stderr, "qmt_ufss: %s: %s\n", table.c_str(), std::strerror(errno));
    return kFailed;
  }
  Results results("./storage.d");
  if (!results.Prepare()) {
    return kFailed;
  }
  ProgressLine line(mounts.size());
  for (const LocalMount& mount : mounts) {
    if (!Scan(mount, line, results)) {
      std::fprintf(stderr, "qmt_ufss: broken off; the former results stay\n");
      return kFailed;
    }
  }
  return results.Publish() ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3 || (argc == 3 && std::string_view(argv[2]) != "1")) {
    std::fprintf(stderr, "usage: qmt_ufss LOCK [1]\n");
    return kUsage;
  }
  // Of the agent's rights the walk needs the one that opens every folder.
  if (!KeepCapabilities(kReadEverything)) {
    std::fprintf(stderr, "qmt_ufss: capabilities can't be dropped: %s\n", std::strerror(errno));
    return kFailed;
  }
  HandleSignals();
  if (!TakeLock(argv[1])) {
    return kFailed;
  }
  LowerPriority();
  return ScanAll();
}
