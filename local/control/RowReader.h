#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "local/control/HistoryScan.h"
#include "local/history/Sql.h"
#include "local/metrics/MetricFamily.h"
#include "node/Record.h"

/// Goes through the kept rows of one record, and gives them as the records that they were, all of
/// one time together. The order is the one in which they came into the file, which is that of the
/// collections, also where the clock was set back between two of them. Its statements are kept for
/// the next look: it is good for one open file, as long as no table changes. All throw SqlError.
class RowReader {
 public:
  /// Rows of one time that are given together; more come as if they were of another one.
  static constexpr std::size_t kMostOfOneTime = 10000;

  /// The layout has a time (HasTime) and outlives the reader.
  explicit RowReader(const RecordLayout& layout);
  ~RowReader();
  RowReader(const RowReader&) = delete;
  RowReader& operator=(const RowReader&) = delete;

  /// Goes to the first row behind `after`. Where that row is not there any more, or is another one
  /// now as the numbers have begun again, it is the first with a later time; the oldest of all
  /// where `after` lies in the future, seen from `now`. Row 0 never is there, and stands for a time
  /// alone.
  void Seek(SqlDatabase& database, const RowPlace& after, std::int64_t now);
  /// Whether there is a row at hand.
  [[nodiscard]] bool HasRow() const { return m_hasRow; }
  /// The time of the row at hand, seconds since the epoch.
  [[nodiscard]] std::int64_t Time() const { return m_at.time; }
  /// Takes the row at hand and those behind it of the same time; valid until the next call.
  [[nodiscard]] std::span<const CMBRecord* const> Take();
  /// What the rows that were taken expose: of those that an older version has kept, and of values
  /// that no field can hold, the fields that are not there are left out.
  [[nodiscard]] const RecordMetrics& Metrics() const;
  /// The last row that was taken.
  [[nodiscard]] const RowPlace& Last() const { return m_last; }
  /// Lets go of the file. Nothing is at hand then.
  void Rest();

 private:
  class StoredRecord;
  /// A layout without some of its fields.
  struct Shape;

  void Prepare(SqlDatabase& database);
  /// Where to begin for want of `after`; none for no such row.
  [[nodiscard]] std::optional<std::int64_t> FirstBehind(const RowPlace& after, std::int64_t now);
  void Step();
  void ReadRow(StoredRecord& record);
  [[nodiscard]] Shape& ShapeOf(const std::vector<bool>& lacking);

  const RecordLayout& m_layout;
  std::vector<int> m_columns;  ///< of each field its column, or -1
  std::optional<SqlStatement> m_rows;
  std::optional<SqlStatement> m_first;
  bool m_isPrepared = false;  ///< without statements: there is no table
  bool m_hasRow = false;
  RowPlace m_at;
  RowPlace m_last;
  std::vector<std::unique_ptr<StoredRecord>> m_records;
  std::vector<const CMBRecord*> m_taken;
  std::vector<bool> m_lacking;  ///< fields that a row that was taken has no value for
  std::vector<std::unique_ptr<Shape>> m_shapes;
  const Shape* m_shape = nullptr;  ///< that of the rows that were taken
};
