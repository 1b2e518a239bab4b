#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Checks passwords by crypt(3), which takes a while on purpose, on a thread of its own.
class PasswordCheck {
 public:
  /// Has the loop run an action soon; called on the thread of the checks.
  using Poster = std::function<void(std::function<void()> action)>;
  using Done = std::function<void(bool isRight)>;

  /// From the begin of one check to that of the next `pause` passes at least.
  explicit PasswordCheck(Poster post, std::chrono::milliseconds pause);
  /// Waits for the check that is running, a second at most; those that wait are dropped, and
  /// nothing is posted any more.
  ~PasswordCheck();
  PasswordCheck(const PasswordCheck&) = delete;
  PasswordCheck& operator=(const PasswordCheck&) = delete;

  /// Has `secret` checked against `hash`, which may be a mere setting and then is never right;
  /// `done` is posted. False if 32 checks wait already: then `done` is dropped.
  [[nodiscard]] bool Check(std::string secret, std::string hash, Done done);

 private:
  struct Job {
    std::string secret;
    std::string hash;
    Done done;
  };

  void Work();

  const Poster m_post;
  const std::chrono::milliseconds m_pause;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<Job> m_jobs;
  bool m_isEnding = false;
  std::thread m_thread;  ///< the last member: it uses all others
};
