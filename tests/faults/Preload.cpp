// Stands before the library's calls of a program that is started with LD_PRELOAD, and does what
// QMT_FAULTS says, words parted by blanks:
//   short        what is read and written comes and goes in halves
//   eintr        of each call that may wait, every second time is interrupted
//   full=PART    there is no room for what is written to files whose paths have PART in them
//   full=PART:N  the same of the N-th such write alone
// QMT_FAULTS_WHILE names a file without which nothing is done.

#include <dlfcn.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Nothing here allocates: the program's own allocator may be at work.
struct Orders {
  bool isShort = false;
  bool isInterrupted = false;
  std::array<char, 64> full{};  ///< empty: nothing is
  long fullWrite = 0;           ///< 0: all of them
  const char* whileFile = nullptr;
};

Orders ReadOrders() {
  Orders orders;
  const char* text = std::getenv("QMT_FAULTS");
  orders.whileFile = std::getenv("QMT_FAULTS_WHILE");
  if (text == nullptr) {
    return orders;
  }
  orders.isShort = std::strstr(text, "short") != nullptr;
  orders.isInterrupted = std::strstr(text, "eintr") != nullptr;
  if (const char* full = std::strstr(text, "full="); full != nullptr) {
    std::sscanf(full, "full=%63[^: ]:%ld", orders.full.data(), &orders.fullWrite);
  }
  return orders;
}

const Orders& TheOrders() {
  static const Orders orders = ReadOrders();
  return orders;
}

/// The library's own one.
template <class Function>
Function Real(const char* name, Function) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool IsTimeForFaults() {
  const char* file = TheOrders().whileFile;
  const int code = errno;
  const bool isTime = file == nullptr || ::access(file, F_OK) == 0;
  errno = code;
  return isTime;
}

/// Whether this time is interrupted, of a call whose turns these are: with turns that calls share,
/// a loop of two calls would meet the same one for ever.
bool IsInterrupted(bool& isTurn) {
  if (!TheOrders().isInterrupted || !IsTimeForFaults()) {
    return false;
  }
  isTurn = !isTurn;
  if (isTurn) {
    errno = EINTR;
  }
  return isTurn;
}

/// Whether so much may come or go in two parts: a pipe takes what it has room for as a whole.
bool MayBeParted(int descriptor, std::size_t bytes) {
  struct ::stat status {};
  int type = 0;
  socklen_t size = sizeof type;
  return ::fstat(descriptor, &status) == 0 &&
         (S_ISREG(status.st_mode) || (S_ISFIFO(status.st_mode) && bytes > PIPE_BUF) ||
          (S_ISSOCK(status.st_mode) &&
           ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 &&
           type == SOCK_STREAM));
}

std::size_t Shortened(int descriptor, std::size_t size) {
  const int code = errno;
  const bool isHalved =
      TheOrders().isShort && size > 1 && IsTimeForFaults() && MayBeParted(descriptor, size);
  errno = code;
  return isHalved ? size / 2 : size;
}

/// The first part, halved: the rest is asked for by the caller.
iovec Shortened(int descriptor, const iovec& part) {
  return {part.iov_base, Shortened(descriptor, part.iov_len)};
}

bool IsPathFull(int descriptor) {
  std::array<char, 32> link{};
  std::array<char, 4096> path{};
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
  return ::readlink(link.data(), path.data(), path.size() - 1) > 0 &&
         std::strstr(path.data(), TheOrders().full.data()) != nullptr;
}

bool IsFull(int descriptor) {
  static std::atomic<long> writes = 0;
  const int code = errno;
  const bool isFull = TheOrders().full[0] != '\0' && IsTimeForFaults() && IsPathFull(descriptor) &&
                      (TheOrders().fullWrite == 0 || ++writes == TheOrders().fullWrite);
  errno = isFull ? ENOSPC : code;
  return isFull;
}

bool IsWriteFailing(int descriptor, bool& isTurn) {
  return IsFull(descriptor) || IsInterrupted(isTurn);
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static const auto real = Real("read", &read);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, bytes, Shortened(descriptor, size));
}

ssize_t pread64(int descriptor, void* bytes, std::size_t size, off64_t place) {
  static const auto real = Real("pread64", &pread64);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, bytes, Shortened(descriptor, size), place);
}

ssize_t pread(int descriptor, void* bytes, std::size_t size, off_t place) {
  return pread64(descriptor, bytes, size, place);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static const auto real = Real("write", &write);
  static thread_local bool isTurn = false;
  return IsWriteFailing(descriptor, isTurn) ? -1
                                            : real(descriptor, bytes, Shortened(descriptor, size));
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t size, off64_t place) {
  static const auto real = Real("pwrite64", &pwrite64);
  static thread_local bool isTurn = false;
  return IsWriteFailing(descriptor, isTurn)
             ? -1
             : real(descriptor, bytes, Shortened(descriptor, size), place);
}

ssize_t pwrite(int descriptor, const void* bytes, std::size_t size, off_t place) {
  return pwrite64(descriptor, bytes, size, place);
}

ssize_t readv(int descriptor, const iovec* parts, int count) {
  static const auto real = Real("readv", &readv);
  static thread_local bool isTurn = false;
  if (IsInterrupted(isTurn)) {
    return -1;
  }
  if (!TheOrders().isShort || count < 1) {
    return real(descriptor, parts, count);
  }
  const iovec first = Shortened(descriptor, parts[0]);
  return real(descriptor, &first, 1);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
  static const auto real = Real("writev", &writev);
  static thread_local bool isTurn = false;
  if (IsWriteFailing(descriptor, isTurn)) {
    return -1;
  }
  if (!TheOrders().isShort || count < 1 || parts[0].iov_len == 0) {
    return real(descriptor, parts, count);
  }
  const iovec first = Shortened(descriptor, parts[0]);
  return real(descriptor, &first, 1);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags) {
  static const auto real = Real("recv", &recv);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, bytes, Shortened(descriptor, size), flags);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
  static const auto real = Real("send", &send);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, bytes, Shortened(descriptor, size), flags);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
  static const auto real = Real("recvmsg", &recvmsg);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, message, flags);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  static const auto real = Real("sendmsg", &sendmsg);
  static thread_local bool isTurn = false;
  if (IsInterrupted(isTurn)) {
    return -1;
  }
  if (message->msg_iovlen != 1) {
    return real(descriptor, message, flags);
  }
  iovec first = Shortened(descriptor, message->msg_iov[0]);
  msghdr shortened = *message;
  shortened.msg_iov = &first;
  return real(descriptor, &shortened, flags);
}

int accept(int descriptor, sockaddr* address, socklen_t* size) {
  static const auto real = Real("accept", &accept);
  static thread_local bool isTurn = false;
  return IsInterrupted(isTurn) ? -1 : real(descriptor, address, size);
}

int poll(pollfd* states, nfds_t count, int limit) {
  static const auto real = Real("poll", &poll);
  static thread_local bool isTurn = false;
  return limit != 0 && IsInterrupted(isTurn) ? -1 : real(states, count, limit);
}

int epoll_wait(int descriptor, epoll_event* events, int count, int limit) {
  static const auto real = Real("epoll_wait", &epoll_wait);
  static thread_local bool isTurn = false;
  return limit != 0 && IsInterrupted(isTurn) ? -1 : real(descriptor, events, count, limit);
}

pid_t waitpid(pid_t child, int* status, int options) {
  static const auto real = Real("waitpid", &waitpid);
  static thread_local bool isTurn = false;
  return (options & WNOHANG) == 0 && IsInterrupted(isTurn) ? -1 : real(child, status, options);
}
}
