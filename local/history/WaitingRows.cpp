#include "local/history/WaitingRows.h"

#include <algorithm>
#include <chrono>
#include <exception>

#include "local/history/TotalsTable.h"
#include "node/LayoutRegistry.h"

namespace {

constexpr const char* kSchema = "waiting";
constexpr std::int64_t kMovedOfOneTime = 10000;
constexpr std::chrono::milliseconds kMovingTime{20};

/// At most so many rows, and those that have the time of the last of them.
void MoveTable(SqlDatabase& database, const std::string& table, std::int64_t most,
               MovedRows& moved) {
  const std::string waiting = kSchema + ('.' + QuotedName(table));
  const std::int64_t last = LastOfTime(database, waiting, most, std::max(most, kMovedOfOneTime));
  const std::string first = " WHERE rowid <= " + std::to_string(last);
  const RecordLayout* const layout = LayoutRegistry::Instance().Find(table);
  if (table == kTotalsTable) {
    MoveTotals(database, kSchema, last);
  } else if (layout != nullptr) {
    moved.fits.push_back(FitTable(database, *layout, table));
    const std::string columns = CommonColumns(database, kSchema, table);
    database.Execute("INSERT INTO main." + QuotedName(table) + " (" + columns + ") SELECT " +
                     columns + " FROM " + waiting + first + " ORDER BY rowid");
  }
  database.Execute("DELETE FROM " + waiting + first);
  moved.rows[table] = database.Changes();
}

bool HasRows(SqlDatabase& database, const std::string& table) {
  return database.Number(std::string("SELECT EXISTS (SELECT 1 FROM ") + kSchema + '.' +
                         QuotedName(table) + ")") != 0;
}

/// For want of memory, so that the next step finds nothing of this one.
void Abandon(SqlDatabase& database, const std::string& detach) {
  try {
    if (database.IsInTransaction()) {
      database.Execute("ROLLBACK");
    }
    database.Execute(detach);
  } catch (const std::exception&) {
    // The next step fails by it, which closes the file.
  }
}

}  // namespace

MovedRows WaitingRows::Move(SqlDatabase& database, const std::string& file,
                            const InsertedRows& added) {
  const std::string detach = std::string("DETACH ") + kSchema;
  MovedRows moved;
  {
    SqlStatement attach = database.Prepare(std::string("ATTACH ?1 AS ") + kSchema);
    attach.Bind(1, std::string_view(file));
    attach.Run();
  }
  try {
    database.Execute("BEGIN EXCLUSIVE");
    moved = MoveTables(database, added);
    database.Execute("COMMIT");
  } catch (const SqlError& error) {
    if (database.IsInTransaction()) {
      database.Execute("ROLLBACK");
    }
    if (!error.IsBroken()) {
      database.Execute(detach);
    }
    throw;
  } catch (...) {
    Abandon(database, detach);
    throw;
  }
  database.Execute(detach);
  return moved;
}

MovedRows WaitingRows::MoveTables(SqlDatabase& database, const InsertedRows& added) {
  const std::vector<std::string> tables = RecordTables(database, kSchema);
  const auto end = std::chrono::steady_clock::now() + kMovingTime;
  const std::size_t first = m_next;
  MovedRows moved;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    const std::string& table = tables[(first + i) % tables.size()];
    const auto found = added.find(table);
    std::int64_t most = found == added.end() ? 0 : 2 * found->second;
    if (std::chrono::steady_clock::now() < end) {
      most = std::max(most, table == kTotalsTable ? kMovedTotals : kMovedRows);
      ++m_next;
    }
    if (most > 0) {
      MoveTable(database, table, most, moved);
    }
    moved.isMore = moved.isMore || HasRows(database, table);
  }
  return moved;
}
