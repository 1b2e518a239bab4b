#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/report/Gaps.h"
#include "client/report/KeptRows.h"
#include "client/report/Summary.h"

/// What the parts are made from.
struct PartInput {
  KeptRows& rows;
  const std::vector<RecordGaps>& gaps;
  /// Where answers for charts go; null where nobody draws.
  ChartAnswers* answers = nullptr;
};

/// A part of the report: the same for every format.
struct PartKind {
  std::string title;
  /// The records that it is made of, those in front rather. Where none of them may be asked for,
  /// the part is left out; none: always there.
  std::vector<std::string> records;
  std::function<void(SummaryPart& part, const PartInput& input)> fill;
};

/// All parts in the order of the report.
[[nodiscard]] const std::vector<PartKind>& ReportParts();
