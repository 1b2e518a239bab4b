#include "support/UserFileSemaphore.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <array>
#include <cerrno>
#include <ctime>

#include "support/OsCalls.h"

namespace {

constexpr int kSemaphores = 3;
constexpr unsigned short kValue = 0;
constexpr unsigned short kCounter = 1;
constexpr unsigned short kLock = 2;
constexpr int kUnusedCount = 10000;
constexpr int kMode = 0666;
/// How often a set may be removed by others between its opening and its locking.
constexpr int kMaxTries = 100;
/// Whoever holds the lock for longer than this has been stopped in the middle.
constexpr std::timespec kLockTime{2, 0};

union SemaphoreArgument {
  int value;
};

sembuf Operation(unsigned short number, int change, int flags) {
  sembuf operation{};
  operation.sem_num = number;
  operation.sem_op = static_cast<short>(change);
  operation.sem_flg = static_cast<short>(flags);
  return operation;
}

/// semop(2), again after a signal, and for kLockTime at most unless it may wait for ever.
template <std::size_t count>
int Apply(int id, std::array<sembuf, count> operations, bool mayWait = false) {
  int result = 0;
  do {
    result = ::semtimedop(id, operations.data(), operations.size(), mayWait ? nullptr : &kLockTime);
  } while (result != 0 && errno == EINTR);
  return result;
}

/// One step that waits until the lock is free and takes it.
std::array<sembuf, 2> TakeLock() { return {Operation(kLock, 0, 0), Operation(kLock, 1, SEM_UNDO)}; }

int Value(int id, int number) { return ::semctl(id, number, GETVAL); }

int SetValue(int id, int number, int value) {
  SemaphoreArgument argument{value};
  return ::semctl(id, number, SETVAL, argument);
}

/// Opens the set and takes its lock; the set's number, or -1 with errno.
int OpenLocked(key_t key) {
  for (int tries = 0; tries < kMaxTries; ++tries) {
    const int id = ::semget(key, kSemaphores, IPC_CREAT | kMode);
    if (id < 0 || Apply(id, TakeLock()) == 0) {
      return id;
    }
    if (errno != EINVAL && errno != EIDRM) {
      return -1;
    }
  }
  return -1;
}

/// Gives a set that is new its values. False with errno.
bool Prepare(int id, int initial) {
  const int counter = Value(id, kCounter);
  if (counter < 0 || counter == 1) {
    errno = counter == 1 ? EOVERFLOW : errno;
    return false;
  }
  return counter != 0 ||
         (SetValue(id, kValue, initial) == 0 && SetValue(id, kCounter, kUnusedCount) == 0);
}

}  // namespace

UserFileSemaphore::UserFileSemaphore(key_t key, int initial) : m_key(key), m_initial(initial) {}

UserFileSemaphore::~UserFileSemaphore() {
  if (IsLocked()) {
    static_cast<void>(unlock());
  }
  if (IsOpen()) {
    static_cast<void>(close());
  }
}

int UserFileSemaphore::create() {
  if (m_key == 0 || m_key == -1) {
    errno = EINVAL;
    return -1;
  }
  const int id = OpenLocked(m_key);
  if (id < 0) {
    return -1;
  }
  if (!Prepare(id, m_initial)) {
    const int code = errno;
    Apply(id, std::array{Operation(kLock, -1, SEM_UNDO)});
    errno = code;
    return -1;
  }
  if (Apply(id, std::array{Operation(kCounter, -1, SEM_UNDO), Operation(kLock, -1, SEM_UNDO)}) !=
      0) {
    return -1;
  }
  m_id = id;
  return m_id;
}

int UserFileSemaphore::lock(bool wait, int seconds) {
  const std::array take{Operation(kValue, -1, wait ? SEM_UNDO : SEM_UNDO | IPC_NOWAIT)};
  int result = Apply(m_id, take, true);
  for (int i = 0; !wait && result != 0 && i < seconds; ++i) {
    Os().sleep(1);
    result = Apply(m_id, take, true);
  }
  m_locked = m_locked || result == 0;
  return result;
}

int UserFileSemaphore::unlock() {
  m_locked = false;
  const int value = Value(m_id, kValue);
  if (value < 0 || value >= m_initial) {
    return value < 0 ? -1 : 0;
  }
  return Apply(m_id, std::array{Operation(kValue, 1, SEM_UNDO)});
}

int UserFileSemaphore::close() {
  const int id = m_id;
  m_id = -1;
  const auto [wait, take] = TakeLock();
  if (Apply(id, std::array{wait, take, Operation(kCounter, 1, SEM_UNDO)}) != 0) {
    return -1;
  }
  const int counter = Value(id, kCounter);
  if (counter == kUnusedCount && ::semctl(id, 0, IPC_RMID) == 0) {
    return 0;
  }
  // Only its owner may remove a set; one that stays must not stay locked.
  const bool isRefused = counter == kUnusedCount || counter < 0;
  const int code = errno;
  const int result = Apply(id, std::array{Operation(kLock, -1, SEM_UNDO)});
  if (isRefused) {
    errno = code;
  }
  return isRefused ? -1 : result;
}
