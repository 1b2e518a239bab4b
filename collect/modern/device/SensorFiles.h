#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "collect/modern/HostFolder.h"

// The files of /sys/class/hwmon.

/// What a sensor measures, in the order of rows.
enum class SensorKind : std::uint8_t {
  kTemperature,
  kFan,
  kVoltage,
  kCurrent,
  kPower,
  kEnergy,
  kHumidity
};

/// How a kind is called here and by the kernel, and what its numbers stand for.
struct SensorKindRule {
  std::string_view prefix;  ///< of the files' names
  std::string_view text;
  std::string_view unit;
  double step;  ///< of the kernel's number, in the unit
};
[[nodiscard]] const SensorKindRule& RuleOf(SensorKind kind);

/// What a file tells of its sensor; a bit each.
enum SensorItem : std::uint32_t {
  kSensorInput = 1U << 0,
  kSensorAverage = 1U << 1,
  kSensorLabel = 1U << 2,
  kSensorMax = 1U << 3,
  kSensorCritical = 1U << 4,
  kSensorAlarm = 1U << 5,
  kSensorMaxAlarm = 1U << 6,
  kSensorCriticalAlarm = 1U << 7,
  kSensorFault = 1U << 8,
  kSensorMinAlarm = 1U << 9,
  kSensorLowCriticalAlarm = 1U << 10,
  kSensorEmergencyAlarm = 1U << 11
};

/// A sensor of a chip.
struct ChipSensor {
  SensorKind kind = SensorKind::kTemperature;
  std::uint32_t number = 0;
  std::uint32_t items = 0;  ///< the bits of the files it has
};

/// What the file of that name is, as "temp12_crit_alarm"; nothing for one of no use here.
[[nodiscard]] std::optional<ChipSensor> ParseSensorFile(std::string_view name);
/// The number behind the prefix, that is all of the rest: 12 of "hwmon12"; nothing for another
/// name, one with a zero in front, or a number beyond 32 bits.
[[nodiscard]] std::optional<std::uint32_t> NumberBehind(std::string_view name,
                                                        std::string_view prefix);

/// The numbers of the entries "<prefix>N" of a folder, ascending; no more than 1024.
[[nodiscard]] std::vector<std::uint32_t> ReadNumbered(const HostFolder& folder,
                                                      std::string_view prefix);
/// The sensors of a chip by kind and number; no more than 1024. One without a file of its value is
/// none.
[[nodiscard]] std::vector<ChipSensor> ReadChipSensors(const HostFolder& chip);
/// The name of a sensor's file; of its items as they are named by the kernel, empty for the stem.
[[nodiscard]] std::string SensorFileName(const ChipSensor& sensor, std::string_view item = {});
