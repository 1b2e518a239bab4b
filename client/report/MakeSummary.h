#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "client/ask/Connection.h"
#include "client/report/Summary.h"

/// What is wanted.
struct SummaryChoice {
  std::int64_t since = 0;  ///< seconds since the epoch, as `until`
  std::int64_t until = 0;
  std::set<std::string> records;  ///< parts made of these alone; empty: all
  bool hasCharts = false;
};

/// Asks the daemon for what the report tells. Throws ClientError; UsageError for records that there
/// are not.
[[nodiscard]] Summary MakeSummary(Connection& connection, const SummaryChoice& choice);
