#include "client/view/DetailPage.h"

#include <algorithm>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Labels.h"
#include "client/show/Plot.h"
#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "client/view/RowLines.h"
#include "json/JsonText.h"
#include "json/RowCondition.h"
#include "json/RowText.h"

namespace {

constexpr std::int64_t kPlotSeconds = 3600;
constexpr std::size_t kPlotLines = 10;
/// Of a command line, before what else there is.
constexpr std::size_t kFirstLines = 3;
/// Columns of a label and its value, side by side where the screen has room for two.
constexpr std::size_t kPairWidth = 52;
constexpr std::size_t kPairLabelRoom = 30;

/// What is drawn first, where the record has it.
constexpr const char* kFirstFigures[] = {"CPU % Each",   "CPU %",         "In Use %",
                                         "Busy %",       "Bytes In/sec",  "Mbytes in Use %",
                                         "Memory Bytes", "Some Stalled %"};

std::string ValueText(const Json& value, const Field& field) {
  ColumnStyle style;
  style.time = IsTime(field);
  style.decimals = value.IsReal() ? DecimalsOf(value.Number()) : 0;
  return CellOf(value, style).text;
}

std::string PlainValue(const Json& value) {
  return value.IsNull() ? "-" : value.IsString() ? SafeText(value.Text()) : JsonText(value);
}

/// The text in lines of that width.
std::vector<std::string> Wrapped(const std::string& safe, std::size_t width) {
  std::vector<std::string> lines;
  for (std::string_view rest = safe; !rest.empty() && width > 0;) {
    std::string_view line = CutText(rest, width);
    if (line.empty()) {
      break;
    }
    lines.emplace_back(line);
    rest.remove_prefix(line.size());
  }
  return lines;
}

}  // namespace

DetailPage::DetailPage(std::string record, const SeenRows& seen, const Json& row)
    : m_record(std::move(record)), m_title(m_record), m_key(RowKey(row, *seen.schema)) {
  for (const Field& field : seen.schema->fields) {
    const Json* value = row.Find(field.label);
    if (field.meaning == "key" && value != nullptr && !value->IsNull()) {
      const std::string text = value->IsString() ? value->Text() : JsonText(*value);
      AddCondition(field.label + "=" + text);
      m_title += IsTime(field) ? "" : "  " + field.label + " " + SafeText(text);
    } else if (IsNumeric(field) && field.hasSource && !IsTime(field) && field.label != "Interval" &&
               field.meaning != "counter") {
      m_figures.push_back(field.label);
    }
  }
  for (const char* first : kFirstFigures) {
    const auto figure = std::find(m_figures.begin(), m_figures.end(), first);
    if (figure != m_figures.end()) {
      m_figure = static_cast<std::size_t>(figure - m_figures.begin());
      break;
    }
  }
  const Json* pid = row.Find("PID");
  if (pid != nullptr && pid->IsWhole()) {
    m_process = pid->Whole();
  }
}

void DetailPage::AddCondition(std::string condition) {
  // The daemon takes no more of either, and would refuse all that is asked with it.
  const auto stars = std::count(condition.begin(), condition.end(), '*');
  if (condition.size() <= RowCondition::kLongest &&
      static_cast<std::size_t>(stars) <= RowCondition::kMostStars) {
    m_where.push_back(std::move(condition));
  } else {
    m_isNamed = false;
  }
}

void DetailPage::AddTo(Wish& wish) const {
  if (m_alarm) {
    wish.alarm = m_alarm;
    return;
  }
  wish.records.push_back({m_record, {}, m_where});
  if (m_process) {
    for (const char* record : {"PDI", "PDX", "PD"}) {
      if (m_record != record) {
        wish.records.push_back({record, {}, m_where});
      }
    }
    wish.process = m_process;
  }
  // One of more rows than this would be no plot of it.
  if (m_isNamed && m_figure < m_figures.size()) {
    wish.plot = WantedPlot{m_record, m_figures[m_figure], m_where, kPlotSeconds};
  }
}

const Json* DetailPage::RowOf(const Sight& sight, const std::string& record) const {
  const auto seen = sight.records.find(record);
  if (seen == sight.records.end() || seen->second->schema == nullptr || seen->second->isFar) {
    return nullptr;
  }
  for (const Json& row : seen->second->rows.Elements()) {
    if (RowKey(row, *seen->second->schema) == m_key) {
      return &row;
    }
  }
  return nullptr;
}

