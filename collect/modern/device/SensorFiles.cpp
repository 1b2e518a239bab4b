#include "collect/modern/device/SensorFiles.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kMostNumbered = 1024;
constexpr std::size_t kMostSensorsOfChip = 1024;

/// In the order of SensorKind.
constexpr std::array<SensorKindRule, 7> kSensorKinds{{
    {"temp", "temperature", "celsius", 1e-3},
    {"fan", "fan", "rpm", 1},
    {"in", "voltage", "volts", 1e-3},
    {"curr", "current", "amperes", 1e-3},
    {"power", "power", "watts", 1e-6},
    {"energy", "energy", "joules", 1e-6},
    {"humidity", "humidity", "percent", 1e-3},
}};

struct SensorItemName {
  std::string_view name;
  SensorItem item;
};
constexpr std::array<SensorItemName, 12> kSensorItems{{
    {"input", kSensorInput},
    {"average", kSensorAverage},
    {"label", kSensorLabel},
    {"max", kSensorMax},
    {"crit", kSensorCritical},
    {"alarm", kSensorAlarm},
    {"max_alarm", kSensorMaxAlarm},
    {"crit_alarm", kSensorCriticalAlarm},
    {"fault", kSensorFault},
    {"min_alarm", kSensorMinAlarm},
    {"lcrit_alarm", kSensorLowCriticalAlarm},
    {"emergency_alarm", kSensorEmergencyAlarm},
}};

}  // namespace

const SensorKindRule& RuleOf(SensorKind kind) {
  return kSensorKinds[static_cast<std::size_t>(kind)];
}

std::optional<std::uint32_t> NumberBehind(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) {
    return std::nullopt;
  }
  name.remove_prefix(prefix.size());
  std::uint32_t number = 0;
  const char* const end = name.data() + name.size();
  const auto [stop, code] = std::from_chars(name.data(), end, number);
  const bool isPadded = name.size() > 1 && name.starts_with('0');
  return code == std::errc{} && stop == end && !isPadded ? std::optional(number) : std::nullopt;
}

std::optional<ChipSensor> ParseSensorFile(std::string_view name) {
  const std::size_t line = name.find('_');
  if (line == std::string_view::npos) {
    return std::nullopt;
  }
  const auto* const item = std::find_if(
      kSensorItems.begin(), kSensorItems.end(),
      [wanted = name.substr(line + 1)](const SensorItemName& each) { return each.name == wanted; });
  if (item == kSensorItems.end()) {
    return std::nullopt;
  }
  for (std::size_t kind = 0; kind < kSensorKinds.size(); ++kind) {
    if (const auto number = NumberBehind(name.substr(0, line), kSensorKinds[kind].prefix)) {
      return ChipSensor{static_cast<SensorKind>(kind), *number, item->item};
    }
  }
  return std::nullopt;
}

std::vector<std::uint32_t> ReadNumbered(const HostFolder& folder, std::string_view prefix) {
  std::vector<std::uint32_t> numbers;
  folder.ForEach([&](const char* name, bool) {
    if (const auto number = NumberBehind(name, prefix)) {
      numbers.push_back(*number);
    }
    return numbers.size() < kMostNumbered;
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<ChipSensor> ReadChipSensors(const HostFolder& chip) {
  std::map<std::pair<SensorKind, std::uint32_t>, std::uint32_t> items;
  chip.ForEach([&items](const char* name, bool) {
    if (const auto file = ParseSensorFile(name)) {
      items[{file->kind, file->number}] |= file->items;
    }
    return items.size() < kMostSensorsOfChip;
  });
  std::vector<ChipSensor> sensors;
  for (const auto& [sensor, bits] : items) {
    if ((bits & (kSensorInput | kSensorAverage)) != 0) {
      sensors.push_back({sensor.first, sensor.second, bits});
    }
  }
  return sensors;
}

std::string SensorFileName(const ChipSensor& sensor, std::string_view item) {
  std::string name(RuleOf(sensor.kind).prefix);
  name += std::to_string(sensor.number);
  if (!item.empty()) {
    name.append("_").append(item);
  }
  return name;
}
