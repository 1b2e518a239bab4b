#include "support/UserFileSemaphore.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <thread>

#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/UserFileFormat.h"

namespace {

constexpr int kSemaphores = 3;
constexpr unsigned short kValue = 0;
constexpr unsigned short kCounter = 1;
constexpr unsigned short kLock = 2;
constexpr int kUnusedCount = 10000;
/// How often a set may be removed by others between its opening and its locking.
constexpr int kMaxTries = 100;
/// How often a set is refused whose maker may not have given it to the group yet.
constexpr int kMaxRefusals = 5;

using std::chrono::milliseconds;

union SemaphoreArgument {
  int value;
  ::semid_ds* set;
};

sembuf Operation(unsigned short number, int change, int flags) {
  sembuf operation{};
  operation.sem_num = number;
  operation.sem_op = static_cast<short>(change);
  operation.sem_flg = static_cast<short>(flags);
  return operation;
}

/// semop(2), again after a signal, and for `patience` at most if there is one.
template <std::size_t count>
int Apply(int id, std::array<sembuf, count> operations, std::optional<milliseconds> patience = {}) {
  const auto left = patience.value_or(milliseconds(0)).count();
  const std::timespec limit{left / 1000, left % 1000 * 1'000'000};
  int result = 0;
  do {
    result = ::semtimedop(id, operations.data(), operations.size(), patience ? &limit : nullptr);
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

/// semget(2); again for a moment where the set is not for us (yet).
int Open(key_t key, int mode) {
  int id = ::semget(key, kSemaphores, IPC_CREAT | mode);
  for (int i = 0; id < 0 && errno == EACCES && i < kMaxRefusals; ++i) {
    std::this_thread::sleep_for(milliseconds(1));
    id = ::semget(key, kSemaphores, IPC_CREAT | mode);
  }
  return id;
}

/// Opens the set and takes its lock; the set's number, or -1 with errno.
int OpenLocked(key_t key, int mode, milliseconds patience) {
  for (int tries = 0; tries < kMaxTries; ++tries) {
    const int id = Open(key, mode);
    if (id < 0 || Apply(id, TakeLock(), patience) == 0) {
      return id;
    }
    if (errno != EINVAL && errno != EIDRM) {
      return -1;
    }
  }
  return -1;
}

/// Gives a set that is new to the group that is to share it. False with errno.
bool GiveToGroup(int id, const GuardRights& rights) {
  ::semid_ds set{};
  SemaphoreArgument argument{};
  argument.set = &set;
  if (!rights.group || ::semctl(id, 0, IPC_STAT, argument) != 0) {
    return !rights.group;
  }
  set.sem_perm.gid = *rights.group;
  return ::semctl(id, 0, IPC_SET, argument) == 0;
}

/// Gives a set that is new its values. False with errno.
bool Prepare(int id, int initial, const GuardRights& rights) {
  const int counter = Value(id, kCounter);
  if (counter < 0 || counter == 1) {
    errno = counter == 1 ? EOVERFLOW : errno;
    return false;
  }
  return counter != 0 || (GiveToGroup(id, rights) && SetValue(id, kValue, initial) == 0 &&
                          SetValue(id, kCounter, kUnusedCount) == 0);
}

}  // namespace

std::optional<int> ParseGuardMode(const std::string& text) {
  for (const int mode : {0600, 0660, 0666}) {
    const std::string digits{'6', mode == 0600 ? '0' : '6', mode == 0666 ? '6' : '0'};
    if (text == digits || text == '0' + digits) {
      return mode;
    }
  }
  return std::nullopt;
}

GuardRights UserFileGuardRights(const char* setting) {
  struct ::stat folder {};
  const int mode = ParseGuardMode(setting == nullptr ? "" : setting).value_or(GuardRights{}.mode);
  const bool isShared = mode == 0660 && ::stat(ProductPath(kUserFileKeyPath).c_str(), &folder) == 0;
  return {mode, isShared ? std::optional(folder.st_gid) : std::nullopt};
}

UserFileSemaphore::UserFileSemaphore(key_t key, int initial, GuardRights rights,
                                     milliseconds patience)
    : m_key(key), m_initial(initial), m_rights(rights), m_patience(patience) {}

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
  const int id = OpenLocked(m_key, m_rights.mode, m_patience);
  if (id < 0) {
    return -1;
  }
  if (!Prepare(id, m_initial, m_rights)) {
    const int code = errno;
    Apply(id, std::array{Operation(kLock, -1, SEM_UNDO)}, m_patience);
    errno = code;
    return -1;
  }
  if (Apply(id, std::array{Operation(kCounter, -1, SEM_UNDO), Operation(kLock, -1, SEM_UNDO)},
            m_patience) != 0) {
    return -1;
  }
  m_id = id;
  return m_id;
}

int UserFileSemaphore::lock(bool wait, int seconds) {
  const std::array take{Operation(kValue, -1, wait ? SEM_UNDO : SEM_UNDO | IPC_NOWAIT)};
  int result = Apply(m_id, take);
  for (int i = 0; !wait && result != 0 && i < seconds; ++i) {
    Os().sleep(1);
    result = Apply(m_id, take);
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
  return Apply(m_id, std::array{Operation(kValue, 1, SEM_UNDO)}, m_patience);
}

int UserFileSemaphore::close() {
  const int id = m_id;
  m_id = -1;
  const auto [wait, take] = TakeLock();
  if (Apply(id, std::array{wait, take, Operation(kCounter, 1, SEM_UNDO)}, m_patience) != 0) {
    return -1;
  }
  const int counter = Value(id, kCounter);
  if (counter == kUnusedCount && ::semctl(id, 0, IPC_RMID) == 0) {
    return 0;
  }
  // Only its owner may remove a set; one that stays must not stay locked.
  const bool isRefused = counter == kUnusedCount || counter < 0;
  const int code = errno;
  const int result = Apply(id, std::array{Operation(kLock, -1, SEM_UNDO)}, m_patience);
  if (isRefused) {
    errno = code;
  }
  return isRefused ? -1 : result;
}
