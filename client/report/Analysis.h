#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "client/report/Points.h"

// What the kept figures of a stretch come to. All times are seconds since the epoch.

/// The extent of a figure over a stretch.
struct Extent {
  double least = 0;
  double greatest = 0;
  std::int64_t leastTime = 0;     ///< of the first bucket with it
  std::int64_t greatestTime = 0;  ///< likewise
};

/// Nothing for no buckets.
[[nodiscard]] std::optional<Extent> ExtentOf(const std::vector<Bucket>& buckets);

/// A moment at which a figure was high.
struct Peak {
  std::int64_t time = 0;
  double value = 0;
};

/// The `count` highest of the moments, the highest first, no two of them nearer to each other than
/// `apart` seconds. Moments at which the figure was 0 or less are none.
[[nodiscard]] std::vector<Peak> PeaksOf(std::vector<Peak> moments, std::size_t count,
                                        std::int64_t apart);

/// By how much a figure grows a day: the slope of the straight line (least squares) through the
/// means of the buckets. Nothing for fewer than three of them or where they span less than
/// kLeastGrowthSeconds, as what comes and goes within hours would tell of days.
inline constexpr std::int64_t kLeastGrowthSeconds = 6 * 3600;
[[nodiscard]] std::optional<double> GrowthADay(const std::vector<Bucket>& buckets);

/// Days until `available` is used up at that growth; nothing where nothing grows.
[[nodiscard]] std::optional<double> DaysLeft(std::optional<double> growthADay, double available);

/// A stretch of time.
struct Span {
  std::int64_t begin = 0;
  std::int64_t end = 0;

  [[nodiscard]] std::int64_t Seconds() const { return end - begin; }
  friend bool operator==(const Span& left, const Span& right) = default;
};

/// The stretches between buckets with rows, of `width` seconds each, that have an empty bucket
/// between them: `begin` is that of the bucket before and `end` that of the bucket behind. At the
/// edges `since` and `until` stand for a bucket that is not there. `times` ascend.
[[nodiscard]] std::vector<Span> HolesOf(const std::vector<std::int64_t>& times, std::int64_t since,
                                        std::int64_t until, std::int64_t width);

/// Whether rows are missing between two that are `seconds` apart, by a schedule of `every` seconds:
/// a row that comes late by less than half of that is none that is missing.
[[nodiscard]] bool IsGap(std::int64_t seconds, double every);
