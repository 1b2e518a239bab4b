#pragma once

#include <string>

#include "client/commands/Commands.h"
#include "client/looks/RecordReader.h"

struct HistoryOptions {
  RecordOptions what;  ///< one record
  std::string since;   ///< times as typed; empty: not given
  std::string until;
  std::string at;    ///< the rows of the one time that is nearest to this
  std::string plot;  ///< the label of a field to draw, empty for rows
};

/// Shows the rows that the daemon has kept. Rows as CSV are printed as they come; everything else
/// is gathered first. kExitFailed if there are none.
[[nodiscard]] int RunHistory(const CommonOptions& common, const HistoryOptions& options);
