#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "local/metrics/MetricFamily.h"
#include "node/Record.h"

enum class MetricFormat {
  kOpenMetrics,  ///< OpenMetrics 1.0
  kText,         ///< the text format 0.0.4
  kSamples,      ///< the samples of the text format alone, each with its time
};

/// What the HTTP header Content-Type says of a format for scrapes.
[[nodiscard]] const char* ContentType(MetricFormat format);

/// Writes metrics one family after the other.
class MetricText {
 public:
  using Labels = std::vector<std::pair<std::string, std::string>>;

  explicit MetricText(MetricFormat format) : m_format(format) {}

  /// Opens a family; its samples follow.
  void Begin(const MetricFamily& family);
  void Sample(const Labels& labels, double value);
  /// All families of a record's rows. Of rows with one key the first counts. Rows beyond the bound
  /// of their record are summed, where they can be. Returns how many are beyond it.
  std::size_t AddRows(const RecordMetrics& metrics, std::span<const CMBRecord* const> rows);
  /// The time of the samples that follow, seconds since the epoch; for kSamples.
  void SetTime(std::int64_t seconds);

  /// Makes room for so many bytes.
  void Reserve(std::size_t bytes) { m_text.reserve(bytes); }

  /// A place in the text.
  struct Mark {
    std::size_t bytes = 0;
    std::size_t samples = 0;
  };
  /// The end of the text: its length, and how many samples it holds.
  [[nodiscard]] Mark End() const { return {m_text.size(), m_samples}; }
  /// Takes away what was added since.
  void CutTo(const Mark& mark);
  /// The whole text; the object is used up.
  [[nodiscard]] std::string Finish();

 private:
  void AppendSample(std::string_view labels, double value);
  /// The sum of a field of rows, where it says something.
  void AppendSum(const RecordMetrics& metrics, const MetricFamily& family,
                 std::span<const CMBRecord* const> rows);

  MetricFormat m_format;
  std::string m_sampleName;
  std::string m_text;
  std::string m_lineEnd = "\n";
  std::size_t m_samples = 0;
};
