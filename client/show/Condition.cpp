#include "client/show/Condition.h"

#include <fnmatch.h>

#include <array>
#include <charconv>
#include <ctime>
#include <optional>
#include <utility>

#include "client/ask/Errors.h"
#include "client/show/Labels.h"
#include "client/show/RowValues.h"

namespace {

std::optional<double> ParseNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size() ? std::optional(number)
                                                                  : std::nullopt;
}

/// Seconds since the epoch of "2023-11-14 23:13:20" or "2023-11-14" in local time, or of "-".
std::optional<double> DateOfCell(const std::string& text) {
  if (text == "-") {
    return 0;
  }
  for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d"}) {
    std::tm parts{};
    const char* end = ::strptime(text.c_str(), format, &parts);
    if (end != nullptr && *end == '\0') {
      parts.tm_isdst = -1;
      return static_cast<double>(std::mktime(&parts));
    }
  }
  return std::nullopt;
}

/// The value as the table shows it.
std::string ShownText(const Json& value, const std::string& label, bool isTime) {
  if (value.IsString()) {
    return value.Text();
  }
  const int decimals = value.IsReal() ? DecimalsOf(value.Number()) : 0;
  return CellOf(value, {label, label, 0, "", isTime, false, decimals}).text;
}

}  // namespace

bool IsNumeric(const Field& field) { return !field.type.starts_with("char["); }

Condition::Condition(std::string_view text, const Schema& schema) {
  using enum Operator;
  // A longer operator stands before its own beginning.
  static constexpr std::array<std::pair<std::string_view, Operator>, 7> kOperators{
      {{"!=", kNotEqual},
       {"<=", kLessEqual},
       {">=", kGreaterEqual},
       {"=", kEqual},
       {"<", kLess},
       {">", kGreater},
       {"~", kLike}}};
  std::size_t place = 0;
  const std::pair<std::string_view, Operator>* found = nullptr;
  for (; place < text.size() && found == nullptr; ++place) {
    for (const auto& entry : kOperators) {
      if (text.substr(place).starts_with(entry.first)) {
        found = &entry;
        break;
      }
    }
  }
  if (found == nullptr) {
    throw UsageError("\"" + std::string(text) +
                     "\" compares nothing: write LABEL=VALUE, or != < <= > >= ~ for the =");
  }
  const Field& field = NeedField(schema, Trimmed(text.substr(0, --place)));
  m_label = field.label;
  m_place = static_cast<std::size_t>(&field - schema.fields.data());
  m_operator = found->second;
  m_text = Trimmed(text.substr(place + found->first.size()));
  m_isTime = IsTime(field);
  m_isNumber = IsNumeric(field) && m_operator != kLike;
  if (!m_isNumber) {
    return;
  }
  std::optional<double> number = ParseNumber(m_text);
  if (!number && m_isTime) {
    number = DateOfCell(m_text);
  }
  if (!number) {
    throw UsageError("\"" + m_label + "\" is compared with a " +
                     (m_isTime ? "time as in 2023-11-14 23:13:20" : "number") + ", not with \"" +
                     m_text + "\"");
  }
  m_number = *number;
}

template <class Value>
bool Condition::Compare(const Value& left, const Value& right) const {
  switch (m_operator) {
    case Operator::kEqual:
      return left == right;
    case Operator::kNotEqual:
      return left != right;
    case Operator::kLess:
      return left < right;
    case Operator::kLessEqual:
      return left <= right;
    case Operator::kGreater:
      return left > right;
    case Operator::kGreaterEqual:
      return left >= right;
    case Operator::kLike:
      break;
  }
  return false;
}

bool Condition::Holds(const Json& row) const {
  const Json& value = ValueOf(row, m_place, m_label);
  if (value.IsNull()) {
    return m_operator == Operator::kNotEqual;
  }
  if (m_isNumber && value.IsNumber()) {
    return Compare(value.Number(), m_number);
  }
  const std::string text = ShownText(value, m_label, m_isTime);
  if (m_operator == Operator::kLike) {
    return ::fnmatch(m_text.c_str(), text.c_str(), 0) == 0;
  }
  return Compare(text, m_text);
}
