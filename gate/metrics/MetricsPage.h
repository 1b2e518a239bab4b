#pragma once

#include <memory>

#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpExchange.h"

/// "/metrics" with "collect[]" arguments, and "/metrics/node", which has the names of the node
/// exporter and takes none: the text is the daemon's, which makes it once for all who ask within a
/// second.
class MetricsPage {
 public:
  explicit MetricsPage(DaemonDesk& desk) : m_desk(desk) {}
  /// For "/metrics".
  void Serve(const std::shared_ptr<HttpExchange>& exchange);
  /// For "/metrics/node"; 404 with the reason where the daemon has no such names.
  void ServeNode(const std::shared_ptr<HttpExchange>& exchange);

 private:
  void Ask(const std::shared_ptr<HttpExchange>& exchange, const Json& request);

  DaemonDesk& m_desk;
};
