#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// Checks passwords by crypt(3), which takes a while on purpose, on a thread of its own.
class PasswordCheck {
 public:
  /// Has the loop run an action soon; called on the thread of the checks, which waits for nothing
  /// else meanwhile: it must not wait for the loop.
  using Poster = std::function<void(std::function<void()> action)>;
  /// Nothing where memory lacked for the check.
  using Done = std::function<void(std::optional<bool> isRight)>;

  /// From the begin of one check to that of the next `pause` passes at least; `mostWaiting` wait.
  PasswordCheck(Poster post, std::chrono::milliseconds pause, std::size_t mostWaiting);
  /// Waits for no check: one that is running, for a second at most, goes on by itself and is
  /// forgotten; those that wait are dropped. Nothing is posted from here on.
  ~PasswordCheck();
  PasswordCheck(const PasswordCheck&) = delete;
  PasswordCheck& operator=(const PasswordCheck&) = delete;

  /// Has `secret` checked against `hash`, which may be a mere setting and then is never right;
  /// `done` is posted. False if too many wait already: then `done` is dropped.
  [[nodiscard]] bool Check(std::string secret, std::string hash, Done done);

 private:
  class Worker;

  /// Shared with the thread, which may outlive this object.
  const std::shared_ptr<Worker> m_worker;
};
