#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/report/Parts.h"

// What happened in the stretch.

void FillAlarms(SummaryPart& part, const PartInput& input);
/// Starts of the host and of the agent.
void FillRestarts(SummaryPart& part, const PartInput& input);
/// Times without rows.
void FillGaps(SummaryPart& part, const PartInput& input);

/// Each start once, where what tells of it wavers: a time within `same` seconds of the one before
/// it is the same start. `times` in any order; 0 is none.
[[nodiscard]] std::vector<std::int64_t> StartsOf(std::vector<std::int64_t> times,
                                                 std::int64_t same);

/// The starts of a program of which only one runs at a time, the oldest first, when there may be
/// others of its name: back from `present`, that of the one that runs now, each time the one that
/// was last seen before. `lives`: from the start of each to when it was seen last.
[[nodiscard]] std::vector<std::int64_t> ChainedStarts(std::vector<Span> lives,
                                                      std::int64_t present);

/// A gap that several records have alike.
struct SharedGap {
  Span span;
  std::string records;  ///< their names, parted by commas
};

/// The gaps of all records in the order of their times, those alike as one.
[[nodiscard]] std::vector<SharedGap> SharedGapsOf(const std::vector<RecordGaps>& all);
