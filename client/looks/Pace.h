#pragma once

#include <chrono>
#include <string>

#include "client/ask/Errors.h"

/// The shortest and the longest pace of looks, in seconds.
inline constexpr double kShortestPace = 0.1;
inline constexpr double kLongestPace = 86400;

/// The beats of looks that are made again and again.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  /// `option` is the one that was given `seconds`. Throws UsageError for seconds that are no pace.
  explicit Pace(double seconds, const char* option = "--every") {
    if (!(seconds >= kShortestPace && seconds <= kLongestPace)) {
      throw UsageError(std::string(option) + " takes seconds from 0.1 to 86400");
    }
    m_every = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  }

  /// From one beat to the next.
  [[nodiscard]] Clock::duration Length() const { return m_every; }

  /// The first beat after now, counted from the start: a slow answer drops beats, it does not
  /// shift those that follow.
  [[nodiscard]] Clock::time_point Next() const {
    return m_start + ((Clock::now() - m_start) / m_every + 1) * m_every;
  }

 private:
  Clock::duration m_every{};
  Clock::time_point m_start = Clock::now();
};
