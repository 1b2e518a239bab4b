#pragma once

#include <optional>
#include <string_view>

/// Whose names figures have.
enum class MetricNames : unsigned char {
  kAgent,  ///< those of the records, which every figure has
  kNode,   ///< those of the node exporter, under the host profile `modern`
};

/// "agent" or "node"; nothing for another word.
[[nodiscard]] constexpr std::optional<MetricNames> MetricNamesOf(std::string_view word) {
  return word == "agent"  ? std::optional(MetricNames::kAgent)
         : word == "node" ? std::optional(MetricNames::kNode)
                          : std::nullopt;
}
