#include "json/RowCondition.h"

#include <fnmatch.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <utility>

#include "json/JsonText.h"
#include "json/RowText.h"

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
      const auto seconds = SecondsOfDate(parts);
      return seconds ? std::optional(static_cast<double>(*seconds)) : std::nullopt;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string ShownValue(const Json& value, bool isTime) {
  if (value.IsString()) {
    return value.Text();
  }
  if (value.IsReal()) {
    return FixedText(value.Number(), DecimalsOf(value.Number()));
  }
  if (isTime && value.IsWhole() && (!value.IsUnsigned() || value.Unsigned() <= INT64_MAX)) {
    return DateText(value.Whole());
  }
  return JsonText(value);
}

RowCondition::RowCondition(std::string_view text, const FieldFinder& find) {
  using enum Operator;
  // A longer operator stands before its own beginning.
  static constexpr std::array<std::pair<std::string_view, Operator>, 8> kOperators{
      {{"!=", kNotEqual},
       {"!~", kUnlike},
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
    throw std::invalid_argument("\"" + std::string(text) +
                                "\" compares nothing: write LABEL=VALUE, or != < <= > >= ~ !~ for "
                                "the =");
  }
  m_field = find(Trimmed(text.substr(0, --place)));
  m_operator = found->second;
  m_sign = found->first;
  m_text = Trimmed(text.substr(place + found->first.size()));
  m_isNumber = m_field.isNumeric && m_operator != kLike && m_operator != kUnlike;
  if (m_isNumber) {
    ReadNumber();
  }
}

void RowCondition::ReadNumber() {
  std::optional<double> number = ParseNumber(m_text);
  if (!number && m_field.isTime) {
    number = DateOfCell(m_text);
  }
  if (!number) {
    throw std::invalid_argument("\"" + m_field.label + "\" is compared with a " +
                                (m_field.isTime ? "time as in 2023-11-14 23:13:20" : "number") +
                                ", not with \"" + m_text + "\"");
  }
  m_number = *number;
}

template <class Value>
bool RowCondition::Compare(const Value& left, const Value& right) const {
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
    case Operator::kUnlike:
      break;
  }
  return false;
}

bool RowCondition::HoldsText(const std::string& text) const {
  if (m_operator != Operator::kLike && m_operator != Operator::kUnlike) {
    return Compare(text, m_text);
  }
  const bool isLike = ::fnmatch(m_text.c_str(), text.c_str(), 0) == 0;
  return isLike == (m_operator == Operator::kLike);
}

bool RowCondition::Holds(const Json& value) const {
  if (value.IsNull()) {
    return m_operator == Operator::kNotEqual || m_operator == Operator::kUnlike;
  }
  if (m_isNumber && value.IsNumber()) {
    return Compare(value.Number(), m_number);
  }
  return value.IsString() ? HoldsText(value.Text()) : HoldsText(ShownValue(value, m_field.isTime));
}
