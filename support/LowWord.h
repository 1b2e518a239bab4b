#pragma once

#include <cstdint>

/// The low 32 bits of a counter of 64: differences of such words stay right while the counter grows
/// by less than 2^32.
[[nodiscard]] constexpr std::uint32_t LowWord(std::uint64_t counter) {
  return static_cast<std::uint32_t>(counter);
}

/// A sum that wraps at 32 bits.
[[nodiscard]] constexpr std::int32_t WrappedSum(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
