#include "local/history/FieldValue.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

double WithOwnDigits(float value) {
  if (!std::isfinite(value)) {
    return value;
  }
  std::array<char, 64> text{};
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value);
  double result = 0;
  std::from_chars(text.data(), written.ptr, result);
  return result;
}

std::span<const unsigned char> RecordBytes(const CMBRecord& record) {
  const auto* start = static_cast<const unsigned char*>(record.GetRecStart());
  const int size = record.GetRecSize();
  return start == nullptr || size < 0 ? std::span<const unsigned char>{}
                                      : std::span{start, static_cast<std::size_t>(size)};
}

std::string FieldTypeText(const FieldLayout& field) {
  std::string text = FieldTypeName(field.type);
  if (field.type == FieldType::kText) {
    text += "[" + std::to_string(field.width) + "]";
  }
  return text;
}

namespace field_value {

std::size_t WidthOf(FieldType type) {
  static constexpr std::array<std::size_t, 7> kWidths{0, 2, 4, 4, 4, 8, 8};
  return kWidths.at(static_cast<std::size_t>(type));
}

bool IsFinite(double value) { return std::isfinite(value); }

double Seconds(const unsigned char* words) {
  constexpr std::int64_t kPerSecond = 1'000'000;
  const auto seconds = Load<std::int32_t>(words);
  const auto microseconds = Load<std::int32_t>(words + sizeof seconds);
  return static_cast<double>(seconds * kPerSecond + microseconds) / static_cast<double>(kPerSecond);
}

}  // namespace field_value
