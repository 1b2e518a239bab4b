#include "collect/modern/device/SensorSource.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>

#include "collect/filesystem/MountQuestion.h"
#include "collect/modern/HostFolder.h"
#include "collect/modern/device/SensorFiles.h"
#include "collect/modern/device/SensorQuestion.h"

namespace {

constexpr const char* kSensorChips = "/sys/class/hwmon";
constexpr const char* kThermalFolder = "/sys/class/thermal";
/// No driver's name or label is longer.
constexpr std::size_t kLongestSensorText = 128;
/// Of a captured tree; no host has as many.
constexpr std::size_t kMostSensors = 16384;
constexpr std::uint32_t kMostTripPoints = 64;

std::string SensorLine(const HostFolder& folder, const std::string& name) {
  std::string text = folder.Line(name.c_str());
  text.resize(std::min(text.size(), kLongestSensorText));
  return text;
}

/// A chip and how it is told apart from others.
struct NamedSensorChip {
  std::string entry;   ///< of /sys/class/hwmon
  std::string folder;  ///< of its attributes, below that
  std::string name;
};

/// Puts `tail(chip)` behind each name that several chips have, unless it is empty.
template <class Tail>
void TellChipsApart(std::vector<NamedSensorChip>& chips, const Tail& tail) {
  std::map<std::string, int> uses;
  for (const NamedSensorChip& chip : chips) {
    ++uses[chip.name];
  }
  for (NamedSensorChip& chip : chips) {
    if (uses[chip.name] > 1) {
      const std::string text = tail(chip);
      chip.name += text.empty() ? "" : "-" + text;
    }
  }
}

/// Names the chip and finds its attributes, which an old driver has in the folder of its device.
void FindChipAttributes(const HostFolder& hwmon, NamedSensorChip& chip) {
  chip.folder = chip.entry;
  chip.name = SensorLine(hwmon, chip.entry + "/name");
  if (!chip.name.empty()) {
    return;
  }
  chip.name = SensorLine(hwmon, chip.entry + "/device/name");
  if (chip.name.empty()) {
    chip.name = chip.entry;
  } else {
    chip.folder += "/device";
  }
}

/// The chips by their numbers but those to be passed over, each with a name of its own.
std::vector<NamedSensorChip> ReadSensorChips(const HostFolder& hwmon, SensorSink& sink) {
  std::vector<NamedSensorChip> chips;
  for (const std::uint32_t number : ReadNumbered(hwmon, "hwmon")) {
    NamedSensorChip chip{"hwmon" + std::to_string(number), {}, {}};
    if (sink.Begin(chip.entry)) {
      FindChipAttributes(hwmon, chip);
      chips.push_back(std::move(chip));
    }
  }
  TellChipsApart(chips, [&hwmon](const NamedSensorChip& chip) {
    return hwmon.LinkName((chip.entry + "/device").c_str());
  });
  TellChipsApart(chips, [](const NamedSensorChip& chip) { return chip.entry; });
  return chips;
}

/// What the items of one sensor tell.
class SensorItems {
 public:
  SensorItems(const HostFolder& chip, const ChipSensor& sensor) : m_chip(chip), m_sensor(sensor) {}

  /// The number of a file, which is not opened if the chip has none; in the kind's unit.
  [[nodiscard]] double Figure(SensorItem item, const char* name) const {
    return Number(item, name) * RuleOf(m_sensor.kind).step;
  }
  [[nodiscard]] double Number(SensorItem item, const char* name) const {
    return Has(item) ? m_chip.Number(SensorFileName(m_sensor, name).c_str()) : kNotTold;
  }
  /// 0 or 1
  [[nodiscard]] double Flag(SensorItem item, const char* name) const {
    const double number = Number(item, name);
    return IsTold(number) && number != 0 ? 1 : number;
  }
  [[nodiscard]] std::string Label() const {
    return Has(kSensorLabel) ? SensorLine(m_chip, SensorFileName(m_sensor, "label"))
                             : std::string();
  }

 private:
  [[nodiscard]] bool Has(SensorItem item) const { return (m_sensor.items & item) != 0; }

