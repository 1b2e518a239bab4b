#pragma once

#include <memory>

#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpExchange.h"

/// "/metrics" with "collect[]" arguments: the text is the daemon's, which makes it once for all who
/// ask within a second.
class MetricsPage {
 public:
  explicit MetricsPage(DaemonDesk& desk) : m_desk(desk) {}
  void Serve(const std::shared_ptr<HttpExchange>& exchange);

 private:
  DaemonDesk& m_desk;
};
