#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json/Json.h"

/// A server that the gate pushes samples to, and how that goes.
struct PushTarget {
  std::string name;
  std::string url;
  std::string error;  ///< what keeps it from being pushed to; empty if nothing does
  std::int64_t oldest =
      0;                   ///< time of the oldest row not sent, in seconds since the epoch; 0: none
  std::uint64_t rows = 0;  ///< sent, as the samples and the bytes
  std::uint64_t samples = 0;
  std::uint64_t refused = 0;  ///< samples that the server would not have
  std::uint64_t skipped = 0;  ///< samples that were too old for the server
  std::uint64_t requests = 0;
  std::uint64_t failures = 0;  ///< requests that were not taken
  std::uint64_t bytes = 0;     ///< of requests
  double seconds = 0;          ///< that requests took
};

/// A receiver of alarms.
struct NoticeTarget {
  std::string url;
  std::uint64_t sent = 0;
  std::uint64_t failures = 0;
  std::uint64_t dropped = 0;
};

struct PushStatus {
  std::vector<PushTarget> targets;
  std::vector<NoticeTarget> receivers;
};

/// What an answer to `status` says of pushing, checked as the answers of client/ask/Answers.h are;
/// nothing of a daemon that does not say.
[[nodiscard]] PushStatus ReadPushStatus(const Json& answer);