  const HostFolder& m_chip;
  const ChipSensor& m_sensor;
};

constexpr std::pair<SensorItem, const char*> kBoundAlarms[] = {
    {kSensorMaxAlarm, "max_alarm"},
    {kSensorCriticalAlarm, "crit_alarm"},
    {kSensorMinAlarm, "min_alarm"},
    {kSensorLowCriticalAlarm, "lcrit_alarm"},
    {kSensorEmergencyAlarm, "emergency_alarm"}};

/// The driver's own alarm, or else the ones of its bounds.
double ReadSensorAlarm(const SensorItems& items) {
  const double alarm = items.Flag(kSensorAlarm, "alarm");
  if (IsTold(alarm)) {
    return alarm;
  }
  // Each is a number or not told, and of these a number counts.
  double any = kNotTold;
  for (const auto& [item, name] : kBoundAlarms) {
    any = std::fmax(any, items.Flag(item, name));
  }
  return any;
}

SensorFigures ReadOneSensor(const HostFolder& folder, const ChipSensor& sensor) {
  const SensorItems items(folder, sensor);
  SensorFigures row;
  row.sensor = SensorFileName(sensor);
  row.label = items.Label();
  if (row.label.empty()) {
    row.label = row.sensor;
  }
  row.kind = RuleOf(sensor.kind).text;
  row.unit = RuleOf(sensor.kind).unit;
  const double fault = items.Flag(kSensorFault, "fault");
  if (!(fault > 0)) {
    row.value = items.Figure(kSensorInput, "input");
    if (!IsTold(row.value)) {
      row.value = items.Figure(kSensorAverage, "average");
    }
  }
  row.high = items.Figure(kSensorMax, "max");
  row.critical = items.Figure(kSensorCritical, "crit");
  row.alarm = ReadSensorAlarm(items);
  return row;
}

/// Whether any chip has a sensor of a temperature.
bool ReadHwmon(SensorSink& sink) {
  const HostFolder hwmon(kSensorChips);
  bool hasTemperature = false;
  std::size_t left = kMostSensors;
  for (const NamedSensorChip& chip : ReadSensorChips(hwmon, sink)) {
    const HostFolder folder = hwmon.Below(chip.folder.c_str());
    for (const ChipSensor& sensor : ReadChipSensors(folder)) {
      hasTemperature = hasTemperature || sensor.kind == SensorKind::kTemperature;
      if (left > 0 && sink.Begin(chip.entry + '/' + SensorFileName(sensor))) {
        SensorFigures row = ReadOneSensor(folder, sensor);
        row.chip = chip.name;
        sink.Take(row);
        --left;
      }
    }
  }
  return hasTemperature;
}

void ReadTripPoints(const HostFolder& zone, double step, SensorFigures& row) {
  for (std::uint32_t point = 0; point < kMostTripPoints; ++point) {
    const std::string stem = "trip_point_" + std::to_string(point);
    const std::string type = zone.Line((stem + "_type").c_str());
    // They are numbered without a gap.
    if (type.empty()) {
      return;
    }
    double* const bound = type == "critical" ? &row.critical : type == "hot" ? &row.high : nullptr;
    if (bound != nullptr) {
      *bound = std::fmin(*bound, zone.Number((stem + "_temp").c_str()) * step);
    }
  }
}

void ReadThermalZones(SensorSink& sink) {
  const SensorKindRule& rule = RuleOf(SensorKind::kTemperature);
  const HostFolder thermal(kThermalFolder);
  for (const std::uint32_t number : ReadNumbered(thermal, "thermal_zone")) {
    SensorFigures row;
    row.chip = "thermal";
    row.sensor = "thermal_zone" + std::to_string(number);
    if (!sink.Begin(row.sensor)) {
      continue;
    }
    const HostFolder zone = thermal.Below(row.sensor.c_str());
    row.label = SensorLine(zone, "type");
    row.label = row.label.empty() ? row.sensor : row.label;
    row.kind = rule.text;
    row.unit = rule.unit;
    row.value = zone.Number("temp") * rule.step;
    ReadTripPoints(zone, rule.step, row);
    sink.Take(row);
  }
}

void ReadAllSensors(SensorSink& sink) {
  if (!ReadHwmon(sink)) {
    ReadThermalZones(sink);
  }
}

}  // namespace

void ReadSensors(std::vector<SensorFigures>& sensors) {
  sensors.clear();
  const std::chrono::seconds limit = MountQuestion::Limit();
  if (limit.count() == 0) {
    ReadSensorsDirectly(ReadAllSensors, sensors);
  } else {
    ReadSensorsWithin(limit, ReadAllSensors, sensors);
  }
}
