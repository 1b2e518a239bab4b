#pragma once

#include <cstdint>

/// The low 32 bits of a counter of 64: differences of such words stay right while the counter grows
/// by less than 2^32.
[[nodiscard]] constexpr std::uint32_t LowWord(std::uint64_t counter) {
  return static_cast<std::uint32_t>(counter);
}
