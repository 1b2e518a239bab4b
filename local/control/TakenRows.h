#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "local/metrics/MetricFamily.h"
#include "local/metrics/node/NodeText.h"
#include "node/LayoutRegistry.h"
#include "node/Record.h"

/// Kept rows of one record as the records that they were, and what they expose.
class TakenRows {
 public:
  /// The layout outlives it.
  explicit TakenRows(const RecordLayout& layout);
  ~TakenRows();
  TakenRows(const TakenRows&) = delete;
  TakenRows& operator=(const TakenRows&) = delete;

  [[nodiscard]] const RecordLayout& Layout() const { return m_layout; }
  void Clear();
  /// The bytes of one more row, all zero; to be filled before the next call.
  [[nodiscard]] std::span<unsigned char> Add();
  /// The row that was added last has no value for the field of that place.
  void NoteLacking(std::size_t place) { m_lacking[place] = true; }
  [[nodiscard]] std::size_t Size() const { return m_taken.size(); }
  /// Valid until Clear() or Add().
  [[nodiscard]] std::span<const CMBRecord* const> Rows() const { return m_taken; }
  /// What the rows expose: of those that an older version has kept, and of values that no field can
  /// hold, the fields that are not there are left out.
  [[nodiscard]] const RecordMetrics& Metrics();
  /// The same under the names of the node exporter.
  [[nodiscard]] const NodeMetrics& NodeNames();
  /// Frees the memory of unusually many rows. No row is there then.
  void Rest();

 private:
  class StoredRecord;
  /// A layout without some of its fields.
  struct Shape;

  [[nodiscard]] Shape& FittingShape();

  const RecordLayout& m_layout;
  std::vector<std::unique_ptr<StoredRecord>> m_records;
  std::vector<const CMBRecord*> m_taken;
  std::vector<bool> m_lacking;  ///< fields that a row has no value for
  std::vector<std::unique_ptr<Shape>> m_shapes;
};
