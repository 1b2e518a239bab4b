#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

/// Who may use a guard. A set that one process has made is the same for all who open it.
struct GuardRights {
  int mode = 0666;
  std::optional<gid_t> group = {};  ///< of a set that is made; not set: the maker's own
};

/// What a setting of the mode says: 0600, 0660 or 0666, the first 0 not needed; else nothing.
[[nodiscard]] std::optional<int> ParseGuardMode(const std::string& text);
/// The rights that a setting of the mode gives; one that is null or says nothing is 0666. The group
/// of 0660 is that of the folder of the user files.
[[nodiscard]] GuardRights UserFileGuardRights(const char* setting);

/// A guard on a file that the agent shares with those who write it: a System V set of three
/// semaphores. Number 0 is the value proper; number 1 starts at 10000 and drops by one for each
/// process that has the set open; number 2 is a lock that protects creation and closing. The kernel
/// takes back what a killed process held.
class UserFileSemaphore {
 public:
  /// The value of an unlocked guard that one process at a time may hold.
  static constexpr int kUnlocked = 1;

  /// `initial` is the value of an unlocked guard. The lock is waited for as long as `patience`
  /// says: whoever holds it longer has been stopped in the middle. Nothing is made yet.
  UserFileSemaphore(key_t key, int initial, GuardRights rights = {},
                    std::chrono::milliseconds patience = std::chrono::seconds(2));
  UserFileSemaphore(const UserFileSemaphore&) = delete;
  UserFileSemaphore& operator=(const UserFileSemaphore&) = delete;
  /// Unlocks and closes what is still held, without a word.
  ~UserFileSemaphore();

  /// Makes the set or opens the one that stands, by semget(2). The set's number, or -1 with errno:
  /// EAGAIN if another holds the lock; a key of 0 or -1 is refused.
  [[nodiscard]] int create();
  /// Takes the guard by semop(2). Without `wait` it tries once a second, `seconds` times, and then
  /// once more. 0, or -1 with errno: EAGAIN if another holds it.
  [[nodiscard]] int lock(bool wait, int seconds);
  /// Gives the guard back; one that is not taken stays as it is. 0, or -1 with errno.
  [[nodiscard]] int unlock();
  /// Closes the set, and removes it if no process has it open any more. 0, or -1 with errno.
  [[nodiscard]] int close();

  /// Whether the set is open, and whether this object holds the guard.
  [[nodiscard]] bool IsOpen() const { return m_id >= 0; }
  [[nodiscard]] bool IsLocked() const { return m_locked; }

 private:
  const key_t m_key;
  const int m_initial;
  const GuardRights m_rights;
  const std::chrono::milliseconds m_patience;
  int m_id = -1;
  bool m_locked = false;
};
