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
constexpr std::size_t kMostShapes = 16;
/// A reader at rest holds the memory of no more rows.
constexpr std::size_t kKeptRecords = 256;

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

/// A row's bytes as a record.
class RowReader::StoredRecord : public CMBRecord {
 public:
  explicit StoredRecord(const RecordLayout& layout) : m_layout(layout) {}

  int operator==(const CMBRecord& other) const override { return this == &other ? 1 : 0; }
  int operator<(const CMBRecord& other) const override { return this < &other ? 1 : 0; }
  [[nodiscard]] const char* IsA() const override { return m_layout.structure; }
  [[nodiscard]] unsigned char GetDataType() const override { return m_layout.category; }
  [[nodiscard]] int GetRecSize() const override { return static_cast<int>(m_bytes.size()); }
  [[nodiscard]] const void* GetRecStart() const override { return m_bytes.data(); }
  [[nodiscard]] const char* GetRecType() const override { return m_layout.name; }
  [[nodiscard]] const FieldDescriptor* GetFieldTypeArray() const override { return nullptr; }
  [[nodiscard]] int GetFieldTypeCount() const override { return 0; }

  /// All zero.
  [[nodiscard]] std::vector<unsigned char>& Clear() {
    m_bytes.assign(m_layout.size, 0);
    return m_bytes;
  }

 private:
  const RecordLayout& m_layout;
  std::vector<unsigned char> m_bytes;
};

struct RowReader::Shape {
  std::vector<bool> lacking;
  std::vector<FieldLayout> fields;
  RecordLayout layout;
  RecordMetrics metrics;
  std::optional<NodeMetrics> nodeMetrics;  ///< made when they are first asked for
};

RowReader::RowReader(const RecordLayout& layout, std::string table)
    : m_layout(layout),
      m_table(std::move(table)),
      m_columns(layout.fields.size(), -1),
      m_lacking(layout.fields.size()) {}

RowReader::~RowReader() = default;

void RowReader::Prepare(SqlDatabase& database) {
  if (m_isPrepared) {
    return;
  }
  const auto columns = ColumnsOf(database, m_table);
  if (columns.contains(kTimeLabel)) {
    const std::string table = QuotedName(m_table);
    const std::string time = QuotedName(kTimeLabel);
    std::string text = "SELECT rowid, " + time;
    int column = kFirstField;
    for (std::size_t place = 0; place < m_columns.size(); ++place) {
      const FieldLayout& field = m_layout.fields[place];
      const bool isRead = field.hasSource && columns.contains(field.label) &&
                          std::size_t{field.offset} + field.width <= m_layout.size;
      m_columns[place] = isRead ? column++ : -1;
      text += isRead ? ", " + QuotedName(field.label) : std::string();
    }
    m_rows.emplace(database.Prepare(text + " FROM " + table + " WHERE rowid >= ?1 ORDER BY rowid"));
    m_first.emplace(database.Prepare("SELECT rowid FROM " + table + " WHERE " + time +
                                     " > ?1 ORDER BY " + time + ", rowid LIMIT 1"));
  }
  m_isPrepared = true;
}

void RowReader::Step() {
  m_hasRow = m_rows->Step();
  if (m_hasRow) {
    m_at = {m_rows->Whole(kTimeColumn), m_rows->Whole(kRowColumn)};
  }
}

std::optional<std::int64_t> RowReader::FirstBehind(const RowPlace& after, std::int64_t now) {
  if (after.row != 0 && after.time > now) {
    return std::numeric_limits<std::int64_t>::min();
  }
  m_first->Bind(1, after.time);
  const auto first = m_first->Step() ? std::optional(m_first->Whole(0)) : std::nullopt;
  m_first->Reset();
  return first;
}

void RowReader::Seek(SqlDatabase& database, const RowPlace& after, std::int64_t now) {
  Prepare(database);
  Rest();
  if (!m_rows) {
    return;
  }
  if (after.row != 0) {
    m_rows->Bind(1, after.row);
    Step();
    if (m_hasRow && m_at.row == after.row && m_at.time == after.time) {
      Step();
      return;
    }
    Rest();
  }
  if (const auto first = FirstBehind(after, now)) {
    m_rows->Bind(1, *first);
    Step();
  }
}

void RowReader::ReadRow(StoredRecord& record) {
  std::vector<unsigned char>& bytes = record.Clear();
  for (std::size_t place = 0; place < m_columns.size(); ++place) {
    const FieldLayout& field = m_layout.fields[place];
    const int column = m_columns[place];
    if (column < 0 || !StoreField(*m_rows, column, field, bytes.data() + field.offset)) {
      m_lacking[place] = m_lacking[place] || field.hasSource;
    }
  }
}

std::span<const CMBRecord* const> RowReader::Take() {
  m_taken.clear();
  std::fill(m_lacking.begin(), m_lacking.end(), false);
  const std::int64_t time = m_at.time;
  while (m_hasRow && m_at.time == time && m_taken.size() < kMostOfOneTime) {
    if (m_records.size() == m_taken.size()) {
      m_records.push_back(std::make_unique<StoredRecord>(m_layout));
    }
    StoredRecord& record = *m_records[m_taken.size()];
    ReadRow(record);
    m_taken.push_back(&record);
    m_last = m_at;
    Step();
  }
  m_shape = &ShapeOf(m_lacking);
  return m_taken;
}

const RecordMetrics& RowReader::Metrics() const { return m_shape->metrics; }

const NodeMetrics& RowReader::NodeNames() {
  if (!m_shape->nodeMetrics) {
    m_shape->nodeMetrics = NodeMetricsOf(m_shape->layout);
  }
  return *m_shape->nodeMetrics;
}

RowReader::Shape& RowReader::ShapeOf(const std::vector<bool>& lacking) {
  const auto found =
      std::ranges::find_if(m_shapes, [&](const auto& shape) { return shape->lacking == lacking; });
  if (found != m_shapes.end()) {
    return **found;
  }
  if (m_shapes.size() == kMostShapes) {
    m_shapes.clear();
  }
  Shape& shape = *m_shapes.emplace_back(std::make_unique<Shape>());
  shape.lacking = lacking;
  for (std::size_t place = 0; place < lacking.size(); ++place) {
    if (!lacking[place]) {
      shape.fields.push_back(m_layout.fields[place]);
    }
  }
  shape.layout = m_layout;
  shape.layout.fields = shape.fields;
  shape.metrics = MetricsOf(shape.layout);
  return shape;
}

void RowReader::Rest() {
  m_hasRow = false;
  if (m_rows) {
    m_rows->Reset();
  }
  if (m_records.size() > kKeptRecords) {
    m_taken.clear();
    m_records.resize(kKeptRecords);
  }
}
