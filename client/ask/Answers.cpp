#include "client/ask/Answers.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "client/ask/Errors.h"

namespace {

constexpr std::uint64_t kLastItem = 65535;

[[noreturn]] void FailMember(const char* name, const char* expected) {
  throw ClientError(std::string("broken answer: \"") + name + "\" is not " + expected);
}

const Json& Member(const Json& object, const char* name) {
  static const Json kNull;
  const Json* member = object.Find(name);
  return member == nullptr ? kNull : *member;
}

std::string Text(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsString()) {
    FailMember(name, "a text");
  }
  return value.Text();
}

double Number(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsNumber()) {
    FailMember(name, "a number");
  }
  return value.Number();
}

std::uint64_t Count(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsUnsigned()) {
    FailMember(name, "a count");
  }
  return value.Unsigned();
}

std::int64_t Whole(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsWhole() || (value.IsUnsigned() && value.Unsigned() > INT64_MAX)) {
    FailMember(name, "a whole number");
  }
  return value.Whole();
}

bool Flag(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsBool()) {
    FailMember(name, "true or false");
  }
  return value.Bool();
}

const Json& Object(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!value.IsObject()) {
    FailMember(name, "an object");
  }
  return value;
}

const Json& Objects(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  const auto isObject = [](const Json& element) { return element.IsObject(); };
  if (!value.IsArray() || !std::ranges::all_of(value.Elements(), isObject)) {
    FailMember(name, "an array of objects");
  }
  return value;
}

void CheckRows(const Json& rows) {
  for (const Json& row : rows.Elements()) {
    for (const JsonMember& member : row.Members()) {
      if (member.value.IsStructured()) {
        FailMember("rows", "an array of objects of plain values");
      }
    }
  }
}

std::string ErrorText(const Json& error) {
  std::string message = Text(error, "message");
  const std::string code = Text(error, "code");
  return message.empty() ? code : message + " (" + code + ")" + HintOf(code);
}

bool IsTexts(const Json& value) {
  const auto isText = [](const Json& element) { return element.IsString(); };
  return value.IsArray() && std::ranges::all_of(value.Elements(), isText);
}

/// The texts of an array that has nothing else.
std::vector<std::string> TextsOf(const Json& value) {
  std::vector<std::string> texts;
  texts.reserve(value.Size());
  for (const Json& text : value.Elements()) {
    texts.push_back(text.Text());
  }
  return texts;
}

std::vector<std::string> Texts(const Json& object, const char* name) {
  const Json& value = Member(object, name);
  if (!IsTexts(value)) {
    FailMember(name, "an array of texts");
  }
  return TextsOf(value);
}

/// Deep trees don't come this far: the parser bounds how deep an answer is nested.
std::vector<ConfigNode> ConfigNodes(const Json& parent) {
  std::vector<ConfigNode> nodes;
  for (const Json& child : Objects(parent, "children").Elements()) {
    ConfigNode& node = nodes.emplace_back();
    node.label = Text(child, "label");
    node.help = Text(child, "help");
    const std::string kind = Text(child, "kind");
    if (kind == "folder") {
      node.children = ConfigNodes(child);
      continue;
    }
    node.id = Count(child, "id");
    if (node.id > kLastItem) {
      FailMember("id", "the id of an item");
    }
    node.value = Text(child, "value");
    if (kind == "choice") {
      node.kind = ConfigNode::Kind::kChoice;
      node.current = Count(child, "current");
      node.choices = Texts(child, "choices");
    } else if (kind == "text") {
      node.kind = ConfigNode::Kind::kText;
    } else {
      FailMember("kind", "a kind of the configuration");
    }
  }
  return nodes;
}

/// A figure of the agent's that is a count; empty if it does not say.
std::string CountFigure(const Json& status, std::string_view name) {
  constexpr double kLargest = 4294967295.0;
  for (const Json& figure : Objects(status, "figures").Elements()) {
    if (Text(figure, "name") == name) {
      const Json& value = Member(figure, "value");
      const double count = value.IsNumber() ? value.Number() : -1.0;
      return count >= 0.0 && count <= kLargest ? std::to_string(static_cast<std::uint64_t>(count))
                                               : "";
    }
  }
  return "";
}

}  // namespace

Json RecordName::ToJson() const {
  return category.empty() ? Json(name) : Json{{"record", name}, {"category", category}};
}

std::string RecordName::Text() const { return category.empty() ? name : category + ":" + name; }

RecordName ParseRecordName(std::string_view text) {
  RecordName record;
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    record.category = text.substr(0, colon);
    if (record.category != "4" && record.category != "3") {
      throw UsageError("the category of \"" + std::string(text) + "\" is not 4 or 3");
    }
    text.remove_prefix(colon + 1);
  }
  record.name = text;
  const auto graphic = [](char c) { return c > ' ' && c < '\x7F'; };
  if (text.empty() || !std::all_of(text.begin(), text.end(), graphic)) {
    throw UsageError("\"" + std::string(text) + "\" is not the name of a record");
  }
  return record;
}

std::vector<RecordAnswer> ReadResults(Json& answer, const std::vector<RecordName>& asked) {
  const Json& results = Objects(answer, "results");
  if (results.Size() != asked.size()) {
    FailMember("results", "one element for each record");
  }
  std::vector<RecordAnswer> records;
  for (std::size_t i = 0; i < asked.size(); ++i) {
    Json& result = answer["results"][i];
    RecordAnswer& record = records.emplace_back();
    record.record = Text(result, "record");
    if (record.record != asked[i].name) {
      FailMember("record", "the record that was asked");
    }
    if (result.Find("error") != nullptr) {
      record.error = ErrorText(Object(result, "error"));
      continue;
    }
    record.category = Text(result, "category");
    if (!asked[i].category.empty() && record.category != asked[i].category) {
      FailMember("category", "the category that was asked");
    }
    record.time = Whole(result, "time");
    CheckRows(Objects(result, "rows"));
    record.rows = std::move(result["rows"]);
  }
  return records;
}

