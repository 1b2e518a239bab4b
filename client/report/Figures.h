#pragma once

#include <string>
#include <vector>

#include "client/report/KeptRows.h"
#include "client/report/Summary.h"
#include "client/report/Uses.h"

/// A field that a table or a chart shows.
struct FigureField {
  std::string label;
  std::string name;
  std::string unit = "percent";
  double scale = 1;  ///< what a value is multiplied with to come in the unit
};

/// What one record tells of a subject.
struct FigureWay {
  std::string record;
  std::string key;  ///< the label that tells instances apart; empty: one of all rows
  std::vector<std::string> where;
  std::vector<FigureField> fields;
};

/// A table of the same subject in as many ways as there are records for it; the first that has rows
/// is shown.
struct FigureTable {
  std::string title;
  std::vector<FigureWay> ways;
};

/// A chart likewise. Its unit is that of its fields.
struct FigureChart {
  std::string title;
  bool isStacked = false;
  double most = 0;
  std::vector<FigureWay> ways;
};

/// A subject whose highest moments are told.
struct BusySubject {
  std::string name;
  /// By what processes are told that were busy at the time; nothing where none tells.
  std::optional<UseMeasure> who;
  std::vector<FigureWay> ways;
};

/// A table of the stretch's mean, least and greatest figures: a line a field, or a line an instance
/// where the way has a key. Notes what is left out.
void AddFigureTable(SummaryPart& part, KeptRows& rows, const FigureTable& table);

/// The chart, whose answers are asked for and put to `answers`.
void AddFigureChart(SummaryPart& part, KeptRows& rows, const FigureChart& chart,
                    ChartAnswers& answers);

/// The times at which the subjects were highest.
[[nodiscard]] SummaryTable BusyTable(KeptRows& rows, const std::vector<BusySubject>& subjects);

/// The first way whose record has rows; null if none has.
[[nodiscard]] const FigureWay* FirstWay(KeptRows& rows, const std::vector<FigureWay>& ways);
