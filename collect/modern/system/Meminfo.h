#pragma once

#include <cstdint>
#include <string_view>

inline constexpr const char* kMeminfoPath = "/proc/meminfo";

/// What is taken of /proc/meminfo, in Kbytes.
struct MeminfoFigures {
  std::uint64_t totalKB = 0;
  std::uint64_t availableKB = 0;  ///< to programs, without swapping
  std::uint64_t totalSwapKB = 0;
  std::uint64_t freeSwapKB = 0;
  std::uint32_t found = 0;  ///< for TellMissing()

  /// Kernels before 3.14 don't tell it.
  [[nodiscard]] bool HasAvailable() const;
};

[[nodiscard]] MeminfoFigures ParseMeminfo(std::string_view text);
/// Tells once what the file lacks.
void TellMissing(const MeminfoFigures& figures);
