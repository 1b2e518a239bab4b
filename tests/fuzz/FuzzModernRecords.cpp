#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "collect/modern/HostText.h"
#include "collect/modern/device/DiskSource.h"
#include "collect/modern/device/SensorFiles.h"
#include "collect/modern/device/SensorWords.h"
#include "collect/modern/system/Pressure.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

void RequireTime(const PressureLine& line) {
  for (const double figure :
       {line.average10, line.average60, line.average300, line.stalledSeconds}) {
    Require(!IsTold(figure) || figure >= 0);
  }
}

void TakePressure(std::string_view text) {
  const PressureText figures = ParsePressure(text);
  RequireTime(figures.some);
  RequireTime(figures.full);
}

void TakeDiskTexts(std::string_view text) {
  Require(SerialOfPage(text).size() <= text.size());
  Require(SchedulerOfDisk(text).size() <= text.size());
  const double count = ScsiCount(text);
  Require(!IsTold(count) || count >= 0);
  static_cast<void>(KindOfDisk(text, text));
}

void TakeSensorFiles(std::string_view text) {
  for (std::string_view line; NextTextLine(text, line);) {
    if (const auto sensor = ParseSensorFile(line)) {
      Require(line.starts_with(SensorFileName(*sensor) + '_'));
    }
    static_cast<void>(NumberBehind(line, "hwmon"));
  }
}

void TakeSensorWords(std::string_view text) {
  SensorFigures sensor;
  std::size_t size = text.size();
  for (SensorWord word; TakeSensorWord(text, word); size = text.size()) {
    Require(text.size() < size);
    if (UnpackSensor(word.bytes, sensor)) {
      const std::string again = PackSensor(sensor);
      Require(again.size() == word.bytes.size() &&
              std::memcmp(again.data(), word.bytes.data(), again.size()) == 0);
    }
  }
}

}  // namespace

/// The first byte chooses the parser, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kFiles[])(std::string_view) = {TakePressure, TakeDiskTexts, TakeSensorFiles,
                                                  TakeSensorWords};
  return TakeChosen(data, size, kFiles);
}
