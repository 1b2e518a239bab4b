#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

/// The host name helper as a child process. One that ends soon after its start, again and again,
/// is started anew only after a pause that grows from 1 to 60 seconds.
class HelperProcess {
 public:
  /// `path` is looked up from the working directory; `argument` is a plain absolute path, which the
  /// child gets below the product root, with "off" behind it.
  HelperProcess(std::string path, std::string argument);
  /// Leaves the child alone: it ends by itself once its pipes are closed.
  ~HelperProcess() = default;
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  /// Starts the child by fork(2) and execv(3). 1; 0 if the pause is not over; -1, with the reason
  /// in `error`, if it could not be started. A program that can't be executed is told once.
  [[nodiscard]] int Spawn(std::string& error);
  /// Whether the child runs, by waitpid(2). A child that somebody else has reaped is gone.
  [[nodiscard]] bool IsRunning();
  /// The child of the last start, -1 for none.
  [[nodiscard]] pid_t ChildPid() const { return m_childPid; }

 private:
  using Clock = std::chrono::steady_clock;

  /// Whether it is too early for another start.
  [[nodiscard]] bool IsPaused() const;
  /// Doubles the pause, or begins anew after one that has lived for long: it has not died at once.
  void LengthenPause();

  const std::string m_path;
  const std::string m_argument;
  pid_t m_childPid = -1;
  std::vector<pid_t> m_formerPids;  ///< still to be reaped
  Clock::time_point m_started;
  std::chrono::seconds m_pause{0};
  int m_toldFailure = 0;  ///< why the program could not be executed
};
