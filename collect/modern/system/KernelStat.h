#pragma once

#include <cstdint>
#include <string_view>

inline constexpr const char* kKernelStatPath = "/proc/stat";

/// What is taken of /proc/stat besides the times of processors.
struct KernelStatFigures {
  std::uint64_t bootTime = 0;  ///< seconds since the epoch
  std::uint64_t contextSwitches = 0;
  std::uint64_t interrupts = 0;
  std::uint64_t forks = 0;  ///< processes and threads made since boot
  std::uint64_t runnable = 0;
  std::uint32_t processors = 0;  ///< that are on
  std::uint32_t found = 0;       ///< for TellMissing()
};

[[nodiscard]] KernelStatFigures ParseKernelStat(std::string_view text);
/// Tells once what the file lacks.
void TellMissing(const KernelStatFigures& figures);
/// The same for the boot time alone.
void TellMissingBootTime(const KernelStatFigures& figures);
