#include "client/report/FigureText.h"

#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "json/RowText.h"

namespace {

constexpr int kPercentDecimals = 1;
constexpr int kNumberDecimals = 2;
constexpr double kMinute = 60;

}  // namespace

std::string FigureText(double value, std::string_view unit) {
  if (unit == "percent") {
    return FixedText(value, kPercentDecimals) + " %";
  }
  if (unit == "bytes") {
    return BytesText(value);
  }
  if (unit == "bytes/s") {
    return BytesText(value) + "/s";
  }
  if (unit == "/s") {
    return FixedText(value, kNumberDecimals) + "/s";
  }
  if (unit == "duration") {
    return value < kMinute ? FixedText(value, kNumberDecimals) + " s" : DurationText(value);
  }
  return FixedText(value, kNumberDecimals);
}

SummaryCell FigureCell(const std::optional<double>& value, std::string_view unit) {
  return {value ? FigureText(*value, unit) : "-", true};
}

SummaryCell TimeCell(std::int64_t time) { return {DateText(time), false}; }
