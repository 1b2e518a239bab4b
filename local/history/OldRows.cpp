#include "local/history/OldRows.h"

#include <algorithm>
#include <optional>
#include <utility>

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

std::optional<std::int64_t> OldestTime(SqlDatabase& database, const std::string& table) {
  SqlStatement statement =
      database.Prepare("SELECT min(" + QuotedName(kTimeLabel) + ") FROM " + QuotedName(table));
  return statement.Step() && !statement.IsNull(0) ? std::optional(statement.Whole(0))
                                                  : std::nullopt;
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

OldestRows::OldestRows(SqlDatabase& database) : m_database(database) {
  for (std::string& table : RecordTables(database)) {
    Add(std::move(table));
  }
}

void OldestRows::Add(std::string table) {
  if (const auto time = OldestTime(m_database, table)) {
    m_tables.emplace(*time, std::move(table));
  }
}

std::int64_t OldestRows::Remove(std::int64_t parts) {
  while (!m_tables.empty()) {
    std::string table = std::move(m_tables.extract(m_tables.begin()).value().second);
    const std::int64_t least = LeastRemoved(table);
    std::int64_t removed = 0;
    if (parts > 1) {
      const std::int64_t next = m_tables.empty() ? INT64_MAX : m_tables.begin()->first;
      removed = RemoveOldest(m_database, table, std::min(next, INT64_MAX - 1) + 1, parts * least);
    }
    if (removed < least) {
      removed += RemoveOldest(m_database, table, INT64_MAX, least - removed);
    }
    // A stranger's texts in the place of times, say, look oldest and are not removed.
    if (removed != 0) {
      Add(std::move(table));
      return (removed + least - 1) / least;
    }
  }
  return 0;
}
