#include "local/history/OldRows.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "local/history/HistoryTables.h"
#include "local/history/TotalsTable.h"

namespace {

/// What goes of a table at a time at the least; a row of totals has those of many records.
constexpr std::int64_t kRemovedRows = 500;
constexpr std::int64_t kRemovedTotals = 50;

std::int64_t LeastRemoved(const std::string& table) {
  return table == kTotalsTable ? kRemovedTotals : kRemovedRows;
}

/// Removes at most so many of the oldest rows of a table that are older than `end`.
std::int64_t RemoveOldest(SqlDatabase& database, const std::string& table, std::int64_t end,
                          std::int64_t most) {
  const std::string name = QuotedName(table);
  const std::string time = QuotedName(kTimeLabel);
  SqlStatement statement =
      database.Prepare("DELETE FROM " + name + " WHERE rowid IN (SELECT rowid FROM " + name +
                       " WHERE " + time + " < ?1 ORDER BY " + time + " LIMIT ?2)");
  statement.Bind(1, end);
  statement.Bind(2, most);
  statement.Run();
  return database.Changes();
}

/// The tables that have rows, each behind the time of its oldest one.
std::vector<std::pair<std::int64_t, std::string>> TablesByAge(SqlDatabase& database) {
  std::vector<std::pair<std::int64_t, std::string>> tables;
  for (std::string& table : RecordTables(database)) {
    SqlStatement statement =
        database.Prepare("SELECT min(" + QuotedName(kTimeLabel) + ") FROM " + QuotedName(table));
    if (statement.Step() && !statement.IsNull(0)) {
      tables.emplace_back(statement.Whole(0), std::move(table));
    }
  }
  std::ranges::sort(tables);
  return tables;
}

}  // namespace

bool RemoveRowsBefore(SqlDatabase& database, std::int64_t end, const InsertedRows& inserted) {
  bool isMore = false;
  for (const std::string& table : RecordTables(database)) {
    const auto found = inserted.find(table);
    const std::int64_t most =
        std::max(LeastRemoved(table), found == inserted.end() ? 0 : 2 * found->second);
    isMore = RemoveOldest(database, table, end, most) == most || isMore;
  }
  return isMore;
}

bool RemoveOldestRows(SqlDatabase& database) {
  // A stranger's texts in the place of times, say, look oldest and are not removed.
  return std::ranges::any_of(TablesByAge(database), [&](const auto& aged) {
    return RemoveOldest(database, aged.second, INT64_MAX, LeastRemoved(aged.second)) != 0;
  });
}
