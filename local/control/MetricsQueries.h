#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/metrics/MetricsDesk.h"

/// The operation `metrics`: a scrape, whose text follows the answer's line as raw bytes.
class MetricsQueries {
 public:
  /// Names in one request.
  static constexpr std::size_t kMostRecords = 64;

  explicit MetricsQueries(MetricsDesk& desk) : m_desk(desk) {}

  void Metrics(const std::shared_ptr<ControlRequest>& request);

 private:
  MetricsDesk& m_desk;
};
