#include "local/control/MetricsQueries.h"

#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

std::optional<MetricFormat> ReadFormat(const Json& message) {
  const Json* format = message.Find("format");
  if (format == nullptr || *format == "text") {
    return MetricFormat::kText;
  }
  return *format == "openmetrics" ? std::optional(MetricFormat::kOpenMetrics) : std::nullopt;
}

std::optional<MetricNames> ReadNames(const Json& message) {
  const Json* names = message.Find("names");
  if (names == nullptr) {
    return MetricNames::kAgent;
  }
  return names->IsString() ? MetricNamesOf(names->Text()) : std::nullopt;
}

/// Nothing if the member "records" is no array of at most so many names.
std::optional<std::vector<std::string>> ReadScrapedRecords(const Json& message) {
  std::vector<std::string> names;
  const Json* records = message.Find("records");
  if (records == nullptr) {
    return names;
  }
  if (!records->IsArray() || records->Size() > MetricsQueries::kMostRecords) {
    return std::nullopt;
  }
  for (const Json& record : records->Elements()) {
    if (!record.IsString()) {
      return std::nullopt;
    }
    names.push_back(record.Text());
  }
  return names;
}

void AnswerScrape(const ControlRequest& request, MetricFormat format, MetricsAnswer answer) {
  try {
    switch (answer.outcome) {
      case MetricsAnswer::Outcome::kDone: {
        const Json head{{"content_type", ContentType(format)}, {"bytes", answer.text.size()}};
        request.SucceedRaw("metrics", head, std::move(answer.text));
        break;
      }
      case MetricsAnswer::Outcome::kBadRecord:
        request.Fail({"bad-field", std::move(answer.text), "records"});
        break;
      case MetricsAnswer::Outcome::kBadNames:
        request.Fail({"bad-field", std::move(answer.text), "names"});
        break;
      case MetricsAnswer::Outcome::kStopping:
        request.Fail(StoppingError());
        break;
      case MetricsAnswer::Outcome::kNoMemory:
        request.Fail(MemoryError());
        break;
    }
  } catch (const std::bad_alloc&) {
    request.FailForMemory();
  }
}

}  // namespace

void MetricsQueries::Metrics(const std::shared_ptr<ControlRequest>& request) {
  const std::optional<MetricFormat> format = ReadFormat(request->Message());
  if (!format) {
    request->Fail({"bad-field", "format must be \"text\" or \"openmetrics\"", "format"});
    return;
  }
  const std::optional<MetricNames> names = ReadNames(request->Message());
  if (!names) {
    request->Fail({"bad-field", "names must be \"agent\" or \"node\"", "names"});
    return;
  }
  const std::optional<std::vector<std::string>> records = ReadScrapedRecords(request->Message());
  if (!records) {
    request->Fail({"bad-field",
                   "records must be an array of at most " + std::to_string(kMostRecords) + " names",
                   "records"});
    return;
  }
  const auto done = [request, format = *format](MetricsAnswer answer) {
    AnswerScrape(*request, format, std::move(answer));
  };
  if (*names == MetricNames::kAgent) {
    m_desk.Scrape(*records, *format, done);
  } else if (records->empty()) {
    m_desk.ScrapeNode(*format, done);
  } else {
    request->Fail(
        {"bad-field", "records can't be chosen with the names of the node exporter", "records"});
  }
}
