#include "local/metrics/MetricText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <type_traits>
#include <unordered_set>

#include "json/JsonText.h"
#include "local/history/FieldValue.h"
#include "local/metrics/RowBound.h"

namespace {

const char* KindName(MetricKind kind, MetricFormat format) {
  switch (kind) {
    case MetricKind::kCounter:
      return "counter";
    case MetricKind::kInfo:
      return format == MetricFormat::kOpenMetrics ? "info" : "gauge";
    default:
      return "gauge";
  }
}

const char* SampleEnding(MetricKind kind) {
  return kind == MetricKind::kCounter ? "_total" : kind == MetricKind::kInfo ? "_info" : "";
}

bool IsPlain(char letter) {
  return letter != '\\' && letter != '"' && letter != '\n' && (letter & '\x80') == 0;
}

/// Backslash, quote and line end escaped; bytes that are no UTF-8 become U+FFFD, since a reader
/// would refuse the whole text for them.
void AppendLabelValue(std::string& text, std::string_view value) {
  if (std::ranges::all_of(value, IsPlain)) {
    text += value;
    return;
  }
  for (const char letter : ValidUtf8(value)) {
    if (letter == '\\' || letter == '"') {
      text += '\\';
    }
    if (letter == '\n') {
      text += "\\n";
    } else {
      text += letter;
    }
  }
}

/// The digits that the number needs; whole numbers without a point.
void AppendNumber(std::string& text, double value) {
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text.append(digits.data(), end);
}

void AppendKey(std::string& text, const FieldLayout& field, std::span<const unsigned char> row) {
  VisitField(field, row, [&](const auto& value) {
    using Value = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, std::string_view>) {
      AppendLabelValue(text, value);
    } else if constexpr (!std::is_same_v<Value, std::nullptr_t>) {
      AppendNumber(text, static_cast<double>(value));
    }
  });
}

std::optional<double> NumberOf(const FieldLayout& field, std::span<const unsigned char> row) {
  return VisitField(field, row, [](const auto& value) -> std::optional<double> {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
      return static_cast<double>(value);
    } else {
      return std::nullopt;
    }
  });
}

void AppendLabels(std::string& text, std::span<const FieldLayout* const> fields,
                  std::span<const std::string> names, std::span<const unsigned char> row) {
  for (std::size_t place = 0; place < fields.size(); ++place) {
    text += text.empty() ? "" : ",";
    text += names[place];
    text += "=\"";
    AppendKey(text, *fields[place], row);
    text += '"';
  }
}

}  // namespace

const char* ContentType(MetricFormat format) {
  return format == MetricFormat::kOpenMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

void MetricText::Begin(const MetricFamily& family) {
  m_sampleName = family.name;
  m_sampleName += SampleEnding(family.kind);
  if (m_format == MetricFormat::kSamples) {
    return;
  }
  const bool isOpen = m_format == MetricFormat::kOpenMetrics;
  const std::string& name = isOpen ? family.name : m_sampleName;
  m_text += "# TYPE " + name + ' ' + KindName(family.kind, m_format) + '\n';
  if (isOpen && *family.unit != '\0') {
    m_text += "# UNIT " + name + ' ' + family.unit + '\n';
  }
  m_text += "# HELP " + name + ' ' + family.help + '\n';
}

void MetricText::AppendSample(std::string_view labels, double value) {
  m_text += m_sampleName;
  if (!labels.empty()) {
    m_text += '{';
    m_text += labels;
    m_text += '}';
  }
  m_text += ' ';
  AppendNumber(m_text, value);
  m_text += m_lineEnd;
  ++m_samples;
}

void MetricText::SetTime(std::int64_t seconds) {
  m_lineEnd = ' ' + std::to_string(seconds) + "000\n";
}

void MetricText::CutTo(const Mark& mark) {
  m_text.resize(mark.bytes);
  m_samples = mark.samples;
}

void MetricText::Sample(const Labels& labels, double value) {
  std::string text;
  for (const auto& [name, content] : labels) {
    text += text.empty() ? "" : ",";
    text += name + "=\"";
    AppendLabelValue(text, content);
    text += '"';
  }
  AppendSample(text, value);
}

void MetricText::AppendSum(const RecordMetrics& metrics, const MetricFamily& family,
                           std::span<const CMBRecord* const> rows) {
  if (rows.empty() || family.kind == MetricKind::kInfo ||
      !IsSummed(*metrics.layout, *family.field)) {
    return;
  }
  double sum = 0;
  bool isTold = false;
  for (const CMBRecord* row : rows) {
    if (const auto value = NumberOf(*family.field, RecordBytes(*row))) {
      sum += *value;
      isTold = true;
    }
  }
  if (isTold) {
    AppendSample(metrics.keyNames.front() + "=\"" + kSummedKey + '"',
                 sum * family.factor / family.divisor);
  }
}

std::size_t MetricText::AddRows(const RecordMetrics& metrics,
                                std::span<const CMBRecord* const> rows) {
  struct Row {
    std::string labels;
    std::span<const unsigned char> bytes;
  };
  const BoundedRows bounded = BoundRows(*metrics.layout, rows);
  std::vector<Row> kept;
  kept.reserve(bounded.kept.size());  // the keys that were seen are the labels of these
  std::unordered_set<std::string_view> seen;
  for (const CMBRecord* record : bounded.kept) {
    Row& row = kept.emplace_back(Row{{}, RecordBytes(*record)});
    AppendLabels(row.labels, metrics.keys, metrics.keyNames, row.bytes);
    if (!seen.insert(row.labels).second) {
      kept.pop_back();
    }
  }
  if (kept.empty()) {
    return 0;
  }
  for (const MetricFamily& family : metrics.families) {
    const std::size_t start = m_text.size();
    Begin(family);
    const std::size_t samples = m_text.size();
    for (const Row& row : kept) {
      if (family.kind == MetricKind::kInfo) {
        std::string labels = row.labels;
        AppendLabels(labels, metrics.texts, metrics.textNames, row.bytes);
        AppendSample(labels, 1);
      } else if (const auto value = NumberOf(*family.field, row.bytes)) {
        AppendSample(row.labels, *value * family.factor / family.divisor);
      }
    }
    AppendSum(metrics, family, bounded.summed);
    if (m_text.size() == samples) {
      m_text.resize(start);  // what this host does not tell is no metric
    }
  }
  return bounded.leftOut;
}

std::string MetricText::Finish() {
  if (m_format == MetricFormat::kOpenMetrics) {
    m_text += "# EOF\n";
  }
  return std::move(m_text);
}
