#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "node/LayoutRegistry.h"
#include "node/Record.h"

/// The bytes of a record's structure; owned by the record.
[[nodiscard]] std::span<const unsigned char> RecordBytes(const CMBRecord& record);

/// The type of a field as a client sees it: "ulong", "utime", "char[40]".
[[nodiscard]] std::string FieldTypeText(const FieldLayout& field);

/// The value of one field of a row, by its layout. Calls `visit` with one of
/// - std::string_view: a text, up to its first zero byte; bytes of `row`
/// - std::int64_t: a whole number
/// - double: a finite number; a float with the digits of its own precision, a utime as seconds
/// - std::nullptr_t: a number that is not finite, a field outside `row` or of a wrong width
template <class Visitor>
decltype(auto) VisitField(const FieldLayout& field, std::span<const unsigned char> row,
                          Visitor&& visit);

/// The double that is written with the digits of the float itself: 0.1f becomes 0.1, not
/// 0.10000000149011612.
[[nodiscard]] double WithOwnDigits(float value);

namespace field_value {

template <class T>
[[nodiscard]] T Load(const unsigned char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

/// Bytes of a number's type; 0 for texts.
[[nodiscard]] std::size_t WidthOf(FieldType type);
[[nodiscard]] bool IsFinite(double value);
/// One rounding: the nearest double to the decimal value, which is written with its digits.
[[nodiscard]] double Seconds(const unsigned char* words);

}  // namespace field_value

template <class Visitor>
decltype(auto) VisitField(const FieldLayout& field, std::span<const unsigned char> row,
                          Visitor&& visit) {
  using field_value::Load;
  const std::size_t width = field_value::WidthOf(field.type);
  if (std::size_t{field.offset} + field.width > row.size() ||
      (width != 0 && width != field.width)) {
    return visit(nullptr);
  }
  const unsigned char* bytes = row.data() + field.offset;
  const auto number = [&](double value) -> decltype(auto) {
    return field_value::IsFinite(value) ? visit(value) : visit(nullptr);
  };
  switch (field.type) {
    case FieldType::kUshort:
      return visit(std::int64_t{Load<std::uint16_t>(bytes)});
    case FieldType::kLong:
      return visit(std::int64_t{Load<std::int32_t>(bytes)});
    case FieldType::kUlong:
      return visit(std::int64_t{Load<std::uint32_t>(bytes)});
    case FieldType::kFloat:
      return number(WithOwnDigits(Load<float>(bytes)));
    case FieldType::kDouble:
      return number(Load<double>(bytes));
    case FieldType::kUtime:
      return number(field_value::Seconds(bytes));
    case FieldType::kText:
      break;
  }
  const auto* text = reinterpret_cast<const char*>(bytes);
  return visit(std::string_view(text, ::strnlen(text, field.width)));
}
