#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <type_traits>

#include "support/Descriptor.h"

// What a child process does between fork(2) and exec(2), or its end. All of it may be called there.

/// Gives the signals that the agent handles or ignores their defaults back, and blocks none.
void ResetSignals();

/// Closes every descriptor but `kept`.
void CloseOthers(int kept);

/// Leaves a program that the child becomes the three standard descriptors and `kept`.
void KeepAcrossExec(int kept);

/// In the parent: waits, until `until` at the most, for a child that has been killed and that
/// `process` tells the end of, and forgets its number. It may stay for as long as a disk holds it:
/// what is not over by then is left to whoever takes over orphans.
void ReapChild(::pid_t& pid, int process, std::chrono::steady_clock::time_point until);

/// In the parent: ends a child that nobody would see the end of, waits for it and forgets its
/// number.
void EndChild(::pid_t& pid);

/// Tells a parent what went wrong in its child, until that has become another program or ended.
class FailurePipe {
 public:
  /// Before fork(2). False with errno.
  [[nodiscard]] bool Open();
  /// In the child. A parent that is gone is no failure.
  template <class Failure>
  void Tell(const Failure& failure) const {
    static_assert(std::is_trivially_copyable_v<Failure>);
    Write(&failure, sizeof failure);
  }
  /// In the parent, before the first Next. Keeps errno.
  void Listen() { m_child.Close(); }
  /// Waits for the child's next failure; nothing if there is none any more.
  template <class Failure>
  [[nodiscard]] std::optional<Failure> Next() const {
    static_assert(std::is_trivially_copyable_v<Failure>);
    Failure failure{};
    return Read(&failure, sizeof failure) ? std::optional<Failure>(failure) : std::nullopt;
  }

 private:
  void Write(const void* failure, std::size_t size) const;
  [[nodiscard]] bool Read(void* failure, std::size_t size) const;

  Descriptor m_parent;
  Descriptor m_child;
};
