#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"

// A report before it is put into words of a format: all texts are as the host has them, and whoever
// renders them makes them safe.

/// One place of a table.
struct SummaryCell {
  std::string text;
  bool isNumber = false;
};

struct SummaryTable {
  std::string title;  ///< empty where the part's own says enough
  std::vector<std::string> headings;
  std::vector<std::vector<SummaryCell>> rows;  ///< each as long as the headings
};

/// One line of a chart, or one for each value of `by`.
struct ChartLine {
  std::string record;
  std::string label;
  std::string name;                ///< in the legend; empty: by its key, or the label
  std::vector<std::string> where;  ///< conditions of rows
  /// Labels whose values tell lines apart; nothing: the record's keys.
  std::optional<std::vector<std::string>> by;
  double scale = 1;  ///< what a value is multiplied with to come in the chart's unit
};

struct SummaryChart {
  std::string title;
  std::string unit;  ///< as web/chart.js names it
  bool isStacked = false;
  double most = 0;  ///< of the axis, 0 for as much as the values need
  std::vector<ChartLine> lines;
};

/// What the daemon answered for lines of one record: {"record", "where", "by", "columns",
/// "answer"}.
using ChartAnswers = std::vector<Json>;

/// A heading with what stands below it.
struct SummaryPart {
  std::string title;
  std::vector<std::string> notes;
  std::vector<SummaryTable> tables;
  std::vector<SummaryChart> charts;
};

struct Summary {
  std::string title;
  std::vector<std::string> facts;  ///< a line each, below the title
  std::int64_t since = 0;          ///< seconds since the epoch, as `until`
  std::int64_t until = 0;
  std::vector<SummaryPart> parts;
  ChartAnswers answers;
};
