#include "tests/faults/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "tests/faults/Allocator.h"

namespace {

struct FailingSystemCall {
  const char* name;
  int code;
};

constexpr FailingSystemCall kFailingSystemCalls[] = {{"open", EMFILE},
                                                     {"read", EIO},
                                                     {"write", ENOSPC},
                                                     {"fsync", EIO},
                                                     {"rename", EIO},
                                                     {"socket", EMFILE},
                                                     {"bind", EADDRINUSE},
                                                     {"listen", EADDRINUSE},
                                                     {"getsockname", ENOBUFS},
                                                     {"setsockopt", ENOMEM},
                                                     {"accept4", EMFILE},
                                                     {"connect", ECONNREFUSED},
                                                     {"recv", ECONNRESET},
                                                     {"send", EPIPE},
                                                     {"sendmsg", EPIPE},
                                                     {"sendfile", EIO},
                                                     {"poll", ENOMEM},
                                                     {"epoll_create1", EMFILE},
                                                     {"epoll_ctl (add)", ENOSPC},
                                                     {"epoll_wait", EINTR},
                                                     {"timerfd_create", EMFILE},
                                                     {"eventfd", EMFILE},
                                                     {"pthread_create", EAGAIN}};
constexpr std::size_t kCalls = std::size(kFailingSystemCalls);

std::atomic<bool> g_isArmed = false;
std::atomic<int> g_failingCall = -1;
std::atomic<std::size_t> g_failingSystemPlace = 0;
std::atomic<std::size_t> g_systemCounts[kCalls];

/// The place in the table.
consteval int CallOf(std::string_view name) {
  int call = 0;
  while (kFailingSystemCalls[call].name != name) {
    ++call;
  }
  return call;
}

bool IsFailing(int call) {
  if (!g_isArmed || (++g_systemCounts[call] != g_failingSystemPlace) || g_failingCall != call) {
    return false;
  }
  faults::NoteFailure();
  errno = kFailingSystemCalls[call].code;
  return true;
}

/// The next one of that name behind this program's.
template <auto kOwn>
auto Behind(const char* name) {
  static const auto behind = reinterpret_cast<decltype(kOwn)>(::dlsym(RTLD_NEXT, name));
  return behind;
}

/// The same for those that fail by -1.
template <auto kOwn, class... Arguments>
auto CallOrFail(int call, Arguments... arguments) {
  const auto behind = Behind<kOwn>(kFailingSystemCalls[call].name);
  return IsFailing(call) ? decltype(behind(arguments...)){-1} : behind(arguments...);
}

bool IsPipe(int descriptor) {
  struct ::stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

mode_t ModeOf(int flags, va_list more) {
  return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(more, unsigned)) : 0;
}

}  // namespace

std::vector<std::string> faults::SystemCallNames() {
  std::vector<std::string> names;
  for (const FailingSystemCall& call : kFailingSystemCalls) {
    names.emplace_back(call.name);
  }
  return names;
}

void faults::ArmSystemCall(const std::string& name, std::size_t place) {
  g_failingCall = -1;
  for (std::size_t call = 0; call < kCalls; ++call) {
    g_systemCounts[call] = 0;
    if (name == kFailingSystemCalls[call].name) {
      g_failingCall = static_cast<int>(call);
    }
  }
  g_failingSystemPlace = place;
  g_isArmed = true;
}

void faults::DisarmSystemCalls() { g_isArmed = false; }

std::size_t faults::SystemCallsOf(const std::string& name) {
  for (std::size_t call = 0; call < kCalls; ++call) {
    if (name == kFailingSystemCalls[call].name) {
      return g_systemCounts[call];
    }
  }
  return 0;
}

extern "C" {

int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = ModeOf(flags, more);
  va_end(more);
  return IsFailing(CallOf("open")) ? -1 : Behind<&open>("open")(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = ModeOf(flags, more);
  va_end(more);
  return IsFailing(CallOf("open")) ? -1 : Behind<&openat>("openat")(folder, path, flags, mode);
}

// An open pipe's has no way to fail; the signals of a loop come by one.
ssize_t read(int descriptor, void* bytes, std::size_t size) {
  return !IsPipe(descriptor) && IsFailing(CallOf("read"))
             ? -1
             : Behind<&read>("read")(descriptor, bytes, size);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  return !IsPipe(descriptor) && IsFailing(CallOf("write"))
             ? -1
             : Behind<&write>("write")(descriptor, bytes, size);
}

int fsync(int) { return IsFailing(CallOf("fsync")) ? -1 : 0; }
int fdatasync(int) { return IsFailing(CallOf("fsync")) ? -1 : 0; }

int rename(const char* from, const char* to) noexcept {
  return CallOrFail<&rename>(CallOf("rename"), from, to);
}

int socket(int domain, int type, int protocol) noexcept {
  return CallOrFail<&socket>(CallOf("socket"), domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  return CallOrFail<&bind>(CallOf("bind"), descriptor, address, size);
}

int listen(int descriptor, int backlog) noexcept {
  return CallOrFail<&listen>(CallOf("listen"), descriptor, backlog);
}

int getsockname(int descriptor, sockaddr* address, socklen_t* size) noexcept {
  return CallOrFail<&getsockname>(CallOf("getsockname"), descriptor, address, size);
}

int setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) noexcept {
  return CallOrFail<&setsockopt>(CallOf("setsockopt"), descriptor, level, name, value, size);
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  return CallOrFail<&accept4>(CallOf("accept4"), descriptor, address, size, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  return CallOrFail<&connect>(CallOf("connect"), descriptor, address, size);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags) {
  return CallOrFail<&recv>(CallOf("recv"), descriptor, bytes, size, flags);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
  return CallOrFail<&send>(CallOf("send"), descriptor, bytes, size, flags);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  return CallOrFail<&sendmsg>(CallOf("sendmsg"), descriptor, message, flags);
}

ssize_t sendfile64(int to, int from, off64_t* place, std::size_t size) noexcept {
  return IsFailing(CallOf("sendfile")) ? -1
                                       : Behind<&sendfile64>("sendfile64")(to, from, place, size);
}

int poll(pollfd* states, nfds_t count, int limit) {
  return CallOrFail<&poll>(CallOf("poll"), states, count, limit);
}

int epoll_create1(int flags) noexcept {
  return CallOrFail<&epoll_create1>(CallOf("epoll_create1"), flags);
}

// A change or a removal has no way to fail that a program can meet.
int epoll_ctl(int descriptor, int operation, int watched, epoll_event* event) noexcept {
  return operation == EPOLL_CTL_ADD && IsFailing(CallOf("epoll_ctl (add)"))
             ? -1
             : Behind<&epoll_ctl>("epoll_ctl")(descriptor, operation, watched, event);
}

int epoll_wait(int descriptor, epoll_event* events, int count, int limit) {
  return CallOrFail<&epoll_wait>(CallOf("epoll_wait"), descriptor, events, count, limit);
}

int timerfd_create(int clock, int flags) noexcept {
  return CallOrFail<&timerfd_create>(CallOf("timerfd_create"), clock, flags);
}

int eventfd(unsigned count, int flags) noexcept {
  return CallOrFail<&eventfd>(CallOf("eventfd"), count, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
  return IsFailing(CallOf("pthread_create"))
             ? EAGAIN
             : Behind<&pthread_create>("pthread_create")(thread, attributes, run, argument);
}
}
