#include "client/show/RowValues.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
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

std::vector<ColumnStyle> StylesOfLabels(const std::vector<std::string>& labels,
                                        const Schema& schema) {
  std::vector<ColumnStyle> styles;
  for (const std::string& label : labels) {
    const Field* field = FieldOf(schema, label);
    const bool time = field != nullptr && IsTime(*field);
    const bool key = field != nullptr && field->meaning == "key";
    styles.push_back(
        {label, label, styles.size(), field == nullptr ? "" : field->group, time, key, 0});
  }
  return styles;
}

/// Whether one of the words between blanks and slashes is that one.
bool HasWord(std::string_view text, std::string_view word) {
  constexpr std::string_view kBetween = " /";
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of(kBetween, begin), text.size());
    if (text.substr(begin, end - begin) == word) {
      return true;
    }
    begin = end + 1;
  }
  return false;
}

std::vector<ColumnStyle> StylesOfShown(const Schema& schema) {
  std::vector<ColumnStyle> styles;
  for (const ShownColumn& column : schema.shown) {
    if (const Field* field = FieldOf(schema, column.label); field != nullptr) {
      const auto place = static_cast<std::size_t>(field - schema.fields.data());
      styles.push_back({column.label, column.heading, place, "", IsTime(*field),
                        field->meaning == "key", 0, HasWord(column.label, "Bytes")});
    }
  }
  return styles;
}

}  // namespace

std::string BytesText(double bytes) {
  constexpr std::array kUnits{"", "K", "M", "G", "T", "P", "E", "Z", "Y"};
  constexpr double kStep = 1024;
  double value = bytes;
  if (!(value >= 0 && value < std::pow(kStep, kUnits.size()) / 2)) {
    return "-";
  }
  std::size_t unit = 0;
  while (std::ceil(value) >= kStep) {
    value /= kStep;
    ++unit;
  }
  const double tenths = std::ceil(value * 10) / 10;
  const bool isShort = unit == 0 || tenths >= 10;
  return FixedText(isShort ? std::ceil(value) : tenths, isShort ? 0 : 1) + kUnits.at(unit);
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
  std::vector<ColumnStyle> styles =
      schema.shown.empty() ? StylesOfLabels(LabelsOf(rows), schema) : StylesOfShown(schema);
  RaiseDecimals(styles, rows);
  return styles;
}

void RaiseDecimals(std::vector<ColumnStyle>& styles, const Json& rows) {
  for (const Json& row : rows.Elements()) {
    for (ColumnStyle& style : styles) {
      const Json& value = ValueOf(row, style.place, style.label);
      if (value.IsReal()) {
        style.decimals = std::max(style.decimals, DecimalsOf(value.Number()));
      }
    }
  }
}

Cell CellOf(const Json& value, const ColumnStyle& style) {
  if (value.IsNull()) {
    return {"-", false};
  }
  if (value.IsString()) {
    return {SafeText(value.Text()), false};
  }
  if (style.bytes && value.IsNumber()) {
    return {BytesText(value.Number()), true};
  }
  if (value.IsWhole() && style.time && (!value.IsUnsigned() || value.Unsigned() <= INT64_MAX)) {
    return {DateText(value.Whole()), false};
  }
  if (value.IsReal()) {
    return {FixedText(value.Number(), style.decimals), true};
  }
  return {JsonText(value), value.IsNumber()};
}
