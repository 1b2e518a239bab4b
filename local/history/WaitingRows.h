#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "local/history/HistoryTables.h"
#include "local/history/OldRows.h"
#include "local/history/Sql.h"

/// What a step has moved.
struct MovedRows {
  InsertedRows rows;
  std::vector<TableFit> fits;  ///< what was done to the tables that they came into
  bool isMore = false;         ///< whether rows are left
};

/// Moves the rows that wait in a second file into the first one, in small steps.
class WaitingRows {
 public:
  /// What a step moves of one table, if that is not less than twice what the last batch had, and
  /// rows of one time with it, of which there may be 10,000; of totals the rows, which have those
  /// of many records.
  static constexpr std::int64_t kMovedRows = 2000;
  static constexpr std::int64_t kMovedTotals = 100;

  /// One step of 20 ms, or as long as it takes to move twice what the last batch, `added`, had of
  /// each table: a step for each batch comes to an end so, though each batch goes behind what
  /// waits. Both files change together, whatever happens meanwhile. After a failure that is not one
  /// of a broken file it may be called again. Throws SqlError.
  [[nodiscard]] MovedRows Move(SqlDatabase& database, const std::string& file,
                               const InsertedRows& added);

 private:
  [[nodiscard]] MovedRows MoveTables(SqlDatabase& database, const InsertedRows& added);

  std::size_t m_next = 0;  ///< the table that the next step begins with
};
