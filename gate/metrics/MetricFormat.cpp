#include "gate/metrics/MetricFormat.h"

#include "gate/http/HeaderWeight.h"

const char* PreferredFormat(std::string_view accept) {
  const double openMetrics = WeightOf(accept, "application/openmetrics-text");
  return openMetrics > 0 && openMetrics >= WeightOf(accept, "text/plain") ? "openmetrics" : "text";
}
