#include "client/show/Render.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/show/FileSystemText.h"
#include "client/show/GroupedText.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"
#include "json/JsonText.h"

namespace {

std::string CsvQuoted(const std::string& given, bool isForTerminal) {
  const std::string text = isForTerminal ? SafeText(given) : given;
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

std::string CsvValue(const Json& value, bool isForTerminal) {
  if (value.IsNull()) {
    return "";
  }
  return value.IsString() ? CsvQuoted(value.Text(), isForTerminal) : JsonText(value);
}

/// Throws ClientError for a label of `found` that is none of `known`.
void NeedKnown(const std::vector<std::string>& found, const std::vector<std::string>& known) {
  if (!std::ranges::all_of(found, [&](const std::string& label) {
        return std::ranges::find(known, label) != known.end();
      })) {
    throw ClientError("broken answer: rows of one record with different labels");
  }
}

Table TableOf(const std::vector<ColumnStyle>& styles) {
  std::vector<std::string> headings;
  std::vector<bool> keys;
  for (const ColumnStyle& style : styles) {
    headings.push_back(SafeText(style.heading));
    keys.push_back(style.key);
  }
  return Table(std::move(headings), std::move(keys));
}

std::string BatchText(const LastBatch& batch) {
  if (!batch.any) {
    return "none yet";
  }
  return FixedText(batch.ageSeconds, kDecimals) + " s ago, took " +
         FixedText(batch.durationSeconds, kDecimals) + " s, records " +
         std::to_string(batch.records) + ", errors " + std::to_string(batch.errors);
}

/// The pages of the metrics, of addresses with ", " between them.
std::string MetricsText(std::string_view addresses) {
  std::string text;
  while (!addresses.empty()) {
    const std::size_t end = std::min(addresses.find(", "), addresses.size());
    const std::string address = SafeText(std::string(addresses.substr(0, end)));
    addresses.remove_prefix(std::min(end + 2, addresses.size()));
    text += text.empty() ? "" : ", ";
    text += (address.find("://") == std::string::npos ? "http://" : "") + address + "/metrics";
  }
  return text.empty() ? "none" : text;
}

/// Where processes are read from, and why.
std::string ProcessSourceText(const Status& status) {
  if (status.processSource.empty()) {
    return "unknown";
  }
  const std::string reason = SafeText(status.processSourceReason);
  return SafeText(status.processSource) + (reason.empty() ? "" : ": " + reason);
}

}  // namespace

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

std::string CsvText(const Json& rows, bool isForTerminal) {
  return CsvRows().Text(rows, isForTerminal);
}

std::string CsvRows::Text(const Json& rows, bool isForTerminal) {
  if (rows.Elements().empty()) {
    return "";
  }
  std::vector<std::string> found = LabelsOf(rows);
  std::string text;
  const auto separator = [&](std::size_t i) { return i + 1 < m_labels->size() ? ',' : '\n'; };
  if (!m_labels) {
    m_labels = std::move(found);
    for (std::size_t i = 0; i < m_labels->size(); ++i) {
      text += CsvQuoted((*m_labels)[i], isForTerminal) + separator(i);
    }
  } else {
    NeedKnown(found, *m_labels);
  }
  for (const Json& row : rows.Elements()) {
    for (std::size_t i = 0; i < m_labels->size(); ++i) {
      text += CsvValue(ValueOf(row, i, (*m_labels)[i]), isForTerminal) + separator(i);
    }
  }
  return text;
}

std::string RowsText(const ShownRecord& record, const Screen& screen) {
  return RowsTable().Text(record, screen);
}

std::string RowsTable::Text(const ShownRecord& record, const Screen& screen) {
  const Json& rows = record.answer.rows;
  const std::string between = std::exchange(m_isBegun, true) ? "\n" : "";
  if (AreFileSystems(record.answer)) {
    return between + FileSystemText(record.answer, screen);
  }
  if (m_styles.empty()) {
    m_styles = StylesOf(rows, record.schema);
  } else {
    RaiseDecimals(m_styles, rows);
  }
  if (m_styles.empty() || rows.Elements().empty()) {
    return "";
  }
  if (HasGroups(m_styles)) {
    return between + GroupedText(rows, m_styles, screen);
  }
  if (!m_table) {
    m_table = TableOf(m_styles);
  }
  for (const Json& row : rows.Elements()) {
    std::vector<Cell> cells;
    cells.reserve(m_styles.size());
    for (const ColumnStyle& style : m_styles) {
      cells.push_back(CellOf(ValueOf(row, style.place, style.label), style));
    }
    m_table->AddRow(std::move(cells));
  }
  return m_table->TakeText(screen);
}

std::string SchemaText(const Schema& schema, const Screen& screen) {
  constexpr std::size_t kLabelColumn = 3;
  const bool hasGroups = std::any_of(schema.fields.begin(), schema.fields.end(),
                                     [](const Field& field) { return !field.group.empty(); });
  std::vector<std::string> headings{"Offset", "Width", "Type", "Label", "Meaning"};
  if (hasGroups) {
    headings.emplace_back("Group");
  }
  const bool hasHelp = std::any_of(schema.fields.begin(), schema.fields.end(),
                                   [](const Field& field) { return !field.help.empty(); });
  if (hasHelp) {
    headings.emplace_back("What it is");
  }
  // On a narrow screen the sentences stand in a block of their own, beside the labels again.
  std::vector<bool> repeated(headings.size());
  repeated[kLabelColumn] = hasHelp;
  Table table(std::move(headings), std::move(repeated));
  for (const Field& field : schema.fields) {
    std::vector<Cell> cells{{std::to_string(field.offset), true},
                            {std::to_string(field.width), true},
                            {SafeText(field.type)},
                            {SafeText(field.label)},
                            {SafeText(field.meaning)}};
    if (hasGroups) {
      cells.push_back({SafeText(field.group)});
    }
    if (hasHelp) {
      cells.push_back({SafeText(field.help + (field.hasSource ? "" : " (no source)"))});
    }
    table.AddRow(std::move(cells));
  }
  const std::string title = SafeText(schema.record) + ": " + SafeText(schema.structure) +
                            ", category " + SafeText(schema.category) + ", " +
                            std::to_string(schema.size) + " bytes";
  const std::string about = schema.about.empty() ? "" : SafeText(schema.about) + '\n';
  return Emphasize(title, screen) + '\n' + about + '\n' + table.Text(screen);
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
  const std::array<std::pair<const char*, std::string>, 11> lines{{
      {"Process", std::to_string(status.pid)},
      {"Version", SafeText(status.version)},
      {"Node", SafeText(status.node)},
      {"Host", SafeText(status.host)},
      {"Metrics", MetricsText(status.http)},
      {"Up time", DurationText(status.uptimeSeconds)},
      {"Host profile", status.hostProfile.empty() ? "unknown" : SafeText(status.hostProfile)},
      {"Process source", ProcessSourceText(status)},
      {"Kernel variant", status.kernelVariant.empty() ? "unknown" : status.kernelVariant},
      {"Skipped",
       status.skippedProcesses.empty() ? "unknown" : status.skippedProcesses + " processes"},
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
  return text + '\n' + ScheduleText(status.schedules, screen);
}

std::string ScheduleText(const std::vector<Schedule>& schedules, const Screen& screen) {
  Table table({"Schedule", "Category", "Seconds", "Runs", "Rows", "Skipped", "Last Time"});
  for (const Schedule& schedule : schedules) {
    table.AddRow({{SafeText(schedule.record)},
                  {SafeText(schedule.category)},
                  {FixedText(schedule.seconds, DecimalsOf(schedule.seconds)), true},
                  {std::to_string(schedule.runs), true},
                  {std::to_string(schedule.rows), true},
                  {std::to_string(schedule.skipped), true},
                  {DateText(schedule.lastTime)}});
  }
  return table.Text(screen);
}
