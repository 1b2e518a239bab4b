#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// One processor's line of /proc/stat; clock ticks since boot.
struct CpuTicks {
  enum Column : std::uint8_t {
    kUser,
    kNice,
    kSystem,
    kIdle,
    kWait,
    kIrq,
    kSoftIrq,
    kStolen,
    kGuest,
    kGuestNice
  };
  static constexpr std::size_t kColumns = kGuestNice + 1;
  /// What User() and System() and the times of idling are made of.
  static constexpr std::size_t kUsualColumns = kSoftIrq + 1;

  std::uint32_t processor = 0;
  std::size_t columns = 0;  ///< how many of `ticks` the line has; the others are 0
  std::array<std::uint64_t, kColumns> ticks{};

  /// Programs, niced ones and guests included, which the kernel has among them already.
  [[nodiscard]] std::uint64_t User() const { return ticks[kUser] + ticks[kNice]; }
  /// The kernel and its interrupts.
  [[nodiscard]] std::uint64_t System() const {
    return ticks[kSystem] + ticks[kIrq] + ticks[kSoftIrq];
  }
};

/// Whether the line stands among those of processors, with which /proc/stat begins: "cpu ..." of
/// all of them or "cpuN ...".
[[nodiscard]] inline bool IsCpuLine(std::string_view line) { return line.starts_with("cpu"); }
/// Takes a line "cpuN ...". False, with `figures` as they were, for another.
[[nodiscard]] bool ParseCpuStatLine(std::string_view line, CpuTicks& figures);
/// The same for the line "cpu  ..." of all processors; the figures' number is 0.
[[nodiscard]] bool ParseCpuStatSum(std::string_view line, CpuTicks& figures);
