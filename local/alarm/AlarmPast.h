#pragma once

#include <ctime>
#include <optional>

#include "local/alarm/AlarmWatch.h"
#include "local/history/Sql.h"

/// Gives an alarm that foretells numbers what the history has of them, some rows at a time.
class AlarmPast {
 public:
  static constexpr int kRowsAtOnce = 1000;

  /// Rows of the last `over` of its definition, up to `now`; the watch outlives it.
  AlarmPast(AlarmWatch& watch, std::time_t now);

  /// Reads on; whether there may be more. Throws SqlError.
  [[nodiscard]] bool GoOn(SqlDatabase& database);

 private:
  AlarmWatch& m_watch;
  std::int64_t m_time;      ///< of the next row, at least
  std::int64_t m_row = -1;  ///< number of the last one of that time
  std::int64_t m_end;
};
