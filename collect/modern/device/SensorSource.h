#pragma once

#include <string>
#include <vector>

#include "support/NotTold.h"

/// A sensor of the hardware.
struct SensorFigures {
  /// What the driver calls the chip. Where several have one name, with that of the device behind
  /// it, as in "nvme-nvme0"; where that does not tell them apart either, with "hwmon3".
  std::string chip;
  std::string sensor;  ///< one of the chip's, as the kernel numbers them: "temp1"
  std::string label;   ///< what the driver calls it; without a label the same as `sensor`
  /// "temperature", "fan", "voltage", "current", "power", "energy" or "humidity"
  std::string kind;
  /// Of the kinds above: "celsius", "rpm", "volts", "amperes", "watts", "joules", "percent"
  std::string unit;
  /// kNotTold for a sensor that can't be read, or is out of order as its file `fault` tells. A
  /// power is that of the moment; without one the average.
  double value = kNotTold;
  double high = kNotTold;  ///< from where on it is too much
  double critical = kNotTold;
  double alarm = kNotTold;  ///< 1 if a bound is passed or was so shortly before; else 0
};

/// Reads the sensors of all chips in /sys/class/hwmon: chips by their numbers, those of a chip by
/// kind and number. On a host where no chip has a sensor of a temperature the thermal zones of
/// /sys/class/thermal stand for it, as the chip "thermal" with their types as labels; `critical`
/// and `high` are the lowest trip points of the types "critical" and "hot".
///
/// Where the option "Node", "Mount Timeout" sets a limit a child reads, see ReadSensorsWithin():
/// a sensor that keeps it waiting has no row for an hour.
void ReadSensors(std::vector<SensorFigures>& sensors);
