#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "local/history/Sql.h"

/// Moves the rows that wait in a second file into the first one, in small steps of 20 ms or a
/// little more.
class WaitingRows {
 public:
  /// The most that a step moves of one table, but for rows of one time, of which there may be
  /// 10,000; of totals the most rows, which have those of many records.
  static constexpr int kMovedRows = 2000;
  static constexpr int kMovedTotals = 100;

  /// One step: both files change together, whatever happens meanwhile. Whether rows are left. What
  /// was done to tables whose layout has changed is added to `fits`, see FitTable(). After a
  /// failure that is not one of a broken file it may be called again. Throws SqlError.
  [[nodiscard]] bool Move(SqlDatabase& database, const std::string& file,
                          std::vector<std::string>& fits);

 private:
  [[nodiscard]] bool MoveTables(SqlDatabase& database, std::vector<std::string>& fits);

  std::size_t m_next = 0;  ///< the table that the next step begins with
};