HistoryPage ReadHistory(Json& answer, const RecordName& asked) {
  Json& history = answer["history"];
  static_cast<void>(Object(answer, "history"));
  HistoryPage page;
  page.answer.record = Text(history, "record");
  page.answer.category = Text(history, "category");
  if (page.answer.record != asked.name) {
    FailMember("record", "the record that was asked");
  }
  CheckRows(Objects(history, "rows"));
  page.answer.rows = std::move(history["rows"]);
  Json* next = history.Find("next");
  if (next == nullptr || !(next->IsNull() || next->IsArray())) {
    FailMember("next", "null or an array");
  }
  page.next = std::move(*next);
  return page;
}

Schema ReadSchema(const Json& answer) {
  const Json& schema = Object(answer, "schema");
  Schema out{Text(schema, "record"),
             Text(schema, "structure"),
             Text(schema, "category"),
             Count(schema, "size"),
             {},
             {},
             {}};
  for (const Json& field : Objects(schema, "fields").Elements()) {
    out.fields.push_back({Text(field, "label"), Text(field, "type"), Count(field, "offset"),
                          Count(field, "width"), Text(field, "meaning"),
                          field.Find("group") != nullptr ? Text(field, "group") : "",
                          field.Find("of") != nullptr ? Text(field, "of") : "",
                          field.Find("two_looks") != nullptr && Flag(field, "two_looks"),
                          field.Find("help") != nullptr ? Text(field, "help") : "",
                          field.Find("source") == nullptr || Flag(field, "source")});
  }
  out.about = schema.Find("about") != nullptr ? Text(schema, "about") : "";
  if (schema.Find("shown") != nullptr) {
    for (const Json& column : Objects(schema, "shown").Elements()) {
      out.shown.push_back({Text(column, "label"), Text(column, "heading")});
    }
  }
  return out;
}

std::vector<Listing> ReadListing(const Json& answer) {
  std::vector<Listing> out;
  for (const Json& record : Objects(answer, "records").Elements()) {
    out.push_back({Text(record, "record"), Text(record, "category"), Flag(record, "served")});
  }
  return out;
}

Status ReadStatus(const Json& answer) {
  const Json& status = Object(answer, "status");
  Status out;
  out.pid = Whole(status, "pid");
  out.uptimeSeconds = Number(status, "uptime_seconds");
  out.version = Text(status, "version");
  out.node = Text(status, "node");
  out.host = Text(status, "host");
  out.http = status.Find("http") != nullptr ? Text(status, "http") : "";
  out.hostProfile = ReadHostProfile(status);
  out.kernelVariant = CountFigure(status, "kernel_variant");
  out.skippedProcesses = CountFigure(status, "collect_process_skipped");
  for (const Json& schedule : Objects(status, "schedules").Elements()) {
    const bool ran = !Member(schedule, "last_time").IsNull();
    out.schedules.push_back({Text(schedule, "record"), Text(schedule, "category"),
                             Number(schedule, "seconds"), Count(schedule, "runs"),
                             Count(schedule, "rows"), ran ? Whole(schedule, "last_time") : 0,
                             Count(schedule, "skipped")});
  }
  if (!Member(status, "last_batch").IsNull()) {
    const Json& batch = Object(status, "last_batch");
    out.lastBatch = {true, Number(batch, "age_seconds"), Number(batch, "duration_seconds"),
                     Count(batch, "records"), Count(batch, "errors")};
  }
  return out;
}

std::string ReadHostProfile(const Json& part) {
  const Json* facts = part.Find("facts");
  const Json* profile =
      facts != nullptr && facts->IsObject() ? facts->Find("host_profile") : nullptr;
  return profile != nullptr && profile->IsString() ? profile->Text() : "";
}

std::vector<ConfigNode> ReadConfig(const Json& answer) {
  return ConfigNodes(Object(answer, "config"));
}

ReportTable ReadReport(const Json& answer) {
  const Json& report = Object(answer, "report");
  ReportTable table{Texts(report, "columns"), {}, Texts(report, "notes")};
  const Json& rows = Member(report, "rows");
  const auto isRow = [&](const Json& row) {
    return IsTexts(row) && row.Size() == table.columns.size();
  };
  if (!rows.IsArray() || !std::ranges::all_of(rows.Elements(), isRow)) {
    FailMember("rows", "an array of rows as long as the columns");
  }
  std::ranges::transform(rows.Elements(), std::back_inserter(table.rows), TextsOf);
  return table;
}

ConfigOutcome ReadConfigOutcome(const Json& answer, std::uint64_t item) {
  using Kind = ConfigOutcome::Kind;
  static constexpr std::array<std::pair<const char*, Kind>, 4> kOutcomes{
      {{"done", Kind::kDone},
       {"refused", Kind::kRefused},
       {"not-written", Kind::kNotWritten},
       {"failed", Kind::kFailed}}};
  const Json& result = Object(answer, "result");
  if (Count(result, "item") != item) {
    FailMember("item", "the item that was asked");
  }
  const std::string outcome = Text(result, "outcome");
  const auto found = std::find_if(kOutcomes.begin(), kOutcomes.end(),
                                  [&](const auto& entry) { return entry.first == outcome; });
  if (found == kOutcomes.end()) {
    FailMember("outcome", "the outcome of a change");
  }
  return {found->second, Whole(result, "code")};
}
