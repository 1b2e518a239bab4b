#include "client/report/Analysis.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

constexpr double kSecondsADay = 86400;
constexpr std::size_t kLeastForGrowth = 3;
constexpr double kGapFactor = 1.5;

}  // namespace

std::optional<Extent> ExtentOf(const std::vector<Bucket>& buckets) {
  if (buckets.empty()) {
    return std::nullopt;
  }
  const Bucket& first = buckets.front();
  Extent extent{first.least, first.greatest, first.time, first.time};
  for (const Bucket& bucket : buckets) {
    if (bucket.least < extent.least) {
      extent.least = bucket.least;
      extent.leastTime = bucket.time;
    }
    if (bucket.greatest > extent.greatest) {
      extent.greatest = bucket.greatest;
      extent.greatestTime = bucket.time;
    }
  }
  return extent;
}

std::vector<Peak> PeaksOf(std::vector<Peak> moments, std::size_t count, std::int64_t apart) {
  std::ranges::stable_sort(
      moments, [](const Peak& left, const Peak& right) { return left.value > right.value; });
  std::vector<Peak> peaks;
  for (const Peak& moment : moments) {
    if (peaks.size() == count || !(moment.value > 0)) {
      break;
    }
    if (std::ranges::none_of(
            peaks, [&](const Peak& peak) { return std::abs(peak.time - moment.time) < apart; })) {
      peaks.push_back(moment);
    }
  }
  return peaks;
}

std::optional<double> GrowthADay(const std::vector<Bucket>& buckets) {
  if (buckets.size() < kLeastForGrowth ||
      buckets.back().time - buckets.front().time < kLeastGrowthSeconds) {
    return std::nullopt;
  }
  const auto count = static_cast<double>(buckets.size());
  // Times count from the first one, since squares of seconds since the epoch leave no digits.
  const std::int64_t first = buckets.front().time;
  double meanTime = 0;
  double meanValue = 0;
  for (const Bucket& bucket : buckets) {
    meanTime += static_cast<double>(bucket.time - first) / count;
    meanValue += bucket.mean / count;
  }
  double product = 0;
  double square = 0;
  for (const Bucket& bucket : buckets) {
    const double time = static_cast<double>(bucket.time - first) - meanTime;
    product += time * (bucket.mean - meanValue);
    square += time * time;
  }
  return square > 0 ? std::optional(product / square * kSecondsADay) : std::nullopt;
}

std::optional<double> DaysLeft(std::optional<double> growthADay, double available) {
  if (!growthADay || !(*growthADay > 0) || !(available >= 0)) {
    return std::nullopt;
  }
  return available / *growthADay;
}

std::vector<Span> HolesOf(const std::vector<std::int64_t>& times, std::int64_t since,
                          std::int64_t until, std::int64_t width) {
  std::vector<Span> holes;
  if (times.empty()) {
    holes.push_back({since, until});
    return holes;
  }
  if (times.front() - since >= width) {
    holes.push_back({since, times.front()});
  }
  for (std::size_t place = 1; place < times.size(); ++place) {
    if (times[place] - times[place - 1] >= 2 * width) {
      holes.push_back({times[place - 1], times[place]});
    }
  }
  if (until - times.back() >= width) {
    holes.push_back({times.back(), until});
  }
  return holes;
}

bool IsGap(std::int64_t seconds, double every) {
  return static_cast<double>(seconds) > every * kGapFactor;
}
