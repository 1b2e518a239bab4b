#pragma once

#include <optional>
#include <vector>

#include "local/control/RowSource.h"

/// Goes through the rows of one record's table, read column by column. Its statements are kept for
/// the next look: it is good for one open file, as long as no table changes. All throw SqlError.
class RowReader : public RowSource {
 public:
  /// The layout has a time (HasTime) and outlives the reader.
  explicit RowReader(const RecordLayout& layout);
  RowReader(const RowReader&) = delete;
  RowReader& operator=(const RowReader&) = delete;

  /// Goes to the first row behind `after`, see RowFinder::FirstBehind().
  void Seek(SqlDatabase& database, const RowPlace& after, std::int64_t now);
  [[nodiscard]] bool HasRow() const override { return m_hasRow; }
  [[nodiscard]] std::int64_t Time() const override { return m_at.time; }
  [[nodiscard]] TakenRows& Take() override;
  [[nodiscard]] const RowPlace& Last() const override { return m_last; }
  void Rest() override;

 private:
  void Prepare(SqlDatabase& database);
  void Step();
  void ReadRow();

  std::vector<int> m_columns;  ///< of each field its column, or -1
  std::optional<SqlStatement> m_rows;
  std::optional<RowFinder> m_finder;
  bool m_isPrepared = false;  ///< without statements: there is no table
  bool m_hasRow = false;
  RowPlace m_at;
  RowPlace m_last;
  TakenRows m_taken;
};
