// The clocks of a program that is linked with this file, which defines the C library's
// functions that tell the time or wait for it, so that all that reads a clock in the program, the
// libraries that it loads included, reads these. They stand still but for the tick of a read; when
// the event loop finds nothing ready they jump to its next timer.
//
// The program is led by two descriptors, whose numbers are the values of QMT_MOTION_ORDERS and
// QMT_MOTION_REPORTS. Whenever a pause is due it reports "at WALL BOOT" (seconds since the epoch,
// seconds since the boot) and takes orders, a line each, until one lets it go on:
//
//     wall SECONDS    the clock on the wall is set by so much
//     nudge MICROSECONDS  the same
//     leap            the present second of the wall's clock is told once more
//     run SECONDS     goes on, and pauses again after so long
//
// The end of the orders ends the program as SIGTERM does. QMT_MOTION_WALL and QMT_MOTION_BOOT are
// the two clocks at the start, in seconds.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "tests/motion/MovingHost.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kMicrosecond = 1'000;
// A loop that waits for a clock without a pause comes to its end by that.
constexpr std::int64_t kTickOfRead = 200;

std::int64_t Variable(const char* name, std::int64_t standard) {
  const char* text = ::getenv(name);
  return text == nullptr ? standard : std::strtoll(text, nullptr, 10);
}

/// Clocks may be read before any constructor of the program has run, hence made at the first use.
struct Clocks {
  std::atomic<std::int64_t> boot{Variable("QMT_MOTION_BOOT", 100'000) * kSecond};
  std::atomic<std::int64_t> wallAhead{Variable("QMT_MOTION_WALL", 1'700'000'000) * kSecond - boot};
  std::int64_t pause = boot;
  int orders = static_cast<int>(Variable("QMT_MOTION_ORDERS", -1));
  int reports = static_cast<int>(Variable("QMT_MOTION_REPORTS", -1));
};

Clocks& TheClocks() {
  static Clocks clocks;
  return clocks;
}

std::int64_t ReadBoot() { return TheClocks().boot += kTickOfRead; }
std::int64_t ReadWall() { return ReadBoot() + TheClocks().wallAhead; }

timespec SpecOf(std::int64_t nanoseconds) {
  std::int64_t seconds = nanoseconds / kSecond;
  if (nanoseconds % kSecond < 0) {
    --seconds;
  }
  return {.tv_sec = seconds, .tv_nsec = nanoseconds - seconds * kSecond};
}

/// False at the end of the orders.
bool ReadOrder(std::string& line) {
  line.clear();
  char letter = 0;
  for (;;) {
    const ssize_t got = ::read(TheClocks().orders, &letter, 1);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    if (letter == '\n') {
      return true;
    }
    line += letter;
  }
}

void Pause() {
  Clocks& clocks = TheClocks();
  const std::string report = "at " + std::to_string((clocks.boot + clocks.wallAhead) / kSecond) +
                             " " + std::to_string(clocks.boot / kSecond) + "\n";
  [[maybe_unused]] const ssize_t told = ::write(clocks.reports, report.data(), report.size());
  std::string order;
  while (ReadOrder(order)) {
    long long amount = 0;
    if (std::sscanf(order.c_str(), "wall %lld", &amount) == 1) {
      clocks.wallAhead += amount * kSecond;
    } else if (std::sscanf(order.c_str(), "nudge %lld", &amount) == 1) {
      clocks.wallAhead += amount * kMicrosecond;
    } else if (order == "leap") {
      clocks.wallAhead -= kSecond;
    } else if (std::sscanf(order.c_str(), "run %lld", &amount) == 1) {
      clocks.pause = clocks.boot + amount * kSecond;
      return;
    } else {
      std::fprintf(stderr, "motion: unknown order \"%s\"\n", order.c_str());
      std::abort();
    }
  }
  clocks.pause = std::numeric_limits<std::int64_t>::max();
  ::raise(SIGTERM);
}

/// Nothing is ready for so long (less than 0: ever).
void Jump(int milliseconds) {
  Clocks& clocks = TheClocks();
  const std::int64_t next = milliseconds < 0 ? std::numeric_limits<std::int64_t>::max()
                                             : clocks.boot + milliseconds * kMillisecond;
  if (next < clocks.pause) {
    clocks.boot = next;
  } else if (clocks.pause != std::numeric_limits<std::int64_t>::max()) {
    clocks.boot = std::max(clocks.boot.load(), clocks.pause);
    Pause();
  }
  motion::MoveHost(clocks.boot / kSecond);
}

int RealWait(int epoll, epoll_event* events, int most, int milliseconds) {
  return static_cast<int>(
      ::syscall(SYS_epoll_pwait, epoll, events, most, milliseconds, nullptr, 8));
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
      *time = SpecOf(ReadWall());
      return 0;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_BOOTTIME:
      *time = SpecOf(ReadBoot());
      return 0;
    default:
      return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  }
}

std::time_t time(std::time_t* place) noexcept {
  const std::time_t now = SpecOf(ReadWall()).tv_sec;
  if (place != nullptr) {
    *place = now;
  }
  return now;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
  const timespec now = SpecOf(ReadWall());
  *time = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
  return 0;
}

int sysinfo(struct sysinfo* info) noexcept {
  const int status = static_cast<int>(::syscall(SYS_sysinfo, info));
  info->uptime = TheClocks().boot / kSecond;
  return status;
}

/// The loop's library then gives its next timer to epoll_wait.
int timerfd_create(clockid_t /*clock*/, int /*flags*/) noexcept {
  errno = ENOSYS;
  return -1;
}

int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  const int ready = RealWait(epoll, events, most, 0);
  if (ready != 0 || milliseconds == 0) {
    return ready;
  }
  Jump(milliseconds);
  return 0;
}

/// Somebody else's work is waited for, which takes its own time.
int nanosleep(const timespec* wanted, timespec* left) {
  TheClocks().boot += wanted->tv_sec * kSecond + wanted->tv_nsec;
  return static_cast<int>(::syscall(SYS_nanosleep, wanted, left));
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* until) {
  using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
  static const auto real = reinterpret_cast<Wait>(::dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
  timespec now{};
  timespec end{};
  ::clock_gettime(clock, &now);
  ::syscall(SYS_clock_gettime, clock, &end);
  const std::int64_t left = (until->tv_sec - now.tv_sec) * kSecond + until->tv_nsec - now.tv_nsec;
  end = SpecOf(end.tv_sec * kSecond + end.tv_nsec + left);
  return real(condition, mutex, clock, &end);
}

}  // extern "C"
