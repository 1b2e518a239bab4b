#pragma once

#include <string>
#include <string_view>

#include "collect/modern/device/SensorSource.h"

// What a child that reads sensors sends.

/// A sensor's bytes.
[[nodiscard]] std::string PackSensor(const SensorFigures& sensor);
/// False, with nothing of use in `sensor`, for bytes that are no such.
[[nodiscard]] bool UnpackSensor(std::string_view bytes, SensorFigures& sensor);

/// One thing that it has to say.
struct SensorWord {
  static constexpr char kBegin = 'b';  ///< the place follows
  static constexpr char kTake = 't';   ///< the sensor follows
  char kind = 0;
  std::string_view bytes;
};
/// The word with its length before it.
[[nodiscard]] std::string PackSensorWord(const SensorWord& word);
/// Takes a word from the front of what has come; its bytes stay there. False if it has not come
/// whole.
[[nodiscard]] bool TakeSensorWord(std::string_view& text, SensorWord& word);
