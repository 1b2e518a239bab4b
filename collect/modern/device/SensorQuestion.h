#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "collect/modern/device/SensorSource.h"

/// Where what reads sensors puts them.
class SensorSink {
 public:
  SensorSink() = default;
  SensorSink(const SensorSink&) = delete;
  SensorSink& operator=(const SensorSink&) = delete;
  virtual ~SensorSink() = default;

  /// Before each chip, "hwmon3", and each sensor, "hwmon3/temp1", is read. False if it has to be
  /// passed over.
  [[nodiscard]] virtual bool Begin(const std::string& place) = 0;
  virtual void Take(const SensorFigures& sensor) = 0;
};

using SensorReader = std::function<void(SensorSink& sink)>;

/// Lets a child read and appends what it has taken until the limit. A child that is late is killed
/// but never waited for; what it was reading is told, and passed over for an hour and as long as
/// that child lasts. Of 16 children that last no further one is begun.
void ReadSensorsWithin(std::chrono::milliseconds limit, const SensorReader& reader,
                       std::vector<SensorFigures>& sensors);
/// Reads in this process.
void ReadSensorsDirectly(const SensorReader& reader, std::vector<SensorFigures>& sensors);
