#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <limits>
#include <utility>

#include "support/Uninterrupted.h"

namespace {

/// Calls `each` for every descriptor from `first` on that may be open.
template <class Each>
void ForEachDescriptor(int first, const Each& each) {
  constexpr rlim_t kMostDescriptors = 1 << 16;
  struct ::rlimit limit {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const int end = static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
  for (int descriptor = first; descriptor < end; ++descriptor) {
    each(descriptor);
  }
}

}  // namespace

void ResetSignals() {
  struct ::sigaction normal {};
  normal.sa_handler = SIG_DFL;
  for (const int number : {SIGPIPE, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPWR, SIGALRM, SIGCHLD,
                           SIGXFSZ, SIGUSR1, SIGUSR2}) {
    ::sigaction(number, &normal, nullptr);
  }
  ::sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void EndChild(::pid_t& pid) {
  ::kill(pid, SIGKILL);
  Uninterrupted([&] { return ::waitpid(pid, nullptr, 0); });
  pid = 0;
}

void ReapChild(::pid_t& pid, int process, std::chrono::steady_clock::time_point until) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      until - std::chrono::steady_clock::now());
  ::pollfd end{process, POLLIN, 0};
  const int patience = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  Uninterrupted([&] { return ::poll(&end, 1, patience); });
  ::waitpid(std::exchange(pid, 0), nullptr, WNOHANG);
}

void CloseOthers(int kept) {
  const auto place = static_cast<unsigned>(kept);
  constexpr unsigned kLast = std::numeric_limits<unsigned>::max();
  if ((kept == 0 || ::close_range(0, place - 1, 0) == 0) &&
      ::close_range(place + 1, kLast, 0) == 0) {
    return;
  }
  ForEachDescriptor(0, [kept](int descriptor) {
    if (descriptor != kept) {
      ::close(descriptor);
    }
  });
}

void KeepAcrossExec(int kept) {
  constexpr int kFirst = STDERR_FILENO + 1;
  if (::close_range(kFirst, std::numeric_limits<unsigned>::max(), CLOSE_RANGE_CLOEXEC) != 0) {
    ForEachDescriptor(kFirst, [](int descriptor) { ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); });
  }
  ::fcntl(kept, F_SETFD, 0);
}

bool FailurePipe::Open() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    return false;
  }
  m_parent = Descriptor(ends[0]);
  m_child = Descriptor(ends[1]);
  return true;
}

void FailurePipe::Write(const void* failure, std::size_t size) const {
  [[maybe_unused]] const ssize_t ignored =
      Uninterrupted([&] { return ::write(m_child.Get(), failure, size); });
}

bool FailurePipe::Read(void* failure, std::size_t size) const {
  const ssize_t got = Uninterrupted([&] { return ::read(m_parent.Get(), failure, size); });
  return got == static_cast<ssize_t>(size);
}
