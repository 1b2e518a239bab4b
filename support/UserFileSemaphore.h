#pragma once

#include <sys/types.h>

/// A guard on a file that the agent shares with those who write it: a System V set of three
/// semaphores. Number 0 is the value proper; number 1 starts at 10000 and drops by one for each
/// process that has the set open; number 2 is a lock that protects creation and closing. The kernel
/// takes back what a killed process held.
class UserFileSemaphore {
 public:
  /// `initial` is the value of an unlocked guard. Nothing is made yet.
  UserFileSemaphore(key_t key, int initial);
  UserFileSemaphore(const UserFileSemaphore&) = delete;
  UserFileSemaphore& operator=(const UserFileSemaphore&) = delete;
  /// Unlocks and closes what is still held, without a word.
  ~UserFileSemaphore();

  /// Makes the set or opens the one that stands, by semget(2). The set's number, or -1 with errno;
  /// a key of 0 or -1 is refused.
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
  int m_id = -1;
  bool m_locked = false;
};
