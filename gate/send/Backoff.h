#pragma once

#include <chrono>
#include <random>

/// How long to wait before a server that failed is tried again: twice as long each time, with
/// chance in it, so that the many who lost a server don't come back at once.
class Backoff {
 public:
  using Pause = std::chrono::milliseconds;
  static constexpr std::chrono::seconds kLongestRetryAfter{3600};

  explicit Backoff(Pause first = std::chrono::seconds(1), Pause longest = std::chrono::minutes(5));

  /// The pause after one more failure: between half and all of a time that doubles from the first
  /// pause to the longest. A server that has named a time (0: it has not) gets that at least, up to
  /// kLongestRetryAfter, and up to a quarter more.
  [[nodiscard]] Pause Next(std::chrono::seconds retryAfter = {});
  /// The server has worked: the next failure is a first one.
  void Reset() { m_next = m_first; }

 private:
  Pause m_first;
  Pause m_longest;
  Pause m_next;
  std::minstd_rand m_random;
};
