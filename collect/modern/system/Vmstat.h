#pragma once

#include <cstdint>
#include <string_view>

inline constexpr const char* kVmstatPath = "/proc/vmstat";

/// What is taken of /proc/vmstat, all since boot; 0 for what it does not tell.
struct VmstatFigures {
  std::uint64_t readKB = 0;  ///< from disks
  std::uint64_t writtenKB = 0;
  std::uint64_t swapInPages = 0;
  std::uint64_t swapOutPages = 0;
  std::uint64_t faults = 0;  ///< major ones included
  std::uint64_t majorFaults = 0;
  std::uint64_t scannedPages = 0;
  std::uint64_t reclaimedPages = 0;
  std::uint32_t found = 0;  ///< for TellMissing()
};

/// Scans and reclaims are summed over who did them: kswapd, a task that wanted memory, khugepaged
/// and a request of a memory group. A kernel before 4.8 has a counter for each zone instead of one
/// for each of these. What is a part of another counter (anon and file pages) or no page
/// (pgscan_direct_throttle) does not count.
[[nodiscard]] VmstatFigures ParseVmstat(std::string_view text);
/// Tells once what the file lacks.
void TellMissing(const VmstatFigures& figures);
