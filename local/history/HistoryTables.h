#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "local/history/Sql.h"
#include "node/LayoutRegistry.h"

/// The column that says when a row was made: seconds since the epoch.
inline constexpr const char* kTimeLabel = "Record Time";

/// Whether rows of the layout can be kept: they need a time.
[[nodiscard]] bool HasTime(const RecordLayout& layout);
/// The place of that field among the fields; behind the last where there is none.
[[nodiscard]] int TimePlace(const RecordLayout& layout);

/// What was done to a table.
struct TableFit {
  std::string told;             ///< of one that was there before, in a sentence; empty if nothing
  std::int64_t indexBytes = 0;  ///< what an index that was made takes of the file
};

/// Has the file hold a table of that name for the record, with a column per field, named by its
/// label and typed by its layout (TEXT, INTEGER, REAL), and an index on the time. Where the layout
/// is not the one that the table was made by, new fields are added; if a field has another type the
/// table gets another name, and a new one is made. An index that lacks is made over all its rows.
[[nodiscard]] TableFit FitTable(SqlDatabase& database, const RecordLayout& layout,
                                const std::string& table);

/// Whether the file holds a table of that name.
[[nodiscard]] bool HasTable(SqlDatabase& database, const std::string& name);
/// Name and type of each column of a table; none for no such table.
[[nodiscard]] std::map<std::string, std::string> ColumnsOf(SqlDatabase& database,
                                                           const std::string& table);
/// All tables with rows that age, those of former layouts, of totals and of others included: they
/// have an INTEGER time and row numbers. `schema` is the name of an attached file.
[[nodiscard]] std::vector<std::string> RecordTables(SqlDatabase& database,
                                                    const std::string& schema = "main");
/// The columns that a table of the attached file shares with the one of its name, each quoted,
/// parted by commas.
[[nodiscard]] std::string CommonColumns(SqlDatabase& database, const std::string& schema,
                                        const std::string& table);
/// The number of the last row of the first `rows` ones of a table (a quoted name), or of those that
/// follow it with its time, of which at most `rowsOfTime` count; 0 for no rows.
[[nodiscard]] std::int64_t LastOfTime(SqlDatabase& database, const std::string& table,
                                      std::int64_t rows, std::int64_t rowsOfTime);
