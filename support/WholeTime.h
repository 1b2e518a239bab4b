#pragma once

#include <cstdint>
#include <ctime>

/// The time, in seconds since the epoch, that a field of 32 bits tells a part of: the one nearest
/// to `near` that has these low bits. So a record of today is told right in 2038 and in 2106, which
/// its field alone would put into 1901 and 1970.
[[nodiscard]] constexpr std::time_t WholeTime(std::int32_t low, std::time_t near) {
  const auto ahead = static_cast<std::uint32_t>(low) - static_cast<std::uint32_t>(near);
  return near + static_cast<std::int32_t>(ahead);
}
