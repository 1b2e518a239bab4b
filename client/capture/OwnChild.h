#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "support/Descriptor.h"

/// How a program is started.
struct ChildOrder {
  std::vector<std::string> words;
  /// Variables beside one's own; an empty value takes the variable away.
  std::vector<std::pair<std::string, std::string>> variables;
  std::string folder;  ///< where it works, empty for here
  std::string log;  ///< file that its standard output and error are added to, empty for one's own
};

/// Has the end of the terminal be as SIGTERM is, unless it is ignored.
void EndAtHangUp();

/// A child process, which ends with the object: by SIGTERM, and by SIGKILL if that does not help.
class OwnChild {
 public:
  /// Throws ClientError if it can't be started.
  explicit OwnChild(const ChildOrder& order);
  OwnChild(const OwnChild&) = delete;
  OwnChild& operator=(const OwnChild&) = delete;
  ~OwnChild();

  /// Waits until `time` at most, or until `stop`, which may be -1, is readable; true if it has
  /// ended.
  [[nodiscard]] bool WaitUntil(std::chrono::steady_clock::time_point time, int stop = -1);
  /// Waits for its end, without a limit; throws Interrupted if `stop` becomes readable before.
  void Wait(int stop);
  /// Once it has ended: its exit value, or 128 and the signal.
  [[nodiscard]] int ExitValue() const { return m_exitValue; }

 private:
  void End();

  pid_t m_pid = -1;  ///< -1 once it has been waited for
  Descriptor m_watch;
  int m_exitValue = -1;
};
