#include "local/metrics/node/NodeNames.h"

#include <type_traits>

#include "local/history/FieldValue.h"

std::optional<double> NodeFields::Number(std::size_t place) const {
  return VisitField(*m_fields[place], m_row, [](const auto& value) -> std::optional<double> {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
      return static_cast<double>(value);
    } else {
      return std::nullopt;
    }
  });
}

std::string_view NodeFields::Text(std::size_t place) const {
  return VisitField(*m_fields[place], m_row, [](const auto& value) -> std::string_view {
    if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string_view>) {
      return value;
    } else {
      return {};
    }
  });
}

std::optional<double> SumOfTold(const NodeFields& fields) {
  std::optional<double> sum = fields.Number(0);
  for (std::size_t place = 1; sum && place < fields.Size(); ++place) {
    *sum += fields.Number(place).value_or(0);
  }
  return sum;
}

std::optional<double> AlwaysOne(const NodeFields& /*fields*/) { return 1; }

std::span<const std::span<const NodeGroup>> NodeTables() {
  static const std::array tables{NodeHostTable(),     NodeCpuTable(),    NodeMemoryTable(),
                                 NodePressureTable(), NodeDiskTable(),   NodeFileSystemTable(),
                                 NodeNetworkTable(),  NodeSocketTable(), NodeSensorTable()};
  return tables;
}
