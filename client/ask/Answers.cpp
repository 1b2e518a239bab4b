#include "client/ask/Answers.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

#include "client/ask/AnswerMembers.h"
#include "client/ask/Errors.h"

namespace {

constexpr std::uint64_t kLastItem = 65535;

std::string ErrorText(const Json& error) {
  std::string message = TextMember(error, "message");
  const std::string code = TextMember(error, "code");
  return message.empty() ? code : message + " (" + code + ")";
}

/// Deep trees don't come this far: the parser bounds how deep an answer is nested.
std::vector<ConfigNode> ConfigNodes(const Json& parent) {
  std::vector<ConfigNode> nodes;
  for (const Json& child : ObjectsMember(parent, "children").Elements()) {
    ConfigNode& node = nodes.emplace_back();
    node.label = TextMember(child, "label");
    node.help = TextMember(child, "help");
    const std::string kind = TextMember(child, "kind");
    if (kind == "folder") {
      node.children = ConfigNodes(child);
      continue;
    }
    node.id = CountMember(child, "id");
    if (node.id > kLastItem) {
      FailMember("id", "the id of an item");
    }
    node.value = TextMember(child, "value");
    if (kind == "choice") {
      node.kind = ConfigNode::Kind::kChoice;
      node.current = CountMember(child, "current");
      node.choices = TextsMember(child, "choices");
    } else if (kind == "text") {
      node.kind = ConfigNode::Kind::kText;
    } else {
      FailMember("kind", "a kind of the configuration");
    }
  }
  return nodes;
}

/// What the agent says of itself in words; empty where it doesn't.
std::string FactOf(const Json& part, const char* name) {
  const Json* facts = part.Find("facts");
  const Json* fact = facts != nullptr && facts->IsObject() ? facts->Find(name) : nullptr;
  return fact != nullptr && fact->IsString() ? fact->Text() : "";
}

/// A figure of the agent's that is a count; empty if it does not say.
std::string CountFigure(const Json& status, std::string_view name) {
  constexpr double kLargest = 4294967295.0;
  for (const Json& figure : ObjectsMember(status, "figures").Elements()) {
    if (TextMember(figure, "name") == name) {
      const Json& value = AnyMember(figure, "value");
      const double count = value.IsNumber() ? value.Number() : -1.0;
      return count >= 0.0 && count <= kLargest ? std::to_string(static_cast<std::uint64_t>(count))
                                               : "";
    }
  }
  return "";
}

/// Of `name`: nothing where that is null.
LastBatch ReadLastBatch(const Json& status, const char* name) {
  if (AnyMember(status, name).IsNull()) {
    return {};
  }
  const Json& batch = ObjectMember(status, name);
  return {true, NumberMember(batch, "age_seconds"), NumberMember(batch, "duration_seconds"),
          CountMember(batch, "records"), CountMember(batch, "errors")};
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

bool IsPlainName(std::string_view name) {
  constexpr std::size_t kLongest = 64;
  return !name.empty() && name.size() <= kLongest && std::ranges::all_of(name, [](char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '_';
  });
}

RecordAnswer ReadResult(const Json& result, const RecordName& asked) {
  RecordAnswer record;
  record.record = TextMember(result, "record");
  if (record.record != asked.name) {
    FailMember("record", "the record that was asked");
  }
  if (result.Find("error") != nullptr) {
    record.error = ErrorText(ObjectMember(result, "error"));
    return record;
  }
  record.category = TextMember(result, "category");
  if (!asked.category.empty() && record.category != asked.category) {
    FailMember("category", "the category that was asked");
  }
  record.time = WholeMember(result, "time");
  return record;
}

std::vector<RecordAnswer> ReadResults(Json& answer, const std::vector<RecordName>& asked) {
  const Json& results = ObjectsMember(answer, "results");
  if (results.Size() != asked.size()) {
    FailMember("results", "one element for each record");
  }
  std::vector<RecordAnswer> records;
  for (std::size_t i = 0; i < asked.size(); ++i) {
    Json& result = answer["results"][i];
    RecordAnswer& record = records.emplace_back(ReadResult(result, asked[i]));
    if (record.error.empty()) {
      CheckRows(ObjectsMember(result, "rows"));
      record.rows = std::move(result["rows"]);
    }
  }
  return records;
}

HistoryPage ReadHistory(Json& answer, const RecordName& asked) {
  Json& history = answer["history"];
  static_cast<void>(ObjectMember(answer, "history"));
  HistoryPage page;
  page.answer.record = TextMember(history, "record");
  page.answer.category = TextMember(history, "category");
  if (page.answer.record != asked.name) {
    FailMember("record", "the record that was asked");
  }
  CheckRows(ObjectsMember(history, "rows"));
  page.answer.rows = std::move(history["rows"]);
  Json* next = history.Find("next");
  const auto isNumber = [](const Json& value) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    return value.IsWhole() && (!value.IsUnsigned() || value.Unsigned() <= kMost);
  };
  const auto isPlace = [&](const Json& value) {
    return value.IsArray() && value.Size() == 2 && isNumber(value[0]) && isNumber(value[1]);
  };
  if (next == nullptr || !(next->IsNull() || isPlace(*next))) {
    FailMember("next", "null or a time and a row");
  }
  page.next = std::move(*next);
  return page;
}

bool GoToNextPage(Json& request, HistoryPage& page) {
  if (page.next.IsNull()) {
    return false;
  }
  const auto pairOf = [](const Json& place) {
    return std::pair(place[0].Whole(), place[1].Whole());
  };
  if (const Json* before = request.Find("after"); before && pairOf(page.next) <= pairOf(*before)) {
    throw ClientError("broken answer: the pages of " + page.answer.record +
                      " that the daemon gives do not go on");
  }
  if (request.Find("at") != nullptr) {
    // Further pages are of the time that was found.
    request["since"] = page.next[0];
    request["until"] = page.next[0];
    request.Erase("at");
  }
  request["after"] = std::move(page.next);
  return true;
}

Schema ReadSchema(const Json& answer) {
  const Json& schema = ObjectMember(answer, "schema");
  Schema out{TextMember(schema, "record"),
             TextMember(schema, "structure"),
             TextMember(schema, "category"),
             CountMember(schema, "size"),
             {},
             {},
             {}};
  for (const Json& field : ObjectsMember(schema, "fields").Elements()) {
    out.fields.push_back({TextMember(field, "label"), TextMember(field, "type"),
                          CountMember(field, "offset"), CountMember(field, "width"),
                          TextMember(field, "meaning"),
                          field.Find("group") != nullptr ? TextMember(field, "group") : "",
                          field.Find("of") != nullptr ? TextMember(field, "of") : "",
                          field.Find("two_looks") != nullptr && FlagMember(field, "two_looks"),
                          field.Find("help") != nullptr ? TextMember(field, "help") : "",
                          field.Find("source") == nullptr || FlagMember(field, "source")});
  }
  out.about = schema.Find("about") != nullptr ? TextMember(schema, "about") : "";
  if (schema.Find("shown") != nullptr) {
    for (const Json& column : ObjectsMember(schema, "shown").Elements()) {
      out.shown.push_back({TextMember(column, "label"), TextMember(column, "heading")});
    }
  }
  return out;
}

std::vector<Listing> ReadListing(const Json& answer) {
  std::vector<Listing> out;
  for (const Json& record : ObjectsMember(answer, "records").Elements()) {
    out.push_back({TextMember(record, "record"), TextMember(record, "category"),
                   FlagMember(record, "served")});
  }
  return out;
}

Status ReadStatus(const Json& answer) {
  const Json& status = ObjectMember(answer, "status");
  Status out;
  out.pid = WholeMember(status, "pid");
  out.uptimeSeconds = NumberMember(status, "uptime_seconds");
  out.version = TextMember(status, "version");
  out.node = TextMember(status, "node");
  out.host = TextMember(status, "host");
  out.http = status.Find("http") != nullptr ? TextMember(status, "http") : "";
  out.hostProfile = ReadHostProfile(status);
  out.processSource = FactOf(status, "process_source");
  out.processSourceReason = FactOf(status, "process_source_reason");
  out.kernelVariant = CountFigure(status, "kernel_variant");
  out.skippedProcesses = CountFigure(status, "collect_process_skipped");
  for (const Json& schedule : ObjectsMember(status, "schedules").Elements()) {
    const bool ran = !AnyMember(schedule, "last_time").IsNull();
    out.schedules.push_back({TextMember(schedule, "record"), TextMember(schedule, "category"),
                             NumberMember(schedule, "seconds"), CountMember(schedule, "runs"),
                             CountMember(schedule, "rows"),
                             ran ? WholeMember(schedule, "last_time") : 0,
                             CountMember(schedule, "skipped")});
  }
  out.lastBatch = ReadLastBatch(status, "last_batch");
  const char* scheduled = "last_scheduled_batch";
  out.lastScheduledBatch =
      status.Find(scheduled) != nullptr ? ReadLastBatch(status, scheduled) : out.lastBatch;
  return out;
}

std::string ReadHostProfile(const Json& part) { return FactOf(part, "host_profile"); }

std::vector<ConfigNode> ReadConfig(const Json& answer) {
  return ConfigNodes(ObjectMember(answer, "config"));
}

ReportTable ReadReport(const Json& answer) {
  const Json& report = ObjectMember(answer, "report");
  ReportTable table{TextsMember(report, "columns"), {}, TextsMember(report, "notes")};
  const Json& rows = AnyMember(report, "rows");
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
  const Json& result = ObjectMember(answer, "result");
  if (CountMember(result, "item") != item) {
    FailMember("item", "the item that was asked");
  }
  const std::string outcome = TextMember(result, "outcome");
  const auto found = std::find_if(kOutcomes.begin(), kOutcomes.end(),
                                  [&](const auto& entry) { return entry.first == outcome; });
  if (found == kOutcomes.end()) {
    FailMember("outcome", "the outcome of a change");
  }
  return {found->second, WholeMember(result, "code")};
}
