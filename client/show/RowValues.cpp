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
#include "json/JsonText.h"

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
  for (const Json& row : rows.Elements()) {
    std::size_t place = 0;
    for (const auto& [label, value] : row.Members()) {
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
  const auto& members = row.Members();
  const auto expected = members.begin() + static_cast<std::ptrdiff_t>(place);
  if (place < members.size() && expected->name == label) {
    return expected->value;
  }
  const Json* member = row.Find(label);
  return member == nullptr ? kNull : *member;
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
  for (const Json& row : rows.Elements()) {
    for (std::size_t i = 0; i < styles.size(); ++i) {
      const Json& value = ValueOf(row, i, styles[i].label);
      if (value.IsReal()) {
        styles[i].decimals = std::max(styles[i].decimals, DecimalsOf(value.Number()));
      }
    }
  }
  return styles;
}

Cell CellOf(const Json& value, const ColumnStyle& style) {
  if (value.IsNull()) {
    return {"-", false};
  }
  if (value.IsString()) {
    return {SafeText(value.Text()), false};
  }
  if (value.IsWhole() && style.time && (!value.IsUnsigned() || value.Unsigned() <= INT64_MAX)) {
    return {DateText(value.Whole()), false};
  }
  if (value.IsReal()) {
    return {FixedText(value.Number(), style.decimals), true};
  }
  return {JsonText(value), value.IsNumber()};
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
