#pragma once

#include <memory>

#include "local/http/HttpExchange.h"
#include "local/metrics/MetricsDesk.h"

/// What the daemon serves by HTTP: "/metrics" with "collect[]" arguments, "/-/healthy",
/// "/-/ready", and "/", which links them. Everything else is 404.
class HttpPages {
 public:
  explicit HttpPages(MetricsDesk& metrics) : m_metrics(metrics) {}
  void Serve(const std::shared_ptr<HttpExchange>& exchange);

 private:
  void ServeMetrics(const std::shared_ptr<HttpExchange>& exchange);

  MetricsDesk& m_metrics;
};
