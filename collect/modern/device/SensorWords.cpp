#include "collect/modern/device/SensorWords.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace {

using SensorLength = std::uint32_t;

constexpr std::array kSensorTexts{&SensorFigures::chip, &SensorFigures::sensor,
                                  &SensorFigures::label, &SensorFigures::kind,
                                  &SensorFigures::unit};
constexpr std::array kSensorNumbers{&SensorFigures::value, &SensorFigures::high,
                                    &SensorFigures::critical, &SensorFigures::alarm};

template <class Value>
void PutSensorValue(std::string& out, const Value& value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class Value>
bool TakeSensorValue(std::string_view& text, Value& value) {
  if (text.size() < sizeof value) {
    return false;
  }
  std::memcpy(&value, text.data(), sizeof value);
  text.remove_prefix(sizeof value);
  return true;
}

bool TakeSensorText(std::string_view& text, std::string_view& taken) {
  SensorLength length = 0;
  if (!TakeSensorValue(text, length) || length > text.size()) {
    return false;
  }
  taken = text.substr(0, length);
  text.remove_prefix(length);
  return true;
}

void PutSensorText(std::string& out, std::string_view text) {
  PutSensorValue(out, static_cast<SensorLength>(text.size()));
  out.append(text);
}

}  // namespace

std::string PackSensor(const SensorFigures& sensor) {
  std::string bytes;
  for (const auto text : kSensorTexts) {
    PutSensorText(bytes, sensor.*text);
  }
  for (const auto number : kSensorNumbers) {
    PutSensorValue(bytes, sensor.*number);
  }
  return bytes;
}

bool UnpackSensor(std::string_view bytes, SensorFigures& sensor) {
  for (const auto text : kSensorTexts) {
    std::string_view taken;
    if (!TakeSensorText(bytes, taken)) {
      return false;
    }
    sensor.*text = taken;
  }
  for (const auto number : kSensorNumbers) {
    if (!TakeSensorValue(bytes, sensor.*number)) {
      return false;
    }
  }
  return bytes.empty();
}

std::string PackSensorWord(const SensorWord& word) {
  std::string text;
  PutSensorValue(text, static_cast<SensorLength>(word.bytes.size() + 1));
  text.push_back(word.kind);
  return text.append(word.bytes);
}

bool TakeSensorWord(std::string_view& text, SensorWord& word) {
  std::string_view rest = text;
  std::string_view taken;
  if (!TakeSensorText(rest, taken)) {
    return false;
  }
  word = taken.empty() ? SensorWord{} : SensorWord{taken.front(), taken.substr(1)};
  text = rest;
  return true;
}
