#pragma once

#include <cstddef>
#include <functional>

namespace faults {

/// What has become of a child that was to be killed.
struct KilledRun {
  bool wasKilled = false;  ///< false where it made fewer calls
  bool wasTraced = false;  ///< false where this process may trace none
  bool wasUnhurt = false;  ///< it came to its end by itself and without a fault
  std::size_t stops = 0;   ///< begins and ends of system calls until its end
};

/// Runs both functions in a child process that is traced, and kills it by SIGKILL where the second
/// one stands at the `place`-th begin or end of a system call, counted from 1; 0 for nowhere. At a
/// begin the call has not been done.
[[nodiscard]] KilledRun RunKilled(const std::function<void()>& prepare,
                                  const std::function<void()>& work, std::size_t place);

/// Runs the function in a child process; whether that came to its end by itself.
[[nodiscard]] bool RunInChild(const std::function<void()>& work);

}  // namespace faults
