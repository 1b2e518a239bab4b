#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"
#include "local/history/Sql.h"
#include "node/LayoutRegistry.h"

/// A place in a table's order: the time in seconds since the epoch, and the row's number.
struct RowPlace {
  std::int64_t time = 0;
  std::int64_t row = 0;
};

/// Which rows of a table: those from `since` to `until`, both included, that stand behind `after`.
struct HistoryRange {
  std::int64_t since = std::numeric_limits<std::int64_t>::min();
  std::int64_t until = std::numeric_limits<std::int64_t>::max();
  std::optional<RowPlace> after = std::nullopt;
  bool isNewestFirst = false;
};

/// One row of a scan, valid until the next one. The file may hold anything at all.
class HistoryRow {
 public:
  HistoryRow(const SqlStatement& statement, const std::vector<int>& columns)
      : m_statement(statement), m_columns(columns) {}

  [[nodiscard]] RowPlace Place() const;
  /// The value of the field at a place of the layout; null for one that was not asked for.
  [[nodiscard]] Json Value(std::size_t field) const;
  /// The same where it is a finite number.
  [[nodiscard]] std::optional<double> Number(std::size_t field) const;
  /// Appends bytes that are the same for the same value only, whatever is appended behind them.
  void AppendKey(std::size_t field, std::string& key) const;

 private:
  const SqlStatement& m_statement;
  const std::vector<int>& m_columns;  ///< of each field its column, or -1
};

/// Goes through rows of one record's table in the order of their time, slice by slice; between two
/// slices the file is free for whoever writes it.
class HistoryScan {
 public:
  enum class Then { kGoOn, kStop };

  /// `fields` are places in the layout, in any order; the layout outlives the scan.
  HistoryScan(const RecordLayout& layout, const std::vector<std::size_t>& fields,
              HistoryRange range);

  /// Calls `visit` with row by row until it says to stop or the time is over; one row at least.
  /// Whether there may be more behind the last one. A record without a table has no rows. Throws
  /// SqlError.
  bool Slice(SqlDatabase& database, std::chrono::milliseconds time,
             const std::function<Then(const HistoryRow&)>& visit);
  /// Calls `visit` with the row of that number, if it is there still. Throws SqlError.
  void Fetch(SqlDatabase& database, std::int64_t row,
             const std::function<void(const HistoryRow&)>& visit);
  /// The last row of all slices; none before the first.
  [[nodiscard]] const std::optional<RowPlace>& Last() const { return m_range.after; }

 private:
  [[nodiscard]] std::string SelectText(SqlDatabase& database) const;

  const RecordLayout& m_layout;
  std::vector<int> m_columns;
  HistoryRange m_range;
};

/// The time among the rows of a record's table that is nearest to `at`, of two as near as each
/// other the earlier one. None for no rows.
[[nodiscard]] std::optional<std::int64_t> NearestTime(SqlDatabase& database,
                                                      const std::string& record, std::int64_t at);
