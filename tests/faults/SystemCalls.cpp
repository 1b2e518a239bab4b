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

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "tests/faults/Allocator.h"

namespace {

enum Call {
  kOpen,
  kRead,
  kWrite,
  kFsync,
  kRename,
  kSocket,
  kBind,
  kListen,
  kGetsockname,
  kSetsockopt,
  kAccept4,
  kConnect,
  kRecv,
  kSend,
  kSendmsg,
  kSendfile,
  kPoll,
  kEpollCreate1,
  kEpollAdd,
  kEpollWait,
  kTimerfdCreate,
  kEventfd,
  kPthreadCreate,
  kCalls
};

struct FailingSystemCall {
  const char* name;
  int code;
};

constexpr std::array<FailingSystemCall, kCalls> kFailingSystemCalls{{{"open", EMFILE},
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
                                                                     {"pthread_create", EAGAIN}}};

std::atomic<bool> g_isArmed = false;
std::atomic<int> g_failingCall = -1;
std::atomic<std::size_t> g_failingSystemPlace = 0;
std::array<std::atomic<std::size_t>, kCalls> g_systemCounts{};

bool IsFailing(Call call) {
  if (!g_isArmed || (++g_systemCounts[call] != g_failingSystemPlace) || g_failingCall != call) {
    return false;
  }
  faults::NoteFailure();
  errno = kFailingSystemCalls[call].code;
  return true;
}

/// The next one behind this program's.
template <class Function>
Function Behind(const char* name, Function) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
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
  static const auto real = Behind("open", &open);
  va_list more;
  va_start(more, flags);
  const mode_t mode = ModeOf(flags, more);
  va_end(more);
  return IsFailing(kOpen) ? -1 : real(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
  static const auto real = Behind("openat", &openat);
  va_list more;
  va_start(more, flags);
  const mode_t mode = ModeOf(flags, more);
  va_end(more);
  return IsFailing(kOpen) ? -1 : real(folder, path, flags, mode);
}

// An open pipe's has no way to fail; the signals of a loop come by one.
ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static const auto real = Behind("read", &read);
  return !IsPipe(descriptor) && IsFailing(kRead) ? -1 : real(descriptor, bytes, size);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static const auto real = Behind("write", &write);
  return !IsPipe(descriptor) && IsFailing(kWrite) ? -1 : real(descriptor, bytes, size);
}

int fsync(int) { return IsFailing(kFsync) ? -1 : 0; }
int fdatasync(int) { return IsFailing(kFsync) ? -1 : 0; }

int rename(const char* from, const char* to) noexcept {
  static const auto real = Behind("rename", &rename);
  return IsFailing(kRename) ? -1 : real(from, to);
}

int socket(int domain, int type, int protocol) noexcept {
  static const auto real = Behind("socket", &socket);
  return IsFailing(kSocket) ? -1 : real(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  static const auto real = Behind("bind", &bind);
  return IsFailing(kBind) ? -1 : real(descriptor, address, size);
}

int listen(int descriptor, int backlog) noexcept {
  static const auto real = Behind("listen", &listen);
  return IsFailing(kListen) ? -1 : real(descriptor, backlog);
}

int getsockname(int descriptor, sockaddr* address, socklen_t* size) noexcept {
  static const auto real = Behind("getsockname", &getsockname);
  return IsFailing(kGetsockname) ? -1 : real(descriptor, address, size);
}

int setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) noexcept {
  static const auto real = Behind("setsockopt", &setsockopt);
  return IsFailing(kSetsockopt) ? -1 : real(descriptor, level, name, value, size);
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  static const auto real = Behind("accept4", &accept4);
  return IsFailing(kAccept4) ? -1 : real(descriptor, address, size, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  static const auto real = Behind("connect", &connect);
  return IsFailing(kConnect) ? -1 : real(descriptor, address, size);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags) {
  static const auto real = Behind("recv", &recv);
  return IsFailing(kRecv) ? -1 : real(descriptor, bytes, size, flags);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
  static const auto real = Behind("send", &send);
  return IsFailing(kSend) ? -1 : real(descriptor, bytes, size, flags);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  static const auto real = Behind("sendmsg", &sendmsg);
  return IsFailing(kSendmsg) ? -1 : real(descriptor, message, flags);
}

ssize_t sendfile64(int to, int from, off64_t* place, std::size_t size) noexcept {
  static const auto real = Behind("sendfile64", &sendfile64);
  return IsFailing(kSendfile) ? -1 : real(to, from, place, size);
}

int poll(pollfd* states, nfds_t count, int limit) {
  static const auto real = Behind("poll", &poll);
  return IsFailing(kPoll) ? -1 : real(states, count, limit);
}

int epoll_create1(int flags) noexcept {
  static const auto real = Behind("epoll_create1", &epoll_create1);
  return IsFailing(kEpollCreate1) ? -1 : real(flags);
}

// A change or a removal has no way to fail that a program can meet.
int epoll_ctl(int descriptor, int operation, int watched, epoll_event* event) noexcept {
  static const auto real = Behind("epoll_ctl", &epoll_ctl);
  return operation == EPOLL_CTL_ADD && IsFailing(kEpollAdd)
             ? -1
             : real(descriptor, operation, watched, event);
}

int epoll_wait(int descriptor, epoll_event* events, int count, int limit) {
  static const auto real = Behind("epoll_wait", &epoll_wait);
  return IsFailing(kEpollWait) ? -1 : real(descriptor, events, count, limit);
}

int timerfd_create(int clock, int flags) noexcept {
  static const auto real = Behind("timerfd_create", &timerfd_create);
  return IsFailing(kTimerfdCreate) ? -1 : real(clock, flags);
}

int eventfd(unsigned count, int flags) noexcept {
  static const auto real = Behind("eventfd", &eventfd);
  return IsFailing(kEventfd) ? -1 : real(count, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
  static const auto real = Behind("pthread_create", &pthread_create);
  return IsFailing(kPthreadCreate) ? EAGAIN : real(thread, attributes, run, argument);
}
}
