// Stands before the library's calls of a program that is started with LD_PRELOAD, and does what
// QMT_FAULTS says, words parted by blanks:
//   short        what is read and written comes and goes in halves
//   eintr        of each call that may wait, every second time is interrupted
//   full=PART    there is no room for what is written to files whose paths have PART in them
//   full=PART:N  the same of the N-th such write alone
//   eio=CALL@PART  fsync, ftruncate or rename of files whose paths have PART in them fails
// QMT_FAULTS_WHILE names a file without which nothing is done.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/sem.h>
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
#include <ctime>

namespace {

// Nothing here allocates: the program's own allocator may be at work.
struct Orders {
  bool isShort = false;
  bool isInterrupted = false;
  std::array<char, 64> full{};  ///< empty: nothing is
  long fullWrite = 0;           ///< 0: all of them
  std::array<char, 16> failingCall{};
  std::array<char, 64> failingPath{};
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
  if (const char* failing = std::strstr(text, "eio="); failing != nullptr) {
    std::sscanf(failing, "eio=%15[^@]@%63[^ ]", orders.failingCall.data(),
                orders.failingPath.data());
  }
  return orders;
}

const Orders& TheOrders() {
  static const Orders orders = ReadOrders();
  return orders;
}

/// The library's own one.
template <auto kCall>
auto Real(const char* name) {
  static const auto real = reinterpret_cast<decltype(kCall)>(::dlsym(RTLD_NEXT, name));
  return real;
}

bool IsTimeForFaults() {
  const char* file = TheOrders().whileFile;
  const int code = errno;
  const bool isTime = file == nullptr || ::access(file, F_OK) == 0;
  errno = code;
  return isTime;
}

/// Whether this time of the call is interrupted. Each has its own turns: with turns that calls
/// share, a loop of two calls would meet the same one for ever.
template <auto kCall>
bool IsInterrupted() {
  static thread_local bool isTurn = false;
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

bool HasPathPart(int descriptor, const char* part) {
  std::array<char, 32> link{};
  std::array<char, 4096> path{};
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
  return ::readlink(link.data(), path.data(), path.size() - 1) > 0 &&
         std::strstr(path.data(), part) != nullptr;
}

/// Whether this call fails, of a file whose path `hasPart` looks at.
template <class HasPart>
bool IsBroken(const char* call, HasPart hasPart) {
  const Orders& orders = TheOrders();
  const int code = errno;
  const bool isBroken = std::strcmp(orders.failingCall.data(), call) == 0 && IsTimeForFaults() &&
                        hasPart(orders.failingPath.data());
  errno = isBroken ? EIO : code;
  return isBroken;
}

bool IsSyncBroken(int descriptor) {
  return IsBroken("fsync", [&](const char* part) { return HasPathPart(descriptor, part); });
}

bool IsFull(int descriptor) {
  static std::atomic<long> writes = 0;
  const int code = errno;
  const bool isFull = TheOrders().full[0] != '\0' && IsTimeForFaults() &&
                      HasPathPart(descriptor, TheOrders().full.data()) &&
                      (TheOrders().fullWrite == 0 || ++writes == TheOrders().fullWrite);
  errno = isFull ? ENOSPC : code;
  return isFull;
}

/// Whether it is a pipe whose calls never wait: a loop's signals come by such a one.
bool IsPipeWithoutWaits(int descriptor) {
  const int code = errno;
  struct ::stat status {};
  const bool isPipe = ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode) &&
                      (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0;
  errno = code;
  return isPipe;
}

template <auto kCall>
bool IsInterrupted(int descriptor) {
  return TheOrders().isInterrupted && !IsPipeWithoutWaits(descriptor) && IsInterrupted<kCall>();
}

template <auto kCall>
bool IsWriteFailing(int descriptor) {
  return IsFull(descriptor) || IsInterrupted<kCall>(descriptor);
}

/// One of those that may wait whatever they are asked for.
template <auto kCall, class... Arguments>
auto CallInTurns(const char* name, Arguments... arguments) {
  const auto real = Real<kCall>(name);
  return IsInterrupted<kCall>() ? decltype(real(arguments...)){-1} : real(arguments...);
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void* bytes, std::size_t size) {
  return IsInterrupted<&read>(descriptor)
             ? -1
             : Real<&read>("read")(descriptor, bytes, Shortened(descriptor, size));
}

ssize_t pread64(int descriptor, void* bytes, std::size_t size, off64_t place) {
  return CallInTurns<&pread64>("pread64", descriptor, bytes, Shortened(descriptor, size), place);
}

ssize_t pread(int descriptor, void* bytes, std::size_t size, off_t place) {
  return pread64(descriptor, bytes, size, place);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  return IsWriteFailing<&write>(descriptor)
             ? -1
             : Real<&write>("write")(descriptor, bytes, Shortened(descriptor, size));
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t size, off64_t place) {
  return IsWriteFailing<&pwrite64>(descriptor)
             ? -1
             : Real<&pwrite64>("pwrite64")(descriptor, bytes, Shortened(descriptor, size), place);
}

ssize_t pwrite(int descriptor, const void* bytes, std::size_t size, off_t place) {
  return pwrite64(descriptor, bytes, size, place);
}

ssize_t readv(int descriptor, const iovec* parts, int count) {
  const auto real = Real<&readv>("readv");
  if (IsInterrupted<&readv>()) {
    return -1;
  }
  if (!TheOrders().isShort || count < 1) {
    return real(descriptor, parts, count);
  }
  const iovec first = Shortened(descriptor, parts[0]);
  return real(descriptor, &first, 1);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
  const auto real = Real<&writev>("writev");
  if (IsWriteFailing<&writev>(descriptor)) {
    return -1;
  }
  if (!TheOrders().isShort || count < 1 || parts[0].iov_len == 0) {
    return real(descriptor, parts, count);
  }
  const iovec first = Shortened(descriptor, parts[0]);
  return real(descriptor, &first, 1);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags) {
  return CallInTurns<&recv>("recv", descriptor, bytes, Shortened(descriptor, size), flags);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
  return CallInTurns<&send>("send", descriptor, bytes, Shortened(descriptor, size), flags);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
  return CallInTurns<&recvmsg>("recvmsg", descriptor, message, flags);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  const auto real = Real<&sendmsg>("sendmsg");
  if (IsInterrupted<&sendmsg>()) {
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
  return CallInTurns<&accept>("accept", descriptor, address, size);
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  return CallInTurns<&accept4>("accept4", descriptor, address, size, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  // One to the network goes on all the same, so that a second call is another matter.
  return address->sa_family == AF_UNIX && IsInterrupted<&connect>()
             ? -1
             : Real<&connect>("connect")(descriptor, address, size);
}

ssize_t recvfrom(int descriptor, void* bytes, std::size_t size, int flags, sockaddr* address,
                 socklen_t* addressSize) {
  return CallInTurns<&recvfrom>("recvfrom", descriptor, bytes, Shortened(descriptor, size), flags,
                                address, addressSize);
}

int flock(int descriptor, int operation) noexcept {
  return (operation & LOCK_NB) == 0 && IsInterrupted<&flock>()
             ? -1
             : Real<&flock>("flock")(descriptor, operation);
}

int semop(int set, sembuf* operations, std::size_t count) noexcept {
  return CallInTurns<&semop>("semop", set, operations, count);
}

int semtimedop(int set, sembuf* operations, std::size_t count, const timespec* limit) noexcept {
  return CallInTurns<&semtimedop>("semtimedop", set, operations, count, limit);
}

int nanosleep(const timespec* time, timespec* left) {
  if (!IsInterrupted<&nanosleep>()) {
    return Real<&nanosleep>("nanosleep")(time, left);
  }
  if (left != nullptr) {
    *left = *time;
  }
  return -1;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  if (!IsInterrupted<&clock_nanosleep>()) {
    return Real<&clock_nanosleep>("clock_nanosleep")(clock, flags, time, left);
  }
  if (left != nullptr && (flags & TIMER_ABSTIME) == 0) {
    *left = *time;
  }
  return EINTR;
}

int fsync(int descriptor) {
  return IsSyncBroken(descriptor) ? -1 : Real<&fsync>("fsync")(descriptor);
}

int fdatasync(int descriptor) {
  return IsSyncBroken(descriptor) ? -1 : Real<&fdatasync>("fdatasync")(descriptor);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
  const auto hasPart = [&](const char* part) { return HasPathPart(descriptor, part); };
  return IsBroken("ftruncate", hasPart) ? -1 : Real<&ftruncate64>("ftruncate64")(descriptor, size);
}

int ftruncate(int descriptor, off_t size) noexcept { return ftruncate64(descriptor, size); }

int rename(const char* from, const char* to) noexcept {
  const auto hasPart = [&](const char* part) { return std::strstr(to, part) != nullptr; };
  return IsBroken("rename", hasPart) ? -1 : Real<&rename>("rename")(from, to);
}

int poll(pollfd* states, nfds_t count, int limit) {
  return limit != 0 && IsInterrupted<&poll>() ? -1 : Real<&poll>("poll")(states, count, limit);
}

int epoll_wait(int descriptor, epoll_event* events, int count, int limit) {
  return limit != 0 && IsInterrupted<&epoll_wait>()
             ? -1
             : Real<&epoll_wait>("epoll_wait")(descriptor, events, count, limit);
}

pid_t waitpid(pid_t child, int* status, int options) {
  return (options & WNOHANG) == 0 && IsInterrupted<&waitpid>()
             ? -1
             : Real<&waitpid>("waitpid")(child, status, options);
}
}
