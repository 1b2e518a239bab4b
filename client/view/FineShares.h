#pragma once

#include <chrono>
#include <string>
#include <unordered_map>

#include "client/ask/Answers.h"

/// Shares of processors of processes, by the times that the rows of two looks have. The daemon's
/// own divide by whole seconds, which is coarse for looks that are a second or two apart.
class FineShares {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A record that is not one of processes with the times "User CPU" and "System CPU" is left
  /// alone.
  explicit FineShares(const Schema& schema);

  /// Sets "CPU %", of all processors, and "CPU % Each", of one, in the rows that were
  /// collected at `at`, for each since the look before, or since its start where that look did not
  /// show it. Null in the first look. `processors` may be 0 if their number is not known: then
  /// there is no share of all.
  void Set(Json& rows, TimePoint at, double processors);

 private:
  [[nodiscard]] std::string KeyOf(const Json& row) const;

  const bool m_isOn;
  std::vector<std::string> m_keys;
  std::unordered_map<std::string, double> m_last;  ///< seconds of processors, by instance
  TimePoint m_lastAt;
  bool m_hasLast = false;
};
