#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"

/// What the values of one stretch of time come to.
struct Bucket {
  std::int64_t time = 0;  ///< its begin, in seconds since the epoch
  double least = 0;
  double mean = 0;
  double greatest = 0;
};

struct PointSeries {
  std::string key;  ///< the values of its labels, parted by blanks; empty for a series of all rows
  std::map<std::string, std::vector<Bucket>> points;  ///< by label, the oldest first
  std::map<std::string, double> means;  ///< of all rows, by label; only where they were asked for

  /// The points of the label; none if there are none.
  [[nodiscard]] const std::vector<Bucket>& Of(const std::string& label) const;
};

struct PointsAnswer {
  std::int64_t seconds = 1;  ///< the width of a bucket
  std::vector<PointSeries> series;
  std::uint64_t omitted = 0;  ///< further series that are not told
};

/// An answer to `history` with `points`. Throws ClientError, naming the member, for one that is not
/// as the control protocol promises.
[[nodiscard]] PointsAnswer ReadPoints(const Json& answer);

/// What the control protocol takes as `points`, at most.
inline constexpr std::int64_t kMostPoints = 2000;
