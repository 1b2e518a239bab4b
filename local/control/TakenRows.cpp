#include "local/control/TakenRows.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostShapes = 16;
/// At rest there is memory for no more rows.
constexpr std::size_t kKeptRecords = 256;

}  // namespace

/// A row's bytes as a record.
class TakenRows::StoredRecord : public CMBRecord {
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
  [[nodiscard]] std::span<unsigned char> Clear() {
    m_bytes.assign(m_layout.size, 0);
    return m_bytes;
  }

 private:
  const RecordLayout& m_layout;
  std::vector<unsigned char> m_bytes;
};

struct TakenRows::Shape {
  std::vector<bool> lacking;
  std::vector<FieldLayout> fields;
  RecordLayout layout;
  RecordMetrics metrics;
  std::optional<NodeMetrics> nodeMetrics;  ///< made when they are first asked for
};

TakenRows::TakenRows(const RecordLayout& layout)
    : m_layout(layout), m_lacking(layout.fields.size()) {}

TakenRows::~TakenRows() = default;

void TakenRows::Clear() {
  m_taken.clear();
  std::fill(m_lacking.begin(), m_lacking.end(), false);
}

std::span<unsigned char> TakenRows::Add() {
  if (m_records.size() == m_taken.size()) {
    m_records.push_back(std::make_unique<StoredRecord>(m_layout));
  }
  StoredRecord& record = *m_records[m_taken.size()];
  m_taken.push_back(&record);
  return record.Clear();
}

const RecordMetrics& TakenRows::Metrics() { return FittingShape().metrics; }

const NodeMetrics& TakenRows::NodeNames() {
  Shape& shape = FittingShape();
  if (!shape.nodeMetrics) {
    shape.nodeMetrics = NodeMetricsOf(shape.layout);
  }
  return *shape.nodeMetrics;
}

TakenRows::Shape& TakenRows::FittingShape() {
  const auto found = std::ranges::find_if(
      m_shapes, [&](const auto& shape) { return shape->lacking == m_lacking; });
  if (found != m_shapes.end()) {
    return **found;
  }
  if (m_shapes.size() == kMostShapes) {
    m_shapes.clear();
  }
  Shape& shape = *m_shapes.emplace_back(std::make_unique<Shape>());
  shape.lacking = m_lacking;
  for (std::size_t place = 0; place < m_lacking.size(); ++place) {
    if (!m_lacking[place]) {
      shape.fields.push_back(m_layout.fields[place]);
    }
  }
  shape.layout = m_layout;
  shape.layout.fields = shape.fields;
  shape.metrics = MetricsOf(shape.layout);
  return shape;
}

void TakenRows::Rest() {
  m_taken.clear();
  if (m_records.size() > kKeptRecords) {
    m_records.resize(kKeptRecords);
  }
}
