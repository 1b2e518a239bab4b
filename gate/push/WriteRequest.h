#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gate/push/SampleText.h"

/// Labels that every sample gets besides its own; where it has one of that name, its own stays.
using TargetLabels = std::vector<std::pair<std::string, std::string>>;

/// What a remote-write request of samples holds.
struct WriteBody {
  std::string bytes;        ///< the message, compressed
  std::size_t samples = 0;  ///< in it
  std::size_t leftOut = 0;  ///< samples whose series is none
};

/// The body of a remote-write request 1.0 for these samples of `text`: of each series its labels by
/// name and then its samples in the order given.
[[nodiscard]] WriteBody MakeWriteBody(std::string_view text, std::span<const PlacedSample> samples,
                                      const TargetLabels& labels);

/// The headers of such a request.
[[nodiscard]] std::vector<std::string> WriteHeaders();
