#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>

struct ProcessPages;

/// Whether the pages of a process (`statm`) are those of a memory that execve(2) has just made: a
/// stack and no program yet. In that state a process closes the files that are marked so, and who
/// reads its `io`, `exe`, `cwd` or `root`, and by kernel its `stat` and `wchan`, waits with it, for
/// as long as a server is gone that one of them lies with.
[[nodiscard]] bool IsInExec(const ProcessPages& pages);

/// The text of a file of a process by its name below the process's folder, until the next one is
/// read; empty if it can't be read.
using ProcessFileReader = std::function<std::string_view(const char* name)>;
/// Whether a process is in that state, does not leave it within some milliseconds, as nearly all do
/// in less than one, and waits there (S or D in its `status`).
[[nodiscard]] bool StaysInExec(std::int32_t pid, const ProcessFileReader& read);

/// Waits for processes to leave that state.
class ExecWait {
 public:
  static constexpr std::chrono::milliseconds kLongest{20};        ///< for one process
  static constexpr std::chrono::milliseconds kLongestInAll{100};  ///< for all, in a second
  /// One that has not left it in time is not waited for again for so long.
  static constexpr std::chrono::seconds kHeld{60};

  static ExecWait& Instance();

  /// Asks of a process that was in that state again and again; whether it has left it in time.
  [[nodiscard]] bool HasLeft(std::int32_t pid, const std::function<bool()>& isStillIn);

 private:
  using Clock = std::chrono::steady_clock;

  /// Sleeps once, unless all that may be waited in a second has been.
  [[nodiscard]] bool Pause();

  std::unordered_map<std::int32_t, Clock::time_point> m_heldUntil;
  Clock::time_point m_second;
  std::chrono::milliseconds m_waited{0};  ///< since then
};
