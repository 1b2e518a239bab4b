#include "local/history/WaitingRows.h"

#include <chrono>
#include <exception>

#include "local/history/HistoryTables.h"
#include "local/history/TotalsTable.h"
#include "node/LayoutRegistry.h"

namespace {

constexpr const char* kSchema = "waiting";
constexpr int kMovedOfOneTime = 10000;
constexpr std::chrono::milliseconds kMovingTime{20};

/// Whether the table has more.
bool MoveTable(SqlDatabase& database, const std::string& table, std::vector<std::string>& fits) {
  const std::string waiting = kSchema + ('.' + QuotedName(table));
  const int most = table == kTotalsTable ? WaitingRows::kMovedTotals : WaitingRows::kMovedRows;
  const std::int64_t last = LastOfTime(database, waiting, most, kMovedOfOneTime);
  const std::string moved = " WHERE rowid <= " + std::to_string(last);
  const RecordLayout* const layout = LayoutRegistry::Instance().Find(table);
  if (table == kTotalsTable) {
    MoveTotals(database, kSchema, last);
  } else if (layout != nullptr) {
    fits.push_back(FitTable(database, *layout, table));
    const std::string columns = CommonColumns(database, kSchema, table);
    database.Execute("INSERT INTO main." + QuotedName(table) + " (" + columns + ") SELECT " +
                     columns + " FROM " + waiting + moved + " ORDER BY rowid");
  }
  database.Execute("DELETE FROM " + waiting + moved);
  return database.Number("SELECT EXISTS (SELECT 1 FROM " + waiting + ")") != 0;
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

bool WaitingRows::Move(SqlDatabase& database, const std::string& file,
                       std::vector<std::string>& fits) {
  const std::string detach = std::string("DETACH ") + kSchema;
  bool isMore = true;
  {
    SqlStatement attach = database.Prepare(std::string("ATTACH ?1 AS ") + kSchema);
    attach.Bind(1, std::string_view(file));
    attach.Run();
  }
  try {
    database.Execute("BEGIN EXCLUSIVE");
    isMore = MoveTables(database, fits);
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
  return isMore;
}

bool WaitingRows::MoveTables(SqlDatabase& database, std::vector<std::string>& fits) {
  const std::vector<std::string> tables = RecordTables(database, kSchema);
  const auto end = std::chrono::steady_clock::now() + kMovingTime;
  bool isMore = false;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    if (std::chrono::steady_clock::now() >= end) {
      return true;
    }
    isMore = MoveTable(database, tables[m_next++ % tables.size()], fits) || isMore;
  }
  return isMore;
}
