#include "node/local/RecordJson.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>

namespace {

using Bytes = std::span<const unsigned char>;

/// Nothing if the bytes are not exactly one T.
template <class T>
std::optional<T> Read(Bytes bytes) {
  if (bytes.size() != sizeof(T)) {
    return std::nullopt;
  }
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

template <class T>
Json WholeNumber(Bytes bytes) {
  const std::optional<T> value = Read<T>(bytes);
  return value ? Json(*value) : Json(nullptr);
}

/// The double that is written with the digits of the float itself: 0.1f becomes 0.1, not
/// 0.10000000149011612.
double WithOwnDigits(float value) {
  std::array<char, 64> text{};
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value);
  double result = 0;
  std::from_chars(text.data(), written.ptr, result);
  return result;
}

Json FloatValue(Bytes bytes) {
  const std::optional<float> value = Read<float>(bytes);
  return value && std::isfinite(*value) ? Json(WithOwnDigits(*value)) : Json(nullptr);
}

Json DoubleValue(Bytes bytes) {
  const std::optional<double> value = Read<double>(bytes);
  return value && std::isfinite(*value) ? Json(*value) : Json(nullptr);
}

Json TimeValue(Bytes bytes) {
  struct Words {
    std::int32_t seconds;
    std::int32_t microseconds;
  };
  const std::optional<Words> value = Read<Words>(bytes);
  if (!value) {
    return nullptr;
  }
  // One rounding: the nearest double to the decimal value, which is written with its digits.
  constexpr std::int64_t kPerSecond = 1'000'000;
  return static_cast<double>(value->seconds * kPerSecond + value->microseconds) /
         static_cast<double>(kPerSecond);
}

Json TextValue(Bytes bytes) {
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  return std::string(text, ::strnlen(text, bytes.size()));
}

Json FieldValue(FieldType type, Bytes bytes) {
  switch (type) {
    case FieldType::kText:
      return TextValue(bytes);
    case FieldType::kUshort:
      return WholeNumber<std::uint16_t>(bytes);
    case FieldType::kLong:
      return WholeNumber<std::int32_t>(bytes);
    case FieldType::kUlong:
      return WholeNumber<std::uint32_t>(bytes);
    case FieldType::kFloat:
      return FloatValue(bytes);
    case FieldType::kDouble:
      return DoubleValue(bytes);
    case FieldType::kUtime:
      return TimeValue(bytes);
  }
  return nullptr;
}

}  // namespace

Json RowToJson(const RecordLayout& layout, Bytes bytes) {
  Json row = Json::object();
  auto& members = row.get_ref<Json::object_t&>();
  members.reserve(layout.fields.size());
  for (const FieldLayout& field : layout.fields) {
    const bool isInside = std::size_t{field.offset} + field.width <= bytes.size();
    // Each label is new, so the search that the object's own insertion makes is left out.
    members.emplace_back(field.label,
                         isInside ? FieldValue(field.type, bytes.subspan(field.offset, field.width))
                                  : Json(nullptr));
  }
  return row;
}

Bytes RecordBytes(const CMBRecord& record) {
  const auto* start = static_cast<const unsigned char*>(record.GetRecStart());
  const int size = record.GetRecSize();
  return start == nullptr || size < 0 ? Bytes{} : Bytes{start, static_cast<std::size_t>(size)};
}

std::string JsonText(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string FieldTypeText(const FieldLayout& field) {
  std::string text = FieldTypeName(field.type);
  if (field.type == FieldType::kText) {
    text += "[" + std::to_string(field.width) + "]";
  }
  return text;
}
