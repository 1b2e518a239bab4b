#include "local/control/RowReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "local/history/HistoryTables.h"

namespace {

constexpr int kRowColumn = 0;
constexpr int kTimeColumn = 1;
constexpr int kFirstField = 2;

template <class Number>
void Store(Number number, unsigned char* bytes) {
  std::memcpy(bytes, &number, sizeof number);
}

/// False for what the type can't hold.
template <class Number>
bool StoreWhole(const SqlStatement& row, int column, unsigned char* bytes) {
  using Limits = std::numeric_limits<Number>;
  if (!row.IsWhole(column)) {
    return false;
  }
  const std::int64_t value = row.Whole(column);
  if (value < std::int64_t{Limits::min()} || value > std::int64_t{Limits::max()}) {
    return false;
  }
  Store(static_cast<Number>(value), bytes);
  return true;
}

std::optional<double> RealOf(const SqlStatement& row, int column) {
  return row.IsReal(column) || row.IsWhole(column) ? std::optional(row.Real(column)) : std::nullopt;
}

/// Not a number where there is none, as in a record.
void StoreFloat(const SqlStatement& row, int column, unsigned char* bytes) {
  const std::optional<double> value = RealOf(row, column);
  const bool isFloat = value && std::fabs(*value) <= double{std::numeric_limits<float>::max()};
  Store(isFloat ? static_cast<float>(*value) : std::numeric_limits<float>::quiet_NaN(), bytes);
}

void StoreDouble(const SqlStatement& row, int column, unsigned char* bytes) {
  Store(RealOf(row, column).value_or(std::numeric_limits<double>::quiet_NaN()), bytes);
}

/// Whole seconds and microseconds, as records have them.
bool StoreSeconds(const SqlStatement& row, int column, unsigned char* bytes) {
  constexpr std::int64_t kMicroseconds = 1'000'000;
  const std::optional<double> value = RealOf(row, column);
  if (!value || !(std::fabs(*value) < double{std::numeric_limits<std::int32_t>::max()})) {
    return false;
  }
  const std::int64_t all = std::llround(*value * double{kMicroseconds});
  Store(static_cast<std::int32_t>(all / kMicroseconds), bytes);
  Store(static_cast<std::int32_t>(all % kMicroseconds), bytes + sizeof(std::int32_t));
  return true;
}

void StoreText(std::string_view text, std::size_t width, unsigned char* bytes) {
  std::copy_n(text.data(), std::min(text.size(), width), bytes);
}

/// False where the row has no value for the field, or one that it can't hold.
bool StoreField(const SqlStatement& row, int column, const FieldLayout& field,
                unsigned char* bytes) {
  switch (field.type) {
    case FieldType::kText:
      StoreText(row.Text(column), field.width, bytes);
      return true;
    case FieldType::kUshort:
      return StoreWhole<std::uint16_t>(row, column, bytes);
    case FieldType::kLong:
      return StoreWhole<std::int32_t>(row, column, bytes);
    case FieldType::kUlong:
      return StoreWhole<std::uint32_t>(row, column, bytes);
    case FieldType::kFloat:
      StoreFloat(row, column, bytes);
      return true;
    case FieldType::kDouble:
      StoreDouble(row, column, bytes);
      return true;
    case FieldType::kUtime:
      return StoreSeconds(row, column, bytes);
  }
  return false;
}

}  // namespace

RowReader::RowReader(const RecordLayout& layout)
    : m_columns(layout.fields.size(), -1), m_taken(layout) {}

void RowReader::Prepare(SqlDatabase& database) {
  if (m_isPrepared) {
    return;
  }
  const RecordLayout& layout = m_taken.Layout();
  const auto columns = ColumnsOf(database, layout.name);
  if (columns.contains(kTimeLabel)) {
    const std::string table = QuotedName(layout.name);
    const std::string time = QuotedName(kTimeLabel);
    std::string text = "SELECT rowid, " + time;
    int column = kFirstField;
    for (std::size_t place = 0; place < m_columns.size(); ++place) {
      const FieldLayout& field = layout.fields[place];
      const bool isRead = field.hasSource && columns.contains(field.label) &&
                          std::size_t{field.offset} + field.width <= layout.size;
      m_columns[place] = isRead ? column++ : -1;
      text += isRead ? ", " + QuotedName(field.label) : std::string();
    }
    m_rows.emplace(database.Prepare(text + " FROM " + table + " WHERE rowid >= ?1 ORDER BY rowid"));
    m_finder.emplace(database, table, time);
  }
  m_isPrepared = true;
}

void RowReader::Step() {
  m_hasRow = m_rows->Step();
  if (m_hasRow) {
    m_at = {m_rows->Whole(kTimeColumn), m_rows->Whole(kRowColumn)};
  }
}

void RowReader::Seek(SqlDatabase& database, const RowPlace& after, std::int64_t now) {
  Prepare(database);
  Rest();
  if (!m_rows) {
    return;
  }
  if (const auto first = m_finder->FirstBehind(after, now)) {
    m_rows->Bind(1, std::max<std::int64_t>(*first, 1));
    Step();
  }
}

void RowReader::ReadRow() {
  const std::span<unsigned char> bytes = m_taken.Add();
  for (std::size_t place = 0; place < m_columns.size(); ++place) {
    const FieldLayout& field = m_taken.Layout().fields[place];
    const int column = m_columns[place];
    const bool isStored =
        column >= 0 && StoreField(*m_rows, column, field, bytes.data() + field.offset);
    if (!isStored && field.hasSource) {
      m_taken.NoteLacking(place);
    }
  }
}

TakenRows& RowReader::Take() {
  m_taken.Clear();
  const std::int64_t time = m_at.time;
  while (m_hasRow && m_at.time == time && m_taken.Size() < kMostOfOneTime) {
    ReadRow();
    m_last = m_at;
    Step();
  }
  return m_taken;
}

void RowReader::Rest() {
  m_hasRow = false;
  if (m_rows) {
    m_rows->Reset();
  }
  m_taken.Rest();
}
