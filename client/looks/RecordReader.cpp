#include "client/looks/RecordReader.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>

#include "client/ask/Errors.h"
#include "client/looks/RecordNames.h"

namespace {

std::vector<RecordName> ParseRecordNames(const std::vector<std::string>& texts) {
  std::vector<RecordName> names;
  std::transform(texts.begin(), texts.end(), std::back_inserter(names), ParseRecordName);
  return names;
}

/// Leaves of the record what was chosen.
void Choose(ShownRecord& record, const RowChoice& choice) {
  choice.Apply(record.answer.rows);
  if (choice.HasColumns()) {
    // Headings would bring the columns into their own order.
    for (Field& field : record.schema.fields) {
      field.group.clear();
    }
    record.schema.shown.clear();
  }
}

}  // namespace

Json SchemaRequest(const RecordName& record) {
  Json request{{"op", "schema"}, {"record", record.name}};
  if (!record.category.empty()) {
    request["category"] = record.category;
  }
  return request;
}

RecordReader::RecordReader(const std::string& socket, const RecordOptions& options,
                           const char* operation, int stop)
    : m_format(options.format),
      m_names(ParseRecordNames(options.records)),
      m_compares(options.Compares() && operation == std::string_view("get")),
      m_looks(m_names.size()),
      m_connection(socket, stop) {
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
}

void RecordReader::ResolveNames() {
  const RecordNames known(m_connection);
  for (RecordName& name : m_names) {
    m_missing.push_back(known.Resolve(name) ? "" : known.Missing(name));
  }
}

Sample RecordReader::Read() {
  Json answer = m_connection.Ask(m_request);
  const auto at = std::chrono::steady_clock::now();
  std::vector<RecordAnswer> answers = ReadResults(answer, m_names);
  Sample sample;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    std::string& error = answers[i].error;
    const bool chooses = !m_choices.empty();
    if (error.empty() && chooses && !m_choices[i] && !answers[i].rows.Elements().empty()) {
      error = "no layout to choose rows and columns by";
    }
    if (!error.empty()) {
      m_anyFailed = true;
      sample.notes.push_back(m_missing[i].empty() ? m_names[i].Text() + ": " + error
                                                  : m_missing[i]);
      continue;
    }
    ShownRecord record{std::move(answers[i]), {}};
    if (m_format == Format::kTable) {
      record.schema = SchemaOf({record.answer.record, record.answer.category});
    }
    if (m_compares) {
      Compare(record, i, at);
    }
    if (chooses && m_choices[i]) {
      Choose(record, *m_choices[i]);
    }
    // In JSON an empty array says as much.
    const bool tells = m_format == Format::kJson || m_format == Format::kJsonLine;
    if (record.answer.rows.Elements().empty() && !tells) {
      sample.notes.push_back(m_names[i].Text() + ": no rows");
    }
    sample.records.push_back(std::move(record));
  }
  return sample;
}

bool RecordReader::NeedsAnother() const {
  return std::any_of(m_looks.begin(), m_looks.end(),
                     [](const auto& looks) { return looks && looks->AreNeeded(); });
}

void RecordReader::Compare(ShownRecord& record, std::size_t place, TwoLooks::TimePoint at) {
  std::optional<TwoLooks>& looks = m_looks[place];
  if (!looks) {
    looks.emplace(SchemaOf({record.answer.record, record.answer.category}));
  }
  looks->Compare(record.answer.rows, at);
}

const Schema& RecordReader::SchemaOf(const RecordName& record) {
  const auto [place, isNew] = m_schemas.try_emplace(record.Text());
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
  const auto& first = m_choices.front();
  if (m_request["op"] == "get" && first && !first->NamedRows().empty()) {
    m_request["named"] = Json(first->NamedRows());
  }
}
