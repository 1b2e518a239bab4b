#pragma once

#include <optional>
#include <string_view>

inline constexpr const char* kLoadavgPath = "/proc/loadavg";

/// The load averages of the last one, five and fifteen minutes.
struct LoadAverages {
  float load1 = 0;
  float load5 = 0;
  float load15 = 0;
};

/// Those of /proc/loadavg; nothing unless it has all three.
[[nodiscard]] std::optional<LoadAverages> ParseLoadavg(std::string_view text);
