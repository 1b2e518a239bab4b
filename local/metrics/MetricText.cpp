#include "local/metrics/MetricText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <set>
#include <type_traits>

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
    case MetricKind::kUnknown:
      return format == MetricFormat::kOpenMetrics ? "unknown" : "untyped";
    default:
      return "gauge";
  }
}

std::string SampleName(const MetricFamily& family) {
  return family.name + (family.kind == MetricKind::kCounter ? "_total"
                        : family.kind == MetricKind::kInfo  ? "_info"
                                                            : "");
}

/// Backslash, quote and line end escaped; bytes that are no UTF-8 become U+FFFD, since a reader
/// would refuse the whole text for them.
std::string LabelValue(std::string_view text) {
  std::string escaped;
  for (const char letter : ValidUtf8(text)) {
    if (letter == '\\' || letter == '"') {
      escaped += '\\';
    }
    escaped += letter == '\n' ? std::string("\\n") : std::string(1, letter);
  }
  return escaped;
}

/// The digits that the number needs; whole numbers without a point.
void AppendNumber(std::string& text, double value) {
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text.append(digits.data(), end);
}

std::string KeyText(const FieldLayout& field, std::span<const unsigned char> row) {
  return VisitField(field, row, [](const auto& value) -> std::string {
    using Value = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, std::string_view>) {
      return std::string(value);
    } else if constexpr (std::is_same_v<Value, std::nullptr_t>) {
      return "";
    } else {
      std::string text;
      AppendNumber(text, static_cast<double>(value));
      return text;
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

std::string LabelText(std::span<const FieldLayout* const> fields,
                      std::span<const unsigned char> row) {
  std::string text;
  for (const FieldLayout* field : fields) {
    text += text.empty() ? "" : ",";
    text += SnakeCase(field->label) + "=\"" + LabelValue(KeyText(*field, row)) + '"';
  }
  return text;
}

}  // namespace

std::string EscapedLabel(std::string_view text) { return LabelValue(text); }

const char* ContentType(MetricFormat format) {
  return format == MetricFormat::kOpenMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

void MetricText::Begin(const MetricFamily& family) {
  m_sampleName = SampleName(family);
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
  m_text += '\n';
}

void MetricText::Sample(const Labels& labels, double value) {
  std::string text;
  for (const auto& [name, content] : labels) {
    text += text.empty() ? "" : ",";
    text += name + "=\"" + LabelValue(content) + '"';
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
    AppendSample(SnakeCase(metrics.keys.front()->label) + "=\"" + kSummedKey + '"',
                 sum * family.factor / family.divisor);
  }
}

std::size_t MetricText::AddRows(const RecordMetrics& metrics,
                                std::span<const CMBRecord* const> rows) {
  struct Row {
    std::string labels;
    std::span<const unsigned char> bytes;
  };
  std::vector<Row> kept;
  std::set<std::string> seen;
  const BoundedRows bounded = BoundRows(*metrics.layout, rows);
  for (const CMBRecord* record : bounded.kept) {
    const std::span<const unsigned char> bytes = RecordBytes(*record);
    std::string labels = LabelText(metrics.keys, bytes);
    if (seen.insert(labels).second) {
      kept.push_back({std::move(labels), bytes});
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
        AppendSample(row.labels + ',' + LabelText(metrics.texts, row.bytes), 1);
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
