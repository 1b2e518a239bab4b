#include "client/show/RowValues.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/show/Labels.h"
#include "client/show/Terminal.h"

namespace {

constexpr std::size_t kMaxLabels = 4096;

const Field* FieldOf(const Schema& schema, const std::string& label) {
  const auto field = std::find_if(schema.fields.begin(), schema.fields.end(),
                                  [&](const Field& other) { return other.label == label; });
  return field == schema.fields.end() ? nullptr : &*field;
}

}  // namespace

std::string FixedText(double value, int decimals) {
  std::array<char, 64> text;
  const auto form =
      std::fabs(value) < kLargeFloat ? std::chars_format::fixed : std::chars_format::scientific;
  const auto end = std::to_chars(text.begin(), text.end(), value, form, decimals).ptr;
  return {text.data(), end};
}

int DecimalsOf(double value) {
  if (!(std::fabs(value) < kLargeFloat)) {
    return 0;
  }
  const std::string text = FixedText(value, kDecimals);
  const std::size_t last = text.find_last_not_of('0');
  return static_cast<int>(last - text.find('.'));
}

std::vector<std::string> LabelsOf(const Json& rows) {
  std::vector<std::string> labels;
  for (const Json& row : rows) {
    std::size_t place = 0;
    for (const auto& [label, value] : row.items()) {
      // Rows of one record have the same labels in the same order, as a rule.
      const bool expected = place < labels.size() && labels[place] == label;
      if (!expected && std::find(labels.begin(), labels.end(), label) == labels.end()) {
        labels.push_back(label);
      }
      if (labels.size() > kMaxLabels) {
        throw ClientError("broken answer: too many labels in the rows of one record");
      }
      ++place;
    }
  }
  return labels;
}

const Json& ValueOf(const Json& row, std::size_t place, const std::string& label) {
  static const Json kNull;
  const auto& members = row.get_ref<const Json::object_t&>();
  const auto expected = members.begin() + static_cast<std::ptrdiff_t>(place);
  if (place < members.size() && expected->first == label) {
    return expected->second;
  }
  const auto member = row.find(label);
  return member == row.end() ? kNull : *member;
}

std::vector<ColumnStyle> StylesOf(const Json& rows, const Schema& schema) {
  std::vector<ColumnStyle> styles;
  for (std::string& label : LabelsOf(rows)) {
    const Field* field = FieldOf(schema, label);
    const bool time = field != nullptr && IsTime(*field);
    const bool key = field != nullptr && field->meaning == "key";
    styles.push_back(
        {std::move(label), field == nullptr ? std::string() : field->group, time, key, 0});
  }
  for (const Json& row : rows) {
    for (std::size_t i = 0; i < styles.size(); ++i) {
      const Json& value = ValueOf(row, i, styles[i].label);
      if (value.is_number_float()) {
        styles[i].decimals = std::max(styles[i].decimals, DecimalsOf(value.get<double>()));
      }
    }
  }
  return styles;
}

Cell CellOf(const Json& value, const ColumnStyle& style) {
  if (value.is_null()) {
    return {"-", false};
  }
  if (value.is_string()) {
    return {SafeText(value.get_ref<const std::string&>()), false};
  }
  if (value.is_number_integer() && style.time &&
      (!value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX)) {
    return {DateText(value.get<std::int64_t>()), false};
  }
  if (value.is_number_float()) {
    return {FixedText(value.get<double>(), style.decimals), true};
  }
  return {value.dump(), value.is_number()};
}

std::string DateText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  std::array<char, 64> text;
  if (seconds == 0) {
    return "-";
  }
  if (::localtime_r(&time, &parts) == nullptr) {
    return std::to_string(seconds);
  }
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}
