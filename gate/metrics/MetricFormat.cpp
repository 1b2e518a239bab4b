#include "gate/metrics/MetricFormat.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

/// The weight that an Accept header gives to a media type; 0 if it does not name it.
double WeightOf(std::string_view accept, std::string_view type) {
  while (!accept.empty()) {
    const std::string_view range = accept.substr(0, accept.find(','));
    accept.remove_prefix(std::min(accept.size(), range.size() + 1));
    const std::size_t begin = range.find_first_not_of(" \t");
    if (begin == std::string_view::npos || !range.substr(begin).starts_with(type)) {
      continue;
    }
    const std::size_t weight = range.find(";q=");
    return weight == std::string_view::npos
               ? 1.0
               : std::strtod(std::string(range.substr(weight + 3)).c_str(), nullptr);
  }
  return 0;
}

}  // namespace

const char* PreferredFormat(std::string_view accept) {
  const double openMetrics = WeightOf(accept, "application/openmetrics-text");
  return openMetrics > 0 && openMetrics >= WeightOf(accept, "text/plain") ? "openmetrics" : "text";
}
