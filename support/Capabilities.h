#pragma once

#include <cstdint>

/// CAP_DAC_READ_SEARCH as a set: reads files and lists folders whatever their modes say.
inline constexpr std::uint64_t kReadEverything = std::uint64_t{1} << 2;

/// Leaves this process, of the capabilities that it has, those of the set `kept` (bit N for
/// capability N) alone, and none to the programs that it may start without root's identity. False
/// if the kernel refuses, with `errno`.
[[nodiscard]] bool KeepCapabilities(std::uint64_t kept);
