#include "client/show/AlarmText.h"

#include <algorithm>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"

namespace {

std::string PlainText(const Json& value) {
  ColumnStyle style;
  style.decimals = value.IsReal() ? DecimalsOf(value.Number()) : 0;
  return CellOf(value, style).text;
}

/// "Mount Point=/home, Device=sda1"; "-" for a record of one row.
std::string KeyText(const Json& key) {
  std::string text;
  for (const JsonMember& member : key.Members()) {
    text += (text.empty() ? "" : ", ") + SafeText(member.name) + '=' + PlainText(member.value);
  }
  return text.empty() ? "-" : text;
}

std::string UntilText(const Alarm& alarm) {
  return alarm.isActive ? "active" : DateText(alarm.until.value_or(0));
}

}  // namespace

std::string AlarmsText(const std::vector<Alarm>& alarms, const Screen& screen) {
  if (alarms.empty()) {
    return "";
  }
  Table table({"ID", "Since", "Until", "Severity", "Alarm", "Key", "Text"}, {true});
  for (const Alarm& alarm : alarms) {
    table.AddRow({{std::to_string(alarm.id), true},
                  {DateText(alarm.since)},
                  {UntilText(alarm)},
                  {SafeText(alarm.severity)},
                  {SafeText(alarm.name)},
                  {KeyText(alarm.key)},
                  {SafeText(alarm.text)}});
  }
  return table.Text(screen);
}

std::string AlarmText(const Alarm& alarm, const Screen& screen) {
  constexpr std::size_t kLabelGap = 2;
  std::vector<std::pair<std::string, std::string>> lines{
      {"Alarm", SafeText(alarm.name)},    {"Severity", SafeText(alarm.severity)},
      {"Since", DateText(alarm.since)},   {"Until", UntilText(alarm)},
      {"Record", SafeText(alarm.record)}, {"Key", KeyText(alarm.key)},
      {"Text", SafeText(alarm.text)}};
  for (const JsonMember& member : alarm.values.Members()) {
    lines.emplace_back(SafeText(member.name), PlainText(member.value));
  }
  std::size_t width = 0;
  for (const auto& line : lines) {
    width = std::max(width, TextWidth(line.first));
  }
  std::string text;
  for (const auto& [label, value] : lines) {
    text += Emphasize(label, screen) + std::string(width - TextWidth(label) + kLabelGap, ' ') +
            value + '\n';
  }
  return text;
}
