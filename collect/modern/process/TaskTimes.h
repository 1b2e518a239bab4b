#pragma once

#include <cstdint>

/// Of the ticks that the kernel's files tell times in.
inline constexpr std::uint64_t kNanosecondsPerTick = 10'000'000;

/// The times of a process as its stat tells them, in nanoseconds.
struct TaskTimes {
  std::uint64_t user = 0;
  std::uint64_t system = 0;
};

/// Scales the times of a process, which the kernel may have counted by ticks, to its exact run
/// time, as the kernel does for stat: neither of the two ever falls. `last` is what the previous
/// call for the process has left there, zeros at first; it becomes the result.
void ScaleTaskTimes(std::uint64_t user, std::uint64_t system, std::uint64_t runTime,
                    TaskTimes& last);
