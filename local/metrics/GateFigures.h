#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"
#include "local/metrics/MetricText.h"

/// How it stands with one target of pushes; counters are those since the gate's start.
struct PushFigures {
  std::string name;
  std::string url;
  std::string error;        ///< why nothing is sent at present; empty if all is well
  std::int64_t oldest = 0;  ///< seconds since the epoch of the oldest row not sent; 0 for none
  std::uint64_t sentRows = 0;
  std::uint64_t sentSamples = 0;
  std::uint64_t refusedSamples = 0;
  std::uint64_t skippedSamples = 0;  ///< too old for the target
  std::uint64_t requests = 0;
  std::uint64_t failures = 0;
  std::uint64_t bytes = 0;  ///< of requests
  double seconds = 0;       ///< that requests took
};

/// How it stands with one receiver of alarms.
struct NoticeFigures {
  std::string url;
  std::uint64_t sent = 0;
  std::uint64_t failures = 0;
  std::uint64_t dropped = 0;
};

/// What the gate says of what it sends.
struct GateFigures {
  /// Targets and receivers that a gate may tell of.
  static constexpr std::size_t kMost = 64;

  std::vector<PushFigures> push;
  std::vector<NoticeFigures> notices;
};

/// What the members "push" and "notices" of the operation `gate` hold; nothing for anything else
/// than such a list. A counter that is not there is 0.
[[nodiscard]] std::optional<std::vector<PushFigures>> ReadPushFigures(const Json& list);
[[nodiscard]] std::optional<std::vector<NoticeFigures>> ReadNoticeFigures(const Json& list);
/// The same list, to be shown: of addresses what may be a secret is left out, which is all behind a
/// receiver's host, and behind the question mark of a target.
[[nodiscard]] Json FiguresJson(const std::vector<PushFigures>& push);
[[nodiscard]] Json FiguresJson(const std::vector<NoticeFigures>& notices);

/// The families qmt_agent_push_..., by target, and qmt_agent_notices_..., by receiver. Of an
/// address no more than the host is shown: what follows it may be a secret.
void AddGateMetrics(MetricText& text, const GateFigures& figures);