void DetailPage::AddPairs(const std::vector<std::pair<std::string, std::string>>& pairs,
                          std::size_t width) {
  const std::size_t columns = width >= 2 * kPairWidth ? 2 : 1;
  const std::size_t lines = (pairs.size() + columns - 1) / columns;
  for (std::size_t i = 0; i < lines; ++i) {
    std::string text;
    for (std::size_t place = i; place < pairs.size(); place += lines) {
      const auto& [label, value] = pairs[place];
      const std::string shown =
          columns == 1 ? value : std::string(CutText(value, kPairWidth - kPairLabelRoom - 2));
      const std::size_t begin = place / lines * kPairWidth;
      text += std::string(begin > TextWidth(text) ? begin - TextWidth(text) : 0, ' ');
      text += "  " + label;
      text += std::string(kPairLabelRoom > label.size() ? kPairLabelRoom - label.size() : 1, ' ') +
              shown;
    }
    m_lines.push_back({text});
  }
}

void DetailPage::AddFields(const Json& row, const Schema& schema, std::size_t width) {
  std::vector<std::string> groups;
  for (const Field& field : schema.fields) {
    if (std::find(groups.begin(), groups.end(), field.group) == groups.end()) {
      groups.push_back(field.group);
    }
  }
  for (const std::string& group : groups) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const Field& field : schema.fields) {
      const Json* value = row.Find(field.label);
      const bool isLong = field.label == "Argument List" || field.label == "Command Line";
      if (field.group == group && value != nullptr && !isLong && field.label != "Record Type") {
        pairs.emplace_back(SafeText(field.label), ValueText(*value, field));
      }
    }
    if (!group.empty() && !pairs.empty()) {
      m_lines.push_back({SafeText(group), Tone::kTitle});
    }
    AddPairs(pairs, width);
  }
}

void DetailPage::AddRow(const std::string& record, const std::string& heading, const Sight& sight,
                        std::size_t width) {
  const Json* row = RowOf(sight, record);
  const auto seen = sight.records.find(record);
  if (row == nullptr) {
    if (record == m_record && seen != sight.records.end()) {
      m_lines.push_back({seen->second->error.empty() ? "There is no such row at this time."
                                                     : SafeText(seen->second->error),
                         Tone::kBad});
    }
    return;
  }
  m_lines.push_back({heading, Tone::kTitle});
  AddFields(*row, *seen->second->schema, width);
}

void DetailPage::AddCommandLine(const Sight& sight, std::size_t width, bool isWhole) {
  for (const auto& [record, label] :
       {std::pair("PDX", "Command Line"), std::pair("PDI", "Argument List")}) {
    const Json* row = RowOf(sight, record);
    const Json* words = row == nullptr ? nullptr : row->Find(label);
    if (words == nullptr || !words->IsString() || words->Text().empty()) {
      continue;
    }
    std::vector<std::string> lines =
        Wrapped(SafeText(words->Text()), width > 4 ? width - 2 : width);
    const bool isCut = !isWhole && lines.size() > kFirstLines;
    if (isWhole && lines.size() <= kFirstLines) {
      return;
    }
    m_lines.push_back({isWhole ? "Command line, whole" : "Command line", Tone::kTitle});
    lines.resize(isCut ? kFirstLines : lines.size());
    for (std::string& line : lines) {
      m_lines.push_back({"  " + std::move(line)});
    }
    if (isCut) {
      m_lines.push_back({"  ... (the whole of it is at the end of this page)", Tone::kDim});
    }
    return;
  }
}

void DetailPage::AddWorkgroup(const Sight& sight) {
  if (!sight.workgroups) {
    return;
  }
  const ReportTable& report = *sight.workgroups;
  m_lines.push_back({"Workgroup and rule", Tone::kTitle});
  for (const std::vector<std::string>& row : report.rows) {
    std::string text;
    for (std::size_t i = 0; i < row.size(); ++i) {
      text += "  " + SafeText(report.columns[i]) + " " + SafeText(row[i]);
    }
    m_lines.push_back({text});
  }
  for (const std::string& note : report.notes) {
    m_lines.push_back({"  " + SafeText(note), Tone::kDim});
  }
}

