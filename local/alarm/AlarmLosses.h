#pragma once

#include <chrono>
#include <optional>
#include <utility>

#include "local/log/ProblemReport.h"
#include "local/metrics/AlarmFigures.h"

/// Tells what alarms have lost, once an hour at most.
class AlarmLossLog {
 public:
  static constexpr std::chrono::hours kPause{1};

  explicit AlarmLossLog(ProblemReport report) : m_report(std::move(report)) {}
  /// What has been lost until now.
  void Note(const AlarmLosses& losses, std::chrono::steady_clock::time_point now);

 private:
  ProblemReport m_report;
  AlarmLosses m_told;
  std::optional<std::chrono::steady_clock::time_point> m_last;
};
