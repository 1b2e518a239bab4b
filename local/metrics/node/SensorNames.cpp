#include <algorithm>

#include "local/metrics/node/NodeNames.h"

namespace {

/// What the record calls the chip of zones that stand below no chip.
constexpr std::string_view kZoneChip = "thermal";

/// The name's own unit, which readers know it by: 41 % is 0.041.
constexpr double kHumidityOfPercent = 1e-3;

constexpr std::array kSensorLabels{NodeLabel{"chip", "Chip"}, NodeLabel{"sensor", "Sensor"}};

constexpr NodeEntry SensorGauge(const char* name, const char* help, const char* field) {
  return {name, help, MetricKind::kGauge, {field}};
}

constexpr std::array kTemperatureEntries{
    SensorGauge("node_hwmon_temp_celsius", "A temperature", "Value"),
    SensorGauge("node_hwmon_temp_max_celsius", "From which temperature on it is too much", "High"),
    SensorGauge("node_hwmon_temp_crit_celsius", "From which temperature on harm is to be feared",
                "Critical")};
constexpr std::array kFanEntries{SensorGauge("node_hwmon_fan_rpm", "Turns a minute", "Value")};
constexpr std::array kVoltageEntries{
    SensorGauge("node_hwmon_in_volts", "A voltage", "Value"),
    SensorGauge("node_hwmon_in_max_volts", "From which voltage on it is too much", "High"),
    SensorGauge("node_hwmon_in_crit_volts", "From which voltage on harm is to be feared",
                "Critical")};
constexpr std::array kCurrentEntries{
    SensorGauge("node_hwmon_curr_amps", "A current", "Value"),
    SensorGauge("node_hwmon_curr_max_amps", "From which current on it is too much", "High"),
    SensorGauge("node_hwmon_curr_crit_amps", "From which current on harm is to be feared",
                "Critical")};
constexpr std::array kPowerEntries{
    SensorGauge("node_hwmon_power_watt", "A power, or its mean where no other is told", "Value"),
    SensorGauge("node_hwmon_power_max_watt", "From which power on it is too much", "High"),
    SensorGauge("node_hwmon_power_crit_watt", "From which power on harm is to be feared",
                "Critical")};
constexpr std::array kEnergyEntries{
    NodeEntry{"node_hwmon_energy_joule_total", "Energy used", MetricKind::kCounter, {"Value"}}};
constexpr std::array kHumidityEntries{
    NodeEntry{"node_hwmon_humidity",
              "The air's humidity, 1 for ten times what it can hold",
              MetricKind::kGauge,
              {"Value"},
              kHumidityOfPercent}};

template <std::size_t N>
constexpr NodeGroup SensorsOf(const std::array<NodeEntry, N>& entries,
                              bool (*isGiven)(const NodeFields&)) {
  return {"SENS", kSensorLabels, entries, {"Kind", "Chip"}, isGiven};
}

constexpr std::array kSensorNames{NodeLabel{"chip", "Chip"}, NodeLabel{"label", "Label"},
                                  NodeLabel{"sensor", "Sensor"}};
constexpr std::array kSensorNameEntries{NodeEntry{"node_hwmon_sensor_label",
                                                  "What the driver calls a sensor",
                                                  MetricKind::kGauge,
                                                  {},
                                                  1,
                                                  "",
                                                  AlwaysOne}};

constexpr std::array kChipNames{NodeLabel{"chip", "Chip"}, NodeLabel{"chip_name", "Chip"}};
constexpr std::array kChipNameEntries{NodeEntry{"node_hwmon_chip_names",
                                                "What the driver calls a chip",
                                                MetricKind::kGauge,
                                                {},
                                                1,
                                                "",
                                                AlwaysOne}};

std::string_view ZoneNumber(std::string_view sensor) {
  return sensor.substr(std::min(sensor.find_first_of("0123456789"), sensor.size()));
}
constexpr std::array kZoneLabels{NodeLabel{"type", "Label"},
                                 NodeLabel{"zone", "Sensor", ZoneNumber}};
constexpr std::array kZoneEntries{
    SensorGauge("node_thermal_zone_temp", "The temperature of a zone in degrees Celsius", "Value")};

constexpr std::array kSensorGroups{
    SensorsOf(kTemperatureEntries,
              [](const NodeFields& row) {
                return row.Text(0) == "temperature" && row.Text(1) != kZoneChip;
              }),
    SensorsOf(kFanEntries, [](const NodeFields& row) { return row.Text(0) == "fan"; }),
    SensorsOf(kVoltageEntries, [](const NodeFields& row) { return row.Text(0) == "voltage"; }),
    SensorsOf(kCurrentEntries, [](const NodeFields& row) { return row.Text(0) == "current"; }),
    SensorsOf(kPowerEntries, [](const NodeFields& row) { return row.Text(0) == "power"; }),
    SensorsOf(kEnergyEntries, [](const NodeFields& row) { return row.Text(0) == "energy"; }),
    SensorsOf(kHumidityEntries, [](const NodeFields& row) { return row.Text(0) == "humidity"; }),
    NodeGroup{"SENS",
              kSensorNames,
              kSensorNameEntries,
              {"Label", "Sensor", "Chip"},
              [](const NodeFields& row) {
                return row.Text(0) != row.Text(1) && row.Text(2) != kZoneChip;
              }},
    NodeGroup{"SENS",
              kChipNames,
              kChipNameEntries,
              {"Chip"},
              [](const NodeFields& row) { return row.Text(0) != kZoneChip; }},
    NodeGroup{"SENS", kZoneLabels, kZoneEntries, {"Chip"}, [](const NodeFields& row) {
                return row.Text(0) == kZoneChip;
              }}};

}  // namespace

std::span<const NodeGroup> NodeSensorTable() { return kSensorGroups; }
