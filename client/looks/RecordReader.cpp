#include "client/looks/RecordReader.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>

#include "client/ask/Errors.h"
#include "client/looks/RecordNames.h"

namespace {

constexpr const char* kNoRows = "no rows";

std::vector<RecordName> ParseRecordNames(const std::vector<std::string>& texts) {
  std::vector<RecordName> names;
  std::transform(texts.begin(), texts.end(), std::back_inserter(names), ParseRecordName);
  return names;
}

/// The layout for columns that were chosen: headings would bring them into their own order.
Schema WithoutHeadings(Schema schema) {
  for (Field& field : schema.fields) {
    field.group.clear();
  }
  schema.shown.clear();
  return schema;
}

/// Keeps all that comes.
class SampleSink : public RecordSink {
 public:
  explicit SampleSink(std::vector<ShownRecord>& records) : m_records(records) {}

  void Begin(const ShownRecord& record) override { m_records.push_back(record); }
  bool Row(Json row) override {
    m_records.back().answer.rows.PushBack(std::move(row));
    return false;
  }
  void End() override {}

 private:
  std::vector<ShownRecord>& m_records;
};

}  // namespace

/// What comes of one request, on its way to the sink; without one it is compared alone.
class RecordReader::Reading {
 public:
  Reading(RecordReader& reader, RecordSink* sink)
      : m_reader(reader), m_sink(sink), m_errors(reader.m_names.size()) {}

  void Begin(std::size_t place, const Json& result) {
    End();
    if (place >= m_errors.size()) {
      throw ClientError("broken answer: more results than records were asked");
    }
    m_record = {ReadResult(result, m_reader.m_names[place]), m_reader.m_schemas[place]};
    if (!m_record.answer.error.empty()) {
      throw ClientError("broken answer: rows beside an error");
    }
    m_place = place;
    m_rows = 0;
    m_held = Json::Array();
    m_choice = m_reader.m_choices.empty() ? nullptr : &m_reader.m_choices[place];
    if (m_choice != nullptr && *m_choice && (*m_choice)->HasColumns()) {
      m_record.schema = WithoutHeadings(std::move(m_record.schema));
    }
    if (std::optional<TwoLooks>& looks = m_reader.m_looks[place]) {
      // How long the rows of other records took to show is not part of what is compared.
      m_at = m_at.value_or(m_reader.m_isPlayed ? PlayedTime(m_record.answer.time)
                                               : std::chrono::steady_clock::now());
      looks->Begin(*m_at);
    }
    m_isBegun = false;
    m_isOpen = true;
  }

  bool Row(Json row) {
    if (m_choice != nullptr && !*m_choice) {
      m_errors[m_place] = "no layout to choose rows and columns by";
      return true;
    }
    if (std::optional<TwoLooks>& looks = m_reader.m_looks[m_place]) {
      looks->CompareRow(row);
      m_reader.CheckHeld();
    }
    if (m_sink == nullptr) {
      return true;
    }
    if (m_choice == nullptr) {
      return Show(std::move(row));
    }
    const RowChoice& choice = **m_choice;
    if (!choice.Holds(row)) {
      return true;
    }
    if (choice.HasOrder()) {
      m_held.PushBack(std::move(row));
      return false;
    }
    return Show(choice.Narrowed(std::move(row)));
  }

  /// The end of the record at hand, where there is one.
  void End() {
    if (!std::exchange(m_isOpen, false)) {
      return;
    }
    if (std::optional<TwoLooks>& looks = m_reader.m_looks[m_place]) {
      looks->End();
    }
    if (m_sink == nullptr || !m_errors[m_place].empty()) {
      return;
    }
    ShowHeld();
    BeginShown();
    m_sink->End();
    // In JSON an empty array says as much.
    const Format format = m_reader.m_format;
    if (m_rows == 0 && format != Format::kJson && format != Format::kJsonLine) {
      m_errors[m_place] = kNoRows;
    }
  }

  [[nodiscard]] const std::string& Error(std::size_t place) const { return m_errors[place]; }

 private:
  void ShowHeld() {
    if (m_held.Elements().empty()) {
      return;
    }
    (*m_choice)->Sort(m_held);
    for (Json& row : m_held.Elements()) {
      Show((*m_choice)->Narrowed(std::move(row)));
    }
    m_held = Json::Array();
  }

  void BeginShown() {
    if (!std::exchange(m_isBegun, true)) {
      m_sink->Begin(m_record);
    }
  }

  bool Show(Json row) {
    BeginShown();
    ++m_rows;
    return m_sink->Row(std::move(row));
  }

