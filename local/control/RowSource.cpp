#include "local/control/RowSource.h"

#include <limits>

RowFinder::RowFinder(SqlDatabase& database, const std::string& table, const std::string& time)
    : m_time(database.Prepare("SELECT " + time + " FROM " + table + " WHERE rowid = ?1")),
      m_first(database.Prepare("SELECT rowid FROM " + table + " WHERE " + time + " > ?1 ORDER BY " +
                               time + ", rowid LIMIT 1")) {}

std::optional<std::int64_t> RowFinder::FirstBehind(const RowPlace& after, std::int64_t now) {
  if (const std::int64_t row = RowOf(after); row != 0) {
    m_time.Bind(1, row);
    const bool isThere = m_time.Step() && m_time.Whole(0) == after.time;
    m_time.Reset();
    if (isThere && row < std::numeric_limits<std::int64_t>::max()) {
      return row + 1;
    }
    if (after.time > now) {
      return std::numeric_limits<std::int64_t>::min();
    }
  }
  m_first.Bind(1, after.time);
  const auto first = m_first.Step() ? std::optional(m_first.Whole(0)) : std::nullopt;
  m_first.Reset();
  return first;
}
