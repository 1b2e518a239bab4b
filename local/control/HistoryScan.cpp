#include "local/control/HistoryScan.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "local/history/HistoryTables.h"

namespace {

using ScanClock = std::chrono::steady_clock;

}  // namespace

RowPlace HistoryRow::Place() const { return {m_statement.Whole(1), m_statement.Whole(0)}; }

Json HistoryRow::Value(std::size_t field) const {
  const int column = m_columns[field];
  if (column < 0 || m_statement.IsNull(column)) {
    return nullptr;
  }
  if (m_statement.IsWhole(column)) {
    return m_statement.Whole(column);
  }
  return m_statement.IsReal(column) ? Json(m_statement.Real(column))
                                    : Json(std::string(m_statement.Text(column)));
}

std::optional<double> HistoryRow::Number(std::size_t field) const {
  const int column = m_columns[field];
  if (column < 0 || !(m_statement.IsReal(column) || m_statement.IsWhole(column))) {
    return std::nullopt;
  }
  const double value = m_statement.Real(column);
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

void HistoryRow::AppendKey(std::size_t field, std::string& key) const {
  const int column = m_columns[field];
  const auto append = [&key](char kind, auto value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    key += kind;
    key.append(bytes, sizeof value);
  };
  if (column < 0 || m_statement.IsNull(column)) {
    key += 'n';
  } else if (m_statement.IsWhole(column)) {
    append('w', m_statement.Whole(column));
  } else if (m_statement.IsReal(column)) {
    append('r', m_statement.Real(column));
  } else {
    const std::string_view text = m_statement.Text(column);
    append('t', text.size());
    key += text;
  }
}

HistoryScan::HistoryScan(const RecordLayout& layout, const std::vector<std::size_t>& fields,
                         HistoryRange range)
    : m_layout(layout), m_columns(layout.fields.size(), -1), m_range(range) {
  // The row's number and its time come first.
  int column = 2;
  for (const std::size_t field : fields) {
    m_columns[field] = 0;
  }
  for (std::size_t field = 0; field < m_columns.size(); ++field) {
    const bool isRead = m_columns[field] == 0 && layout.fields[field].hasSource;
    m_columns[field] = isRead ? column++ : -1;
  }
}

std::string HistoryScan::SelectText(SqlDatabase& database) const {
  // Until the first batch after a change of the layout the table may lack a column.
  const auto columns = ColumnsOf(database, m_layout.name);
  std::string text = "SELECT rowid, " + QuotedName(kTimeLabel);
  for (std::size_t field = 0; field < m_columns.size(); ++field) {
    if (m_columns[field] >= 0) {
      const char* label = m_layout.fields[field].label;
      text += columns.contains(label) ? ", " + QuotedName(label) : std::string(", NULL");
    }
  }
  return text + " FROM " + QuotedName(m_layout.name) + " WHERE ";
}

bool HistoryScan::Slice(SqlDatabase& database, std::chrono::milliseconds time,
                        const std::function<Then(const HistoryRow&)>& visit) {
  const auto end = ScanClock::now() + time;
  if (!HasTable(database, m_layout.name)) {
    return false;
  }
  const std::string label = QuotedName(kTimeLabel);
  std::string text = SelectText(database) + label + " BETWEEN ?1 AND ?2";
  HistoryRange range = m_range;
  if (m_range.after) {
    text += " AND (" + label + ", rowid) " + (range.isNewestFirst ? "<" : ">") + " (?3, ?4)";
    // The index is entered at the place to go on from.
    if (range.isNewestFirst) {
      range.until = std::min(range.until, m_range.after->time);
    } else {
      range.since = std::max(range.since, m_range.after->time);
    }
  }
  const char* direction = range.isNewestFirst ? " DESC" : "";
  text += " ORDER BY " + label + direction + ", rowid" + direction;
  SqlStatement statement = database.Prepare(text);
  statement.Bind(1, range.since);
  statement.Bind(2, range.until);
  if (m_range.after) {
    statement.Bind(3, m_range.after->time);
    statement.Bind(4, m_range.after->row);
  }
  while (statement.Step()) {
    const HistoryRow row(statement, m_columns);
    m_range.after = row.Place();
    if (visit(row) == Then::kStop || ScanClock::now() >= end) {
      return true;
    }
  }
  return false;
}

void HistoryScan::Fetch(SqlDatabase& database, std::int64_t row,
                        const std::function<void(const HistoryRow&)>& visit) {
  SqlStatement statement = database.Prepare(SelectText(database) + "rowid = ?1");
  statement.Bind(1, row);
  if (statement.Step()) {
    visit(HistoryRow(statement, m_columns));
  }
}

std::optional<std::int64_t> NearestTime(SqlDatabase& database, const std::string& record,
                                        std::int64_t at) {
  const std::string table = QuotedName(record);
  const std::string time = QuotedName(kTimeLabel);
  const auto ask = [&](const std::string& text) -> std::optional<std::int64_t> {
    SqlStatement statement = database.Prepare(text);
    statement.Bind(1, at);
    return statement.Step() && !statement.IsNull(0) ? std::optional(statement.Whole(0))
                                                    : std::nullopt;
  };
  const auto before = ask("SELECT max(" + time + ") FROM " + table + " WHERE " + time + " <= ?1");
  const auto behind = ask("SELECT min(" + time + ") FROM " + table + " WHERE " + time + " > ?1");
  // Of numbers that a client gives no difference is taken: it may not fit.
  const auto distance = [at](std::int64_t other) {
    const auto wide = static_cast<std::uint64_t>(other) - static_cast<std::uint64_t>(at);
    return other < at ? std::uint64_t{0} - wide : wide;
  };
  if (before && behind) {
    return distance(*behind) < distance(*before) ? behind : before;
  }
  return before ? before : behind;
}
