#pragma once

#include <cstdint>
#include <string_view>

/// Where a hash begins.
inline constexpr std::uint64_t kTextHashStart = 0xcbf29ce484222325U;

/// FNV-1a of 64 bits, the same on each host and in each version. `hash`: that of the text before.
[[nodiscard]] constexpr std::uint64_t TextHash(std::string_view text,
                                               std::uint64_t hash = kTextHashStart) {
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  }
  return hash;
}
