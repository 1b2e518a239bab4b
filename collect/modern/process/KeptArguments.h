#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

/// The command lines of processes as walks over /proc have seen them last. While a process waits
/// and nobody can wake it, its own may keep the reader waiting too, for as long as a server is gone
/// whose file it was about to map.
class KeptArguments {
 public:
  void Keep(std::int32_t pid, std::uint64_t startTicks, std::string_view text);
  /// Empty if there is none; valid until the next call of Keep() or EndWalk().
  [[nodiscard]] std::string_view Find(std::int32_t pid, std::uint64_t startTicks);
  /// Forgets those that nobody has kept or found since the walk before.
  void EndWalk();
  void Clear() { m_kept.clear(); }

 private:
  struct Kept {
    std::uint64_t startTicks = 0;
    std::uint64_t walk = 0;
    std::string text;
  };
  std::unordered_map<std::int32_t, Kept> m_kept;
  std::uint64_t m_walk = 1;
};

/// Whether the state of a process is such a one.
[[nodiscard]] constexpr bool MayHoldItsReader(char state) { return state == 'D'; }
/// Whether a process in that state waits for what keeps nobody from its arguments, by its `wchan`:
/// the kernel's function that it waits in. False where that is not told, as to who has no right to
/// it.
[[nodiscard]] bool IsHarmlessWait(std::string_view wchan);
