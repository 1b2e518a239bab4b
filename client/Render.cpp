#include "client/Render.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <utility>

#include "client/Errors.h"
#include "client/Table.h"

namespace {

constexpr std::size_t kMaxLabels = 4096;
constexpr int kDecimals = 3;
/// From here on a float has no decimals worth showing.
constexpr double kLargeFloat = 1e15;

std::string Dump(const Json& value, int indent) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string FixedText(double value, int decimals) {
  std::array<char, 64> text;
  const auto form =
      std::fabs(value) < kLargeFloat ? std::chars_format::fixed : std::chars_format::scientific;
  const auto end = std::to_chars(text.begin(), text.end(), value, form, decimals).ptr;
  return {text.data(), end};
}

/// Decimals of a value up to its last one that is not 0, of kDecimals at most.
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

/// The value of `label` in `row`, or null; `place` is where it stands as a rule.
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

std::string CsvQuoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string out = "\"";
  for (const char c : text) {
    out += c;
    if (c == '"') {
      out += c;
    }
  }
  return out + '"';
}

std::string CsvValue(const Json& value) {
  if (value.is_null()) {
    return "";
  }
  return value.is_string() ? CsvQuoted(value.get_ref<const std::string&>()) : Dump(value, -1);
}

const Field* FindField(const Schema& schema, const std::string& label) {
  const auto field = std::find_if(schema.fields.begin(), schema.fields.end(),
                                  [&](const Field& other) { return other.label == label; });
  return field == schema.fields.end() ? nullptr : &*field;
}

/// How the values of one label are shown.
struct ColumnStyle {
  std::string label;
  bool time = false;
  bool key = false;
  int decimals = 0;
};

std::vector<ColumnStyle> StylesOf(const ShownRecord& record) {
  std::vector<ColumnStyle> styles;
  for (std::string& label : LabelsOf(record.answer.rows)) {
    const Field* field = FindField(record.schema, label);
    const bool time = field != nullptr && field->meaning == "time";
    const bool key = field != nullptr && field->meaning == "key";
    styles.push_back({std::move(label), time, key, 0});
  }
  for (const Json& row : record.answer.rows) {
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
  return {Dump(value, -1), value.is_number()};
}

std::string DurationText(double seconds) {
  if (!(seconds >= 0 && seconds < kLargeFloat)) {
    return "?";
  }
  const auto whole = static_cast<std::uint64_t>(seconds);
  const auto two = [](std::uint64_t value) {
    std::string text = std::to_string(value);
    return text.size() < 2 ? text.insert(0, 1, '0') : text;
  };
  const std::uint64_t days = whole / 86400;
  return (days == 0 ? "" : std::to_string(days) + "d ") + two(whole / 3600 % 24) + ":" +
         two(whole / 60 % 60) + ":" + two(whole % 60);
}

std::string BatchText(const LastBatch& batch) {
  if (!batch.any) {
    return "none yet";
  }
  return FixedText(batch.ageSeconds, kDecimals) + " s ago, took " +
         FixedText(batch.durationSeconds, kDecimals) + " s, records " +
         std::to_string(batch.records) + ", errors " + std::to_string(batch.errors);
}

}  // namespace

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

std::string JsonText(std::vector<ShownRecord>& records, int indent) {
  Json array = Json::array();
  for (ShownRecord& shown : records) {
    RecordAnswer& answer = shown.answer;
    Json object{{"record", answer.record}, {"category", answer.category}, {"time", answer.time}};
    object["rows"] = std::move(answer.rows);
    array.push_back(std::move(object));
  }
  return Dump(array, indent) + '\n';
}

std::string CsvText(const Json& rows) {
  const std::vector<std::string> labels = LabelsOf(rows);
  std::string text;
  const auto separator = [&](std::size_t i) { return i + 1 < labels.size() ? ',' : '\n'; };
  for (std::size_t i = 0; i < labels.size(); ++i) {
    text += CsvQuoted(labels[i]) + separator(i);
  }
  for (const Json& row : rows) {
    for (std::size_t i = 0; i < labels.size(); ++i) {
      text += CsvValue(ValueOf(row, i, labels[i])) + separator(i);
    }
  }
  return text;
}

std::string RowsText(const ShownRecord& record, const Screen& screen) {
  const std::vector<ColumnStyle> styles = StylesOf(record);
  if (styles.empty()) {
    return "";
  }
  std::vector<std::string> headings;
  std::vector<bool> keys;
  for (const ColumnStyle& style : styles) {
    headings.push_back(SafeText(style.label));
    keys.push_back(style.key);
  }
  Table table(std::move(headings), std::move(keys));
  for (const Json& row : record.answer.rows) {
    std::vector<Cell> cells;
    cells.reserve(styles.size());
    for (std::size_t i = 0; i < styles.size(); ++i) {
      cells.push_back(CellOf(ValueOf(row, i, styles[i].label), styles[i]));
    }
    table.AddRow(std::move(cells));
  }
  return table.Text(screen);
}

std::string SchemaText(const Schema& schema, const Screen& screen) {
  Table table({"Offset", "Width", "Type", "Label", "Meaning"});
  for (const Field& field : schema.fields) {
    table.AddRow({{std::to_string(field.offset), true},
                  {std::to_string(field.width), true},
                  {SafeText(field.type)},
                  {SafeText(field.label)},
                  {SafeText(field.meaning)}});
  }
  const std::string title = SafeText(schema.record) + ": " + SafeText(schema.structure) +
                            ", category " + SafeText(schema.category) + ", " +
                            std::to_string(schema.size) + " bytes";
  return Emphasize(title, screen) + "\n\n" + table.Text(screen);
}

std::string ListingText(const std::vector<Listing>& records, const Screen& screen) {
  Table table({"Record", "Category", "Served"});
  for (const Listing& record : records) {
    table.AddRow(
        {{SafeText(record.record)}, {SafeText(record.category)}, {record.served ? "yes" : "no"}});
  }
  return table.Text(screen);
}

std::string StatusText(const Status& status, const Screen& screen) {
  const std::array<std::pair<const char*, std::string>, 7> lines{{
      {"Process", std::to_string(status.pid)},
      {"Version", SafeText(status.version)},
      {"Node", SafeText(status.node)},
      {"Host", SafeText(status.host)},
      {"Up time", DurationText(status.uptimeSeconds)},
      {"Kernel variant", status.kernelVariant.empty() ? "unknown" : status.kernelVariant},
      {"Last batch", BatchText(status.lastBatch)},
  }};
  std::string text;
  for (const auto& [label, value] : lines) {
    text += Emphasize(label, screen) + std::string(16 - std::string_view(label).size(), ' ') +
            value + '\n';
  }
  if (status.schedules.empty()) {
    return text + Emphasize("Schedules", screen) + "       none\n";
  }
  Table table({"Schedule", "Category", "Seconds", "Runs", "Rows", "Skipped", "Last Time"});
  for (const Schedule& schedule : status.schedules) {
    table.AddRow({{SafeText(schedule.record)},
                  {SafeText(schedule.category)},
                  {FixedText(schedule.seconds, DecimalsOf(schedule.seconds)), true},
                  {std::to_string(schedule.runs), true},
                  {std::to_string(schedule.rows), true},
                  {std::to_string(schedule.skipped), true},
                  {DateText(schedule.lastTime)}});
  }
  return text + '\n' + table.Text(screen);
}
