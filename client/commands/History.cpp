#include "client/commands/History.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/commands/Schedules.h"
#include "client/looks/RecordNames.h"
#include "client/show/Labels.h"
#include "client/show/Plot.h"
#include "client/show/RecordWriters.h"
#include "client/show/RowValues.h"
#include "client/show/TimeText.h"
#include "json/JsonText.h"

namespace {

constexpr const char* kTimeLabel = "Record Time";
constexpr std::size_t kPlotColumns = 78;
constexpr std::size_t kPlotLines = 18;

Json MakeRequest(const RecordName& name, const HistoryOptions& options) {
  Json request{{"op", "history"}, {"record", name.name}};
  if (!name.category.empty()) {
    request["category"] = name.category;
  }
  AddSpan(request, options.since, options.until);
  if (!options.at.empty()) {
    request["at"] = ParseTime(options.at, std::time(nullptr));
  }
  return request;
}

/// Asks for one page after the other.
class PageReader {
 public:
  PageReader(Connection& connection, const RecordName& name, const HistoryOptions& options)
      : m_connection(connection), m_name(name), m_request(MakeRequest(name, options)) {}

  [[nodiscard]] bool HasMore() const { return m_hasMore; }
  [[nodiscard]] RecordAnswer Next() {
    Json answer = m_connection.Ask(m_request);
    HistoryPage page = ReadHistory(answer, m_name);
    m_hasMore = GoToNextPage(m_request, page);
    return std::move(page.answer);
  }

 private:
  Connection& m_connection;
  RecordName m_name;
  Json m_request;
  bool m_hasMore = true;
};

RecordAnswer ReadAll(PageReader& reader, const std::optional<RowChoice>& filter) {
  RecordAnswer all;
  while (reader.HasMore()) {
    RecordAnswer page = reader.Next();
    if (filter) {
      filter->Apply(page.rows);
    }
    all.record = page.record;
    all.category = page.category;
    for (Json& row : page.rows.Elements()) {
      all.rows.PushBack(std::move(row));
    }
  }
  return all;
}

/// Prints each page as it comes, under one line of labels.
bool WriteCsv(PageReader& reader, const std::optional<RowChoice>& choice) {
  CsvRows rows;
  bool isAny = false;
  while (reader.HasMore()) {
    RecordAnswer page = reader.Next();
    if (choice) {
      choice->Apply(page.rows);
    }
    WriteOutput(rows.Text(page.rows));
    isAny = isAny || !page.rows.Elements().empty();
  }
  return isAny;
}

/// What tells the instances of the record apart: the values of its key fields.
std::string InstanceOf(const Json& row, const Schema& schema) {
  std::string instance;
  for (std::size_t place = 0; place < schema.fields.size(); ++place) {
    if (schema.fields[place].meaning == "key") {
      instance += JsonText(ValueOf(row, place, schema.fields[place].label)) + ' ';
    }
  }
  return instance;
}

void WritePlot(const RecordAnswer& answer, const Schema& schema, const std::string& label,
               const Screen& screen) {
  const Field& field = NeedField(schema, label);
  std::set<std::string> instances;
  std::vector<PlotPoint> points;
  for (const Json& row : answer.rows.Elements()) {
    instances.insert(InstanceOf(row, schema));
    const Json& time = ValueOf(row, 1, kTimeLabel);
    const Json& value = ValueOf(row, 0, field.label);
    if (time.IsWhole() && value.IsNumber()) {
      points.push_back({time.Whole(), value.Number()});
    }
  }
  if (instances.size() > 1) {
    throw UsageError(std::to_string(instances.size()) + " instances of " + answer.record +
                     " have rows: choose one with --where");
  }
  if (points.empty()) {
    throw UsageError("\"" + field.label + "\" has no number in these rows");
  }
  const std::size_t columns = screen.width == 0 ? kPlotColumns : screen.width;
  const std::size_t lines = screen.height == 0 ? kPlotLines : std::min(kPlotLines, screen.height);
  WriteOutput(Emphasize(SafeText(answer.record + ": " + field.label), screen) + '\n' +
              PlotText(points, columns, lines));
}

/// Says that nothing is kept, and why where the schedule tells.
void ComplainOfNoRows(Connection& connection, const Schema& schema) {
  const RecordName name{schema.record, schema.category};
  const std::vector<Schedule> schedules = ReadStatus(connection.Ask({{"op", "status"}})).schedules;
  const auto found =
      std::find_if(schedules.begin(), schedules.end(), [&](const Schedule& schedule) {
        return schedule.record == name.name && schedule.category == name.category;
      });
  Complain(name.Text() + ": no such rows are kept" +
           (found != schedules.end()
                ? "; the record is collected " + EverySeconds(found->seconds)
                : ", and no schedule collects the record; \"qmtctl schedule add " + name.name +
                      " 60\" would"));
}

void WriteRows(RecordAnswer answer, Schema schema, const HistoryOptions& options,
               const Screen& screen) {
  answer.time = std::time(nullptr);
  std::vector<ShownRecord> records;
  records.push_back({std::move(answer), std::move(schema)});
  // A time after the other is read downwards, so headings are left out.
  for (Field& field : records[0].schema.fields) {
    field.group.clear();
  }
  WriteOutput(RecordsText(records, options.what.format, false, screen));
}

}  // namespace

int RunHistory(const CommonOptions& common, const HistoryOptions& options) {
  const RecordName typed = ParseRecordName(options.what.records.front());
  Connection connection(common.socket);
  const RecordName name = RecordNames(connection).Need(typed);
  PageReader reader(connection, name, options);
  const Json answer = connection.Ask(SchemaRequest(name));
  Schema schema = ReadSchema(answer);
  const ChoiceOptions& choices = options.what.choice;
  if (options.what.format == Format::kCsv && choices.sort.empty()) {
    const auto choice = choices.Any() ? std::optional(RowChoice(choices, schema)) : std::nullopt;
    if (!WriteCsv(reader, choice)) {
      ComplainOfNoRows(connection, schema);
      return kExitFailed;
    }
    return kExitDone;
  }
  // Rows that nobody wants need not be gathered; the rest of the choice needs all of them.
  ChoiceOptions filter;
  filter.where = choices.where;
  const RowChoice choice(choices, schema);
  RecordAnswer all =
      ReadAll(reader, filter.Any() ? std::optional(RowChoice(filter, schema)) : std::nullopt);
  if (all.rows.Elements().empty()) {
    ComplainOfNoRows(connection, schema);
    return kExitFailed;
  }
  const Screen screen = ReadScreen(common.color);
  if (!options.plot.empty()) {
    WritePlot(all, schema, options.plot, screen);
    return kExitDone;
  }
  choice.Apply(all.rows);
  if (options.what.format == Format::kCsv) {
    WriteOutput(CsvText(all.rows));
  } else {
    WriteRows(std::move(all), std::move(schema), options, screen);
  }
  return kExitDone;
}
