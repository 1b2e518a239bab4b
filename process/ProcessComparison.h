#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/process/ProcessSourceLINUX.h"

// What processes and their figures are compared by, from one list to the next.

/// The name of a process that has ended and is still listed.
inline constexpr std::string_view kDefunct = "<defunct>";
/// What accounting keeps of a name.
inline constexpr std::size_t kAcctNameSize = 8;

[[nodiscard]] inline std::string_view AcctName(std::string_view name) {
  return name.substr(0, kAcctNameSize);
}

/// The one that comes first in a list that both stand in; either may be null.
[[nodiscard]] inline const Process* Earlier(const Process* a, const Process* b) {
  return a == nullptr || (b != nullptr && b < a) ? b : a;
}

[[nodiscard]] constexpr std::int64_t Hundredths(const tagUTIME& time) {
  return std::int64_t{time.seconds} * 100 + time.microseconds / 10000;
}

[[nodiscard]] constexpr bool IsNegative(const tagUTIME& time) {
  return time.seconds < 0 || time.microseconds < 0;
}

/// Subtracts the CPU times of an earlier row, or of the figures kept of it; both become zero if one
/// of them fell.
template <class Row, class Figures>
void SubtractCpu(Row& row, const Figures& earlier) {
  const tagUTIME user = row.userCpu - earlier.userCpu;
  const tagUTIME system = row.systemCpu - earlier.systemCpu;
  const bool hasFallen = IsNegative(user) || IsNegative(system);
  row.userCpu = hasFallen ? tagUTIME{} : user;
  row.systemCpu = hasFallen ? tagUTIME{} : system;
}

[[nodiscard]] constexpr std::uint32_t RoundedKbytes(std::uint32_t bytes) {
  return bytes / 1024 + (bytes % 1024 >= 512 ? 1U : 0U);
}
