#include "local/HttpPages.h"

#include <string>
#include <vector>

namespace {

constexpr std::size_t kMostRecords = 64;
constexpr const char* kStart =
    "<!DOCTYPE html>\n<html lang=\"en\"><head><meta "
    "charset=\"utf-8\"><title>qmtdmon</title></head>\n"
    "<body><h1>qmtdmon " QMT_VERSION
    "</h1><ul>\n<li><a href=\"/metrics\">/metrics</a></li>\n"
    "<li><a href=\"/-/healthy\">/-/healthy</a></li>\n<li><a href=\"/-/ready\">/-/ready</a></li>\n"
    "</ul></body></html>\n";

}  // namespace

void HttpPages::Serve(const std::shared_ptr<HttpExchange>& exchange) {
  if (exchange->path == "/metrics") {
    ServeMetrics(exchange);
  } else if (exchange->path == "/") {
    exchange->Answer({200, "text/html; charset=utf-8", kStart});
  } else if (exchange->path == "/-/healthy") {
    exchange->Answer({200, HttpAnswer{}.contentType, "healthy\n"});
  } else if (exchange->path == "/-/ready") {
    const bool isReady = !EventLoop::IsStopRequested();
    exchange->Answer(
        {isReady ? 200U : 503U, HttpAnswer{}.contentType, isReady ? "ready\n" : "stopping\n"});
  } else {
    exchange->Answer({404, HttpAnswer{}.contentType, "no such page\n"});
  }
}

void HttpPages::ServeMetrics(const std::shared_ptr<HttpExchange>& exchange) {
  std::vector<std::string> records;
  for (const auto& [name, value] : exchange->arguments) {
    if (name == "collect[]") {
      records.push_back(value);
    }
  }
  if (records.size() > kMostRecords) {
    exchange->Answer({400, HttpAnswer{}.contentType, "too many records\n"});
    return;
  }
  m_metrics.Scrape(records, PreferredFormat(exchange->accept), exchange);
}
