#pragma once

#include <string>
#include <vector>

#include "node/LayoutRegistry.h"

enum class MetricKind { kCounter, kGauge, kInfo };

/// How a field, or a figure of the daemon, is exposed.
struct MetricFamily {
  std::string name;  ///< without the "_total" of a counter and the "_info" of an info
  std::string help;
  MetricKind kind = MetricKind::kGauge;
  const char* unit = "";  ///< "bytes", "seconds", "ratio" or empty; the name ends in it
  // From the field's unit to the base unit: 29 % is 29 / 100, which 29 * 0.01 is not.
  double factor = 1;
  double divisor = 1;
  const FieldLayout* field = nullptr;  ///< null for an info and for a figure
};

/// What one record exposes; made from its layout alone.
struct RecordMetrics {
  const RecordLayout* layout = nullptr;
  std::vector<const FieldLayout*> keys;   ///< the labels of each sample
  std::vector<const FieldLayout*> texts;  ///< the further labels of the info
  std::vector<std::string> keyNames;      ///< the names of the labels, in the order of `keys`
  std::vector<std::string> textNames;     ///< in that of `texts`
  std::vector<MetricFamily> families;     ///< in layout order, an info behind them
};

/// Whether a record's rows may be exposed: its key holds no process number, of which there is no
/// end.
[[nodiscard]] bool IsExposable(const RecordLayout& layout);

/// The metrics of a record's rows as a look without rates makes them: counters since the start of
/// the host, gauges, and percentages as ratios. Left out are rates, which the reader makes itself,
/// lengths of time that are averages, and percentages of interval records, which take two looks.
[[nodiscard]] RecordMetrics MetricsOf(const RecordLayout& layout);

/// A label in the form of a name: "I/O Mbytes" becomes "io_mbytes".
[[nodiscard]] std::string SnakeCase(const char* label);
