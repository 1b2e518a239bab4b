#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_set>

struct ProcessPages;

/// Whether the pages of a process (`statm`) are those of a memory that execve(2) has just made: a
/// stack and no program yet. In that state a process closes the files that are marked so, and who
/// reads its `stat`, `io` or `wchan` waits with it, for as long as a server is gone that one of
/// them lies with.
[[nodiscard]] bool IsInExec(const ProcessPages& pages);
/// The same of the text of a `statm`.
[[nodiscard]] bool IsInExec(std::string_view statm);

/// Waits for processes to leave that state, as nearly all do in less than a millisecond.
class ExecWait {
 public:
  static constexpr std::chrono::milliseconds kLongest{20};        ///< for one process
  static constexpr std::chrono::milliseconds kLongestInAll{100};  ///< for all, in a second

  static ExecWait& Instance();

  /// Asks of a process that was in that state again and again; whether it has left it in time. One
  /// that has not is not waited for a second time.
  [[nodiscard]] bool HasLeft(std::int32_t pid, const std::function<bool()>& isStillIn);

 private:
  std::unordered_set<std::int32_t> m_held;
  std::chrono::steady_clock::time_point m_second;
  std::chrono::milliseconds m_waited{0};  ///< since then
};
