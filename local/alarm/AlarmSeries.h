#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <deque>
#include <optional>

/// What one number of one row was in the last stretch of time, thinned to few samples, and the
/// straight line through it.
class AlarmSeries {
 public:
  static constexpr int kMostSamples = 120;
  /// Samples that a line needs, which lie this part of the stretch apart at least.
  static constexpr std::size_t kLeastSamples = 3;
  static constexpr int kLeastPart = 4;

  explicit AlarmSeries(std::chrono::seconds over) : m_over(over) {}

  /// Takes the samples in the order of their time; one that is older than the last is passed over.
  void Add(std::time_t time, double value);
  /// The clock was set back: moves the samples so that the last is of `time`, if that is earlier.
  void MoveBack(std::time_t time);
  /// Where the line leads so long after `now`; none where there are too few samples. The present
  /// value counts whether it has been kept or not.
  [[nodiscard]] std::optional<double> Ahead(std::time_t now, std::chrono::seconds ahead) const;
  [[nodiscard]] std::time_t LastTime() const { return m_last.time; }

 private:
  struct Sample {
    std::time_t time = 0;
    double value = 0;
  };

  std::chrono::seconds m_over;
  std::deque<Sample> m_samples;
  Sample m_last;
};