  RecordReader& m_reader;
  RecordSink* m_sink;
  std::vector<std::string> m_errors;        ///< of each name, what there is to say of it
  ShownRecord m_record;                     ///< the one at hand
  std::optional<TwoLooks::TimePoint> m_at;  ///< of the answer
  std::size_t m_place = 0;
  std::size_t m_rows = 0;
  Json m_held;  ///< rows that wait to be sorted
  const std::optional<RowChoice>* m_choice = nullptr;
  bool m_isOpen = false;
  bool m_isBegun = false;  ///< the sink knows of it
};

Json SchemaRequest(const RecordName& record) {
  Json request{{"op", "schema"}, {"record", record.name}};
  if (!record.category.empty()) {
    request["category"] = record.category;
  }
  return request;
}

RecordReader::RecordReader(const std::string& socket, const RecordOptions& options,
                           const char* operation, int stop, const ConnectionLimits& limits)
    : m_format(options.format),
      m_isPlayed(options.isPlayed),
      m_names(ParseRecordNames(options.records)),
      m_looks(m_names.size()),
      m_mostHeld(limits.answerBytes),
      m_connection(socket, stop, limits) {
  ResolveNames();
  Json names = Json::Array();
  for (const RecordName& name : m_names) {
    names.PushBack(name.ToJson());
  }
  m_request = {{"op", operation}, {"records", std::move(names)}};
  if (options.rates) {
    m_request["rates"] = true;
  }
  if (options.choice.Any()) {
    MakeChoices(options.choice);
  }
  const bool compares = options.Compares() && operation == std::string_view("get");
  // While rows come, nothing else can be asked.
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    const bool isWanted = m_missing[i].empty() && (compares || m_format == Format::kTable);
    m_schemas.push_back(isWanted ? SchemaOf(m_names[i]) : Schema());
    if (isWanted && compares) {
      m_looks[i].emplace(m_schemas[i]);
    }
  }
}

void RecordReader::ResolveNames() {
  const RecordNames known(m_connection);
  for (RecordName& name : m_names) {
    m_missing.push_back(known.Resolve(name) ? "" : known.Missing(name));
  }
}

Sample RecordReader::Read() {
  Sample sample;
  SampleSink sink(sample.records);
  sample.notes = Read(sink);
  return sample;
}

std::vector<std::string> RecordReader::Read(RecordSink& sink) { return ReadTo(&sink); }

std::vector<std::string> RecordReader::ReadTo(RecordSink* sink) {
  Reading reading(*this, sink);
  const RowTaker taker{[&](std::size_t place, const Json& result) { reading.Begin(place, result); },
                       [&](Json row) { return reading.Row(std::move(row)); }};
  Json answer = m_connection.AskRows(m_request, taker);
  reading.End();
  std::vector<RecordAnswer> answers = ReadResults(answer, m_names);
  std::vector<std::string> notes;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const std::string& error = answers[i].error.empty() ? reading.Error(i) : answers[i].error;
    if (error.empty()) {
      continue;
    }
    const bool isFailed = error != kNoRows;
    m_anyFailed = m_anyFailed || isFailed;
    const bool isUnknown = isFailed && !m_missing[i].empty();
    notes.push_back(isUnknown ? m_missing[i] : m_names[i].Text() + ": " + error);
  }
  return notes;
}

bool RecordReader::LookFirst() {
  const auto isNeeded = [](const auto& looks) { return looks && looks->AreNeeded(); };
  if (std::ranges::none_of(m_looks, isNeeded)) {
    return false;
  }
  static_cast<void>(ReadTo(nullptr));
  return std::ranges::any_of(
      m_looks, [&](const auto& looks) { return isNeeded(looks) && looks->HasLast(); });
}

void RecordReader::CheckHeld() const {
  std::size_t held = 0;
  for (const std::optional<TwoLooks>& looks : m_looks) {
    held += looks ? looks->HeldBytes() : 0;
  }
  if (held > m_mostHeld) {
    throw ClientError("the answer has more rows than can be compared within " +
                      std::to_string(m_mostHeld) + " bytes; --raw shows them as they are");
  }
}

const Schema& RecordReader::SchemaOf(const RecordName& record) {
  const auto [place, isNew] = m_known.try_emplace(record.Text());
  if (isNew) {
    try {
      place->second = ReadSchema(m_connection.Ask(SchemaRequest(record)));
    } catch (const RefusedError&) {
      // Rows can be shown without a layout, only less nicely.
    }
  }
  return place->second;
}

void RecordReader::MakeChoices(const ChoiceOptions& options) {
  for (const RecordName& name : m_names) {
    const Schema& schema = SchemaOf(name);
    m_choices.push_back(schema.fields.empty() ? std::nullopt
                                              : std::optional(RowChoice(options, schema)));
  }
  const auto first =
      std::ranges::find_if(m_choices, [](const auto& choice) { return choice.has_value(); });
  if (m_request["op"] == "get" && first != m_choices.end() && !(*first)->NamedRows().empty()) {
    m_request["named"] = Json((*first)->NamedRows());
  }
}
