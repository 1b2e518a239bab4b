#include "local/history/OldRows.h"

#include <string>

#include "local/history/HistoryTables.h"
#include "local/history/TotalsTable.h"

namespace {

/// The most that one batch removes of one table; a row of totals has those of many records.
constexpr int kRemovedRows = 500;
constexpr int kRemovedTotals = 50;

int MostRemoved(const std::string& table) {
  return table == kTotalsTable ? kRemovedTotals : kRemovedRows;
}

/// Removes at most MostRemoved() of the oldest rows of a table that are older than `end`.
int RemoveOldest(SqlDatabase& database, const std::string& table, std::int64_t end) {
  const std::string name = QuotedName(table);
  const std::string time = QuotedName(kTimeLabel);
  SqlStatement statement =
      database.Prepare("DELETE FROM " + name + " WHERE rowid IN (SELECT rowid FROM " + name +
                       " WHERE " + time + " < ?1 ORDER BY " + time + " LIMIT ?2)");
  statement.Bind(1, end);
  statement.Bind(2, std::int64_t{MostRemoved(table)});
  statement.Run();
  return database.Changes();
}

/// The table whose oldest row is the oldest of all; empty if there is no row.
std::string OldestTable(SqlDatabase& database) {
  std::string oldest;
  std::int64_t least = 0;
  for (const std::string& table : RecordTables(database)) {
    SqlStatement statement =
        database.Prepare("SELECT min(" + QuotedName(kTimeLabel) + ") FROM " + QuotedName(table));
    if (statement.Step() && !statement.IsNull(0) &&
        (oldest.empty() || statement.Whole(0) < least)) {
      least = statement.Whole(0);
      oldest = table;
    }
  }
  return oldest;
}

}  // namespace

bool RemoveRowsBefore(SqlDatabase& database, std::int64_t end) {
  bool isMore = false;
  for (const std::string& table : RecordTables(database)) {
    isMore = RemoveOldest(database, table, end) == MostRemoved(table) || isMore;
  }
  return isMore;
}

bool RemoveOldestRows(SqlDatabase& database) {
  const std::string table = OldestTable(database);
  return !table.empty() && RemoveOldest(database, table, INT64_MAX) != 0;
}
