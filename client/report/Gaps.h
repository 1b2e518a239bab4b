#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/report/Analysis.h"
#include "client/report/KeptRows.h"

/// Where rows of a record are missing.
struct RecordGaps {
  std::string record;
  double every = 0;        ///< seconds of its schedule
  std::vector<Span> gaps;  ///< from the row before to the row behind, the oldest first
  bool isCut = false;      ///< there may be more: the longest were looked at
};

/// Those of every record that has a schedule and may be asked for. A row that is late by less than
/// half of the schedule's seconds is not missing.
[[nodiscard]] std::vector<RecordGaps> FindGaps(KeptRows& rows);

/// Seconds of all gaps of the record together, or of what lies of them `within` a stretch; 0 for
/// none.
[[nodiscard]] std::int64_t MissingSeconds(const std::vector<RecordGaps>& all,
                                          const std::string& record,
                                          const std::optional<Span>& within = std::nullopt);