void DetailPage::AddPlot(const Sight& sight, std::size_t width, std::size_t height) {
  if (m_figure >= m_figures.size() || width < 20 || height < 10) {
    return;
  }
  m_lines.push_back({SafeText(m_figures[m_figure]) + ", kept, the hour before (< > another figure)",
                     Tone::kTitle});
  std::vector<PlotPoint> points;
  for (const auto& [time, value] : sight.plot) {
    points.push_back({time, value});
  }
  if (points.empty()) {
    m_lines.push_back({"  " + (sight.plotError.empty() ? "nothing is kept of it in this hour"
                                                       : SafeText(sight.plotError)),
                       Tone::kDim});
    return;
  }
  const std::string plot = PlotText(points, std::min<std::size_t>(width, 120), kPlotLines);
  for (std::string_view rest = plot; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    m_lines.push_back({std::string(rest.substr(0, end)), Tone::kGood});
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

void DetailPage::AddAlarm(const Sight& sight, std::size_t width) {
  if (!sight.alarm || sight.alarm->alarm.id != *m_alarm) {
    return;
  }
  const Alarm& alarm = sight.alarm->alarm;
  AddPairs({{"Alarm", SafeText(alarm.name)},
            {"Severity", SafeText(alarm.severity)},
            {"State", alarm.isActive ? "active" : "ended"},
            {"Since", DateText(alarm.since)},
            {"Until", alarm.until ? DateText(*alarm.until) : "-"}},
           0);
  for (const std::string& line : Wrapped(SafeText(alarm.text), width > 4 ? width - 2 : width)) {
    m_lines.push_back({"  " + line, Tone::kBold});
  }
  for (const Json* values : {&alarm.key, &alarm.values}) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const JsonMember& member : values->Members()) {
      pairs.emplace_back(SafeText(member.name), PlainValue(member.value));
    }
    AddPairs(pairs, 0);
  }
  for (const RecordAnswer& captured : sight.alarm->rows) {
    m_lines.push_back({SafeText(captured.record) + ", kept with it", Tone::kTitle});
    Screen screen;
    screen.width = width;
    const std::string text = RowsText({captured, {}}, screen);
    for (std::string_view rest = text; !rest.empty();) {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      m_lines.push_back({std::string(rest.substr(0, end))});
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
  }
}

bool DetailPage::Take(const Key& key, const Area& area, bool& isWished) {
  const std::size_t page = std::max<std::size_t>(area.height, 3) - 2;
  const std::size_t last = m_lines.size() + 1 > area.height ? m_lines.size() + 1 - area.height : 0;
  switch (key.code) {
    case KeyCode::kUp:
    case KeyCode::kWheelUp:
      m_top -= m_top > 0 ? 1 : 0;
      return true;
    case KeyCode::kDown:
    case KeyCode::kWheelDown:
      m_top = std::min(m_top + 1, last);
      return true;
    case KeyCode::kPageUp:
      m_top -= std::min(m_top, page);
      return true;
    case KeyCode::kPageDown:
      m_top = std::min(m_top + page, last);
      return true;
    case KeyCode::kHome:
      m_top = 0;
      return true;
    case KeyCode::kEnd:
      m_top = last;
      return true;
    default:
      break;
  }
  if ((key.Is('<') || key.Is('>')) && !m_figures.empty()) {
    const std::size_t count = m_figures.size();
    m_figure = (m_figure + (key.Is('<') ? count - 1 : 1)) % count;
    isWished = true;
    return true;
  }
  return false;
}

void DetailPage::Draw(Canvas& canvas, const Area& area, const Sight& sight) {
  if (area.height == 0) {
    return;
  }
  m_lines.clear();
  if (m_alarm) {
    m_title = "Alarm " + std::to_string(*m_alarm);
    AddAlarm(sight, canvas.Width());
  } else {
    AddCommandLine(sight, canvas.Width(), false);
    AddPlot(sight, canvas.Width(), area.height);
    AddWorkgroup(sight);
    AddRow(m_record, m_record, sight, canvas.Width());
    if (m_process) {
      for (const char* record : {"PDI", "PDX", "PD"}) {
        if (m_record != record) {
          AddRow(record, record, sight, canvas.Width());
        }
      }
      AddCommandLine(sight, canvas.Width(), true);
    }
  }
  canvas.Put(area.line, 0, m_title + "   (Esc closes)", Tone::kBold);
  m_top = std::min(m_top, m_lines.empty() ? 0 : m_lines.size() - 1);
  for (std::size_t i = 0; i + 1 < area.height && m_top + i < m_lines.size(); ++i) {
    canvas.Put(area.line + 1 + i, 0, m_lines[m_top + i].text, m_lines[m_top + i].tone);
  }
}
