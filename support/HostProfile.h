#pragma once

#include <optional>
#include <string_view>

/// What the agent makes of the host's files: `kClassic` reads what kernels 2.4 and 2.6 tell and no
/// more, `kModern` what the kernels of today know.
enum class HostProfile : unsigned char { kClassic, kModern };

/// The profile in force, chosen once at the start.
inline HostProfile g_hostProfile = HostProfile::kClassic;

/// "classic" or "modern".
[[nodiscard]] constexpr const char* HostProfileName(HostProfile profile) {
  return profile == HostProfile::kModern ? "modern" : "classic";
}

/// Nothing for another name; case matters.
[[nodiscard]] constexpr std::optional<HostProfile> HostProfileOf(std::string_view name) {
  for (const HostProfile profile : {HostProfile::kClassic, HostProfile::kModern}) {
    if (name == HostProfileName(profile)) {
      return profile;
    }
  }
  return std::nullopt;
}
