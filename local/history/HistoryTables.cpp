#include "local/history/HistoryTables.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "local/history/FieldValue.h"
#include "local/history/HistoryFile.h"
#include "local/history/TotalsTable.h"
#include "support/TextHash.h"

namespace {

constexpr const char* kLayoutTable = "qmt layouts";

const char* ColumnType(FieldType type) {
  switch (type) {
    case FieldType::kText:
      return "TEXT";
    case FieldType::kUshort:
    case FieldType::kLong:
    case FieldType::kUlong:
      return "INTEGER";
    case FieldType::kFloat:
    case FieldType::kDouble:
    case FieldType::kUtime:
      break;
  }
  return "REAL";
}

std::string ColumnText(const FieldLayout& field) {
  return QuotedName(field.label) + ' ' + ColumnType(field.type);
}

/// The same for the same fields only.
std::string HashOf(const RecordLayout& layout) {
  std::uint64_t hash = kTextHashStart;
  for (const FieldLayout& field : layout.fields) {
    hash = TextHash(field.label + ('\n' + FieldTypeText(field)) + '\n', hash);
  }
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
  return text.data();
}

std::string StoredHash(SqlDatabase& database, const std::string& record) {
  SqlStatement statement =
      database.Prepare("SELECT hash FROM " + QuotedName(kLayoutTable) + " WHERE record = ?1");
  statement.Bind(1, record);
  return statement.Step() ? std::string(statement.Text(0)) : std::string();
}

void StoreHash(SqlDatabase& database, const std::string& record, const std::string& hash) {
  SqlStatement statement = database.Prepare("INSERT OR REPLACE INTO " + QuotedName(kLayoutTable) +
                                            " (record, hash) VALUES (?1, ?2)");
  statement.Bind(1, record);
  statement.Bind(2, hash);
  statement.Run();
}

void MakeTable(SqlDatabase& database, const RecordLayout& layout, const std::string& name) {
  std::string columns;
  for (const FieldLayout& field : layout.fields) {
    columns += (columns.empty() ? "" : ", ") + ColumnText(field);
  }
  database.Execute("CREATE TABLE " + QuotedName(name) + " (" + columns + ")");
}

/// The name, with a number behind it where something bears it already.
std::string FreeName(SqlDatabase& database, const std::string& name) {
  SqlStatement bearer =
      database.Prepare("SELECT 1 FROM main.sqlite_master WHERE name = ?1 COLLATE NOCASE");
  std::string free = name;
  for (int number = 2;; ++number) {
    bearer.Bind(1, std::string_view(free));
    if (!bearer.Step()) {
      return free;
    }
    bearer.Reset();
    free = name + " (" + std::to_string(number) + ")";
  }
}

/// A renamed table keeps its index, whose name the new table's may want. The bytes of a new one.
std::int64_t FitIndex(SqlDatabase& database, const std::string& table, const std::string& hash) {
  SqlStatement found = database.Prepare(
      "SELECT 1 FROM pragma_index_list(?1, 'main') AS listed, pragma_index_info(listed.name, "
      "'main') AS indexed WHERE NOT listed.partial AND indexed.seqno = 0 AND indexed.name = ?2");
  found.Bind(1, std::string_view(table));
  found.Bind(2, std::string_view(kTimeLabel));
  if (found.Step()) {
    return 0;
  }
  const std::int64_t before = UsedFileBytes(database);
  database.Execute("CREATE INDEX " + QuotedName(FreeName(database, table + ' ' + hash)) + " ON " +
                   QuotedName(table) + " (" + QuotedName(kTimeLabel) + ")");
  return UsedFileBytes(database) - before;
}

std::string NameForOldRows(SqlDatabase& database, const std::string& record) {
  std::array<char, 32> day{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::strftime(day.data(), day.size(), " until %Y-%m-%d", &parts);
  return FreeName(database, record + day.data());
}

std::string FitColumns(SqlDatabase& database, const RecordLayout& layout, const std::string& table,
                       const std::string& hash) {
  const auto columns = ColumnsOf(database, table);
  if (columns.empty()) {
    MakeTable(database, layout, table);
    StoreHash(database, table, hash);
    return "";
  }
  if (StoredHash(database, table) == hash) {
    return "";
  }
  StoreHash(database, table, hash);
  const bool isOtherType = std::ranges::any_of(layout.fields, [&](const FieldLayout& field) {
    const auto column = columns.find(field.label);
    return column != columns.end() && column->second != ColumnType(field.type);
  });
  if (isOtherType) {
    const std::string old = NameForOldRows(database, table);
    database.Execute("ALTER TABLE " + QuotedName(table) + " RENAME TO " + QuotedName(old));
    MakeTable(database, layout, table);
    return "the layout of " + table + " has changed: its old rows stand in the table \"" + old +
           "\" now";
  }
  std::size_t added = 0;
  for (const FieldLayout& field : layout.fields) {
    if (!columns.contains(field.label)) {
      database.Execute("ALTER TABLE " + QuotedName(table) + " ADD COLUMN " + ColumnText(field));
      ++added;
    }
  }
  return "the layout of " + table + " has changed: " + std::to_string(added) +
         " columns were added to its table";
}

}  // namespace

bool HasTime(const RecordLayout& layout) {
  return TimePlace(layout) < static_cast<int>(layout.fields.size());
}

int TimePlace(const RecordLayout& layout) {
  const auto found = std::ranges::find_if(layout.fields, [](const FieldLayout& field) {
    return std::string_view(field.label) == kTimeLabel && field.type == FieldType::kLong;
  });
  return static_cast<int>(found - layout.fields.begin());
}

TableFit FitTable(SqlDatabase& database, const RecordLayout& layout, const std::string& table) {
  database.Execute("CREATE TABLE IF NOT EXISTS " + QuotedName(kLayoutTable) +
                   " (record TEXT PRIMARY KEY, hash TEXT NOT NULL)");
  const std::string hash = HashOf(layout);
  TableFit fit;
  fit.told = FitColumns(database, layout, table, hash);
  fit.indexBytes = FitIndex(database, table, hash);
  return fit;
}

std::map<std::string, std::string> ColumnsOf(SqlDatabase& database, const std::string& table) {
  SqlStatement statement = database.Prepare("SELECT name, type FROM pragma_table_info(?1, 'main')");
  statement.Bind(1, table);
  std::map<std::string, std::string> columns;
  while (statement.Step()) {
    columns.emplace(statement.Text(0), statement.Text(1));
  }
  return columns;
}

bool HasTable(SqlDatabase& database, const std::string& name) {
  SqlStatement statement =
      database.Prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1");
  statement.Bind(1, name);
  return statement.Step();
}

std::string CommonColumns(SqlDatabase& database, const std::string& schema,
                          const std::string& table) {
  SqlStatement statement = database.Prepare(
      "SELECT name FROM pragma_table_info(?1, ?2) WHERE name IN (SELECT name FROM "
      "pragma_table_info(?1, 'main'))");
  statement.Bind(1, std::string_view(table));
  statement.Bind(2, std::string_view(schema));
  std::string columns;
  while (statement.Step()) {
    columns += (columns.empty() ? "" : ", ") + QuotedName(statement.Text(0));
  }
  return columns;
}

std::vector<std::string> RecordTables(SqlDatabase& database, const std::string& schema) {
  SqlStatement statement =
      // Asked for its index, a table without row numbers gives its key. A virtual one is not asked
      // anything, as what it is made by may be missing.
      database.Prepare("SELECT name FROM " + QuotedName(schema) +
                       ".sqlite_master AS t WHERE type = 'table' AND CASE WHEN rootpage > 0 THEN "
                       "EXISTS (SELECT 1 FROM pragma_table_info(t.name, ?1) WHERE name = ?2 AND "
                       "type = 'INTEGER' COLLATE NOCASE) AND NOT EXISTS (SELECT 1 FROM "
                       "pragma_index_info(t.name, ?1)) END ORDER BY name");
  statement.Bind(1, std::string_view(schema));
  statement.Bind(2, std::string_view(kTimeLabel));
  std::vector<std::string> names;
  while (statement.Step()) {
    names.emplace_back(statement.Text(0));
  }
  return names;
}

std::int64_t LastOfTime(SqlDatabase& database, const std::string& table, std::int64_t rows,
                        std::int64_t rowsOfTime) {
  const std::string time = QuotedName(kTimeLabel);
  const std::string row =
      std::to_string(database.Number("SELECT max(rowid) FROM (SELECT rowid FROM " + table +
                                     " ORDER BY rowid LIMIT " + std::to_string(rows) + ")"));
  const std::string firstOfNext = "(SELECT rowid FROM " + table + " WHERE rowid > " + row +
                                  " AND " + time + " IS NOT (SELECT " + time + " FROM " + table +
                                  " WHERE rowid = " + row + ") ORDER BY rowid LIMIT 1)";
  return database.Number("SELECT max(rowid) FROM (SELECT rowid FROM " + table +
                         " WHERE rowid >= " + row + " AND rowid < coalesce(" + firstOfNext +
                         ", 9223372036854775807) ORDER BY rowid LIMIT " +
                         std::to_string(rowsOfTime) + ")");
}
