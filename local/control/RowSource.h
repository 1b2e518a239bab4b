#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>

#include "local/control/HistoryScan.h"
#include "local/control/TakenRows.h"
#include "local/history/Sql.h"

/// Goes through kept rows, and gives all of one record and time together. The order is the one in
/// which they came into the file, which is that of the collections, also where the clock was set
/// back between two of them. All throw SqlError.
class RowSource {
 public:
  /// Rows of one record and time that are given; those beyond are passed over.
  static constexpr std::size_t kMostOfOneTime = 10000;

  virtual ~RowSource() = default;
  /// Whether there is a row at hand.
  [[nodiscard]] virtual bool HasRow() const = 0;
  /// The time of the row at hand, seconds since the epoch.
  [[nodiscard]] virtual std::int64_t Time() const = 0;
  /// Takes the row at hand and those behind it of the same record and time; valid until the next
  /// call.
  [[nodiscard]] virtual TakenRows& Take() = 0;
  /// The last row that was taken.
  [[nodiscard]] virtual const RowPlace& Last() const = 0;
  /// Lets go of the file. Nothing is at hand then.
  virtual void Rest() = 0;
};

/// Numbers of rows begin at 1; what a stranger has numbered otherwise is not read.
///
/// How far a record was looked for where it had no row: at that row, which bears another sign, as a
/// row of the record's own is not there.
[[nodiscard]] inline RowPlace PassedPlace(const RowPlace& place) {
  return {place.time, -std::abs(place.row)};
}
/// The row at which somebody has looked last.
[[nodiscard]] inline std::int64_t RowOf(const RowPlace& place) {
  return place.row == std::numeric_limits<std::int64_t>::min() ? 0 : std::abs(place.row);
}

/// What finds rows of a table by their numbers and times. Its statements are kept for the next
/// look: it is good for one open file, as long as no table changes.
class RowFinder {
 public:
  /// `table` and `time`: quoted names.
  RowFinder(SqlDatabase& database, const std::string& table, const std::string& time);

  /// The number of the first row that can stand behind `after`, none for no such row. Where that
  /// row is not there any more, or is another one now as the numbers have begun again, it is the
  /// first with a later time; the least number where `after` lies in the future, seen from `now`.
  /// Row 0 never is there, and stands for a time alone; -N stands for N, see PassedPlace().
  [[nodiscard]] std::optional<std::int64_t> FirstBehind(const RowPlace& after, std::int64_t now);

 private:
  SqlStatement m_time;
  SqlStatement m_first;
};
