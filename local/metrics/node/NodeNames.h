#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "local/metrics/MetricFamily.h"
#include "node/LayoutRegistry.h"

// The names of the node exporter's collectors as tables: where in which record each figure stands.

/// Some fields of one row, by their places in the list that names them. Refers to both.
class NodeFields {
 public:
  NodeFields(std::span<const FieldLayout* const> fields, std::span<const unsigned char> row)
      : m_fields(fields), m_row(row) {}

  [[nodiscard]] std::size_t Size() const { return m_fields.size(); }
  /// Nothing for a text, and for what is not told.
  [[nodiscard]] std::optional<double> Number(std::size_t place) const;
  /// Empty for a number.
  [[nodiscard]] std::string_view Text(std::size_t place) const;

 private:
  std::span<const FieldLayout* const> m_fields;
  std::span<const unsigned char> m_row;
};

/// What a name has of the fields that it lists, before its factor; nothing for no sample.
using NodeValue = std::optional<double> (*)(const NodeFields& fields);

/// The first field and what is told of the others; nothing if the first is not told.
[[nodiscard]] std::optional<double> SumOfTold(const NodeFields& fields);
/// 1, of what says all by its labels.
[[nodiscard]] std::optional<double> AlwaysOne(const NodeFields& fields);

/// A label whose value is a field's.
struct NodeLabel {
  const char* name;
  const char* field;                                             ///< its label in the record
  std::string_view (*part)(std::string_view content) = nullptr;  ///< of its text; null for all
};

/// One name, or one of the series of a name that differ by a label of their own.
struct NodeEntry {
  const char* name;  ///< as its samples have it, "_total" included
  const char* help;  ///< null: what the record says of the first field
  MetricKind kind;
  std::array<const char*, 4> fields{};  ///< labels of the record, up to the first null
  double factor = 1;                    ///< from the record's unit to that of the name
  const char* labels = "";              ///< its own ones, as in a sample: `mode="idle"`
  NodeValue value = SumOfTold;
};

/// Names of one record that share their labels.
struct NodeGroup {
  const char* record;
  std::span<const NodeLabel> labels;
  std::span<const NodeEntry> entries;
  std::array<const char*, 3> conditionFields{};         ///< labels, up to the first null
  bool (*isGiven)(const NodeFields& fields) = nullptr;  ///< by these; null for all rows
};

/// All tables, in the order in which a page has them.
[[nodiscard]] std::span<const std::span<const NodeGroup>> NodeTables();

// One table for each subject.
[[nodiscard]] std::span<const NodeGroup> NodeCpuTable();
[[nodiscard]] std::span<const NodeGroup> NodeDiskTable();
[[nodiscard]] std::span<const NodeGroup> NodeFileSystemTable();
[[nodiscard]] std::span<const NodeGroup> NodeHostTable();
[[nodiscard]] std::span<const NodeGroup> NodeMemoryTable();
[[nodiscard]] std::span<const NodeGroup> NodeNetworkTable();
[[nodiscard]] std::span<const NodeGroup> NodePressureTable();
[[nodiscard]] std::span<const NodeGroup> NodeSensorTable();
[[nodiscard]] std::span<const NodeGroup> NodeSocketTable();
