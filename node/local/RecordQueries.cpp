#include "node/local/RecordQueries.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

namespace {

ControlError OutcomeError(RequestOutcome outcome, const std::string& record) {
  switch (outcome) {
    case RequestOutcome::kNotServed:
      return {"not-served", "the record " + record + " is not served", ""};
    case RequestOutcome::kBuildFailed:
      return {"build-failed", "the agent could not build the record " + record, ""};
    default:
      return {"unknown-record", "no record \"" + record + "\"", ""};
  }
}

/// A record as the agent publishes it. The layout is null unless the outcome is kDone.
struct ResolvedRecord {
  RequestOutcome outcome;
  const RecordLayout* layout;
};

/// A record without a layout can't be shown and so is unknown to clients.
ResolvedRecord Resolve(const WantedRecord& wanted) {
  const RequestOutcome outcome = CheckRecord(wanted.record, wanted.category);
  if (outcome != RequestOutcome::kDone) {
    return {outcome, nullptr};
  }
  const LayoutRegistry& registry = LayoutRegistry::Instance();
  const RecordListing* listing = registry.FindListing(wanted.record, wanted.category);
  const RecordLayout* layout = registry.Find(wanted.record, listing->category);
  return {layout == nullptr ? RequestOutcome::kUnknownRecord : RequestOutcome::kDone, layout};
}

std::variant<WantedRecord, ControlError> ReadWanted(const Json& element) {
  const ControlError wrong{"bad-field", "records must hold names or {\"record\", \"category\"}",
                           "records"};
  if (element.is_string()) {
    return WantedRecord{element.get<std::string>(), 0};
  }
  if (!element.is_object()) {
    return wrong;
  }
  static constexpr std::array kMembers{"record", "category"};
  if (auto error = CheckMembers(element, kMembers)) {
    return *std::move(error);
  }
  const auto name = element.find("record");
  if (name == element.end() || !name->is_string()) {
    return wrong;
  }
  auto category = ReadCategory(element);
  if (auto* error = std::get_if<ControlError>(&category)) {
    return std::move(*error);
  }
  return WantedRecord{name->get<std::string>(), std::get<unsigned char>(category)};
}

std::variant<std::vector<WantedRecord>, ControlError> ReadRecords(const Json& message) {
  const auto records = message.find("records");
  if (records == message.end() || !records->is_array()) {
    return ControlError{"bad-field", "records must be an array", "records"};
  }
  if (records->size() > RecordQueries::kMaxRecords) {
    return ControlError{
        "bad-field",
        "records holds more than " + std::to_string(RecordQueries::kMaxRecords) + " names",
        "records"};
  }
  std::vector<WantedRecord> wanted;
  for (const Json& element : *records) {
    auto entry = ReadWanted(element);
    if (auto* error = std::get_if<ControlError>(&entry)) {
      return std::move(*error);
    }
    wanted.push_back(std::get<WantedRecord>(std::move(entry)));
  }
  return wanted;
}

/// The answer with one result after the other, which may become long: it is cut where the client
/// will be dropped for it anyway.
class ResultsAnswer {
 public:
  explicit ResultsAnswer(const ControlRequest& request)
      : m_request(request), m_text(request.AnswerHead() + ",\"results\":[") {}

  void AddError(const std::string& record, const ControlError& error) {
    Add(Json{{"record", record}, {"error", ErrorJson(error)}});
  }

  /// `bytesOf` gives the bytes of one of `rows`.
  template <class Rows, class Bytes>
  void AddRows(const RecordLayout& layout, std::time_t time, const Rows& rows, Bytes bytesOf) {
    Json list = Json::array();
    for (const auto& row : rows) {
      if (IsFull()) {
        return;
      }
      list.push_back(RowToJson(layout, bytesOf(row)));
    }
    Add(Json{{"record", layout.name},
             {"category", std::string(1, static_cast<char>(layout.category))},
             {"time", time},
             {"rows", std::move(list)}});
  }

  void Send() { m_request.Peer().Answer(std::move(m_text) + "]}"); }

 private:
  [[nodiscard]] bool IsFull() const { return m_text.size() > m_request.Peer().OutputLimit(); }

  void Add(const Json& result) {
    if (!IsFull()) {
      m_text += std::exchange(m_separator, ",");
      m_text += JsonText(result);
    }
  }

  const ControlRequest& m_request;
  std::string m_text;
  const char* m_separator = "";
};

}  // namespace

std::variant<unsigned char, ControlError> ReadCategory(const Json& object) {
  const auto category = object.find("category");
  if (category == object.end()) {
    return static_cast<unsigned char>(0);
  }
  if (!category->is_string() || category->get_ref<const std::string&>().size() != 1) {
    return ControlError{"bad-field", "category must be a text of one character", "category"};
  }
  return static_cast<unsigned char>(category->get_ref<const std::string&>().front());
}

/// One `get` on its way: what was asked for, and the requests of those that can be asked for.
struct RecordQueries::GetPlan {
  struct Item {
    std::string record;
    ResolvedRecord resolved;
    std::size_t asker;  ///< index into `askers`; counts only for kDone
  };
  std::shared_ptr<ControlRequest> request;
  std::vector<Item> items;
  std::vector<std::shared_ptr<RecordAsker>> askers;
};

void RecordQueries::Get(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  const Json rates = request->Message().value("rates", Json(false));
  if (!rates.is_boolean()) {
    request->Fail({"bad-field", "rates must be true or false", "rates"});
    return;
  }

  GetPlan plan{request, {}, {}};
  std::map<std::pair<std::string, unsigned char>, std::size_t> ordinals;
  for (const WantedRecord& wanted : std::get<0>(records)) {
    const ResolvedRecord resolved = Resolve(wanted);
    plan.items.push_back({wanted.record, resolved, plan.askers.size()});
    if (resolved.outcome == RequestOutcome::kDone) {
      const unsigned char category = resolved.layout->category;
      const std::size_t ordinal = ordinals[{wanted.record, category}]++;
      plan.askers.push_back(
          request->Peer().Requests().Find(wanted.record, category, rates.get<bool>(), ordinal));
    }
  }

  LoopTask task;
  // A request of which nothing can be built needs no collection.
  task.isBatch = !plan.askers.empty();
  task.run = [this, plan = std::move(plan)](CMBNode& node) { RunGet(node, plan); };
  task.drop = [request] { request->Fail(StoppingError()); };
  m_loop.Post(std::move(task));
}

void RecordQueries::RunGet(CMBNode& node, const GetPlan& plan) {
  if (plan.request->Peer().IsGone()) {
    plan.request->Peer().Answer("");
    return;
  }
  std::vector<RequestOutcome> outcomes;
  if (!plan.askers.empty()) {
    outcomes = m_desk.Send(node, plan.askers, plan.items.size() - plan.askers.size());
  }
  ResultsAnswer answer(*plan.request);
  for (const GetPlan::Item& item : plan.items) {
    const RequestOutcome outcome = item.resolved.outcome == RequestOutcome::kDone
                                       ? outcomes[item.asker]
                                       : item.resolved.outcome;
    if (outcome != RequestOutcome::kDone) {
      answer.AddError(item.record, OutcomeError(outcome, item.record));
      continue;
    }
    const RecordAsker& asker = *plan.askers[item.asker];
    answer.AddRows(*item.resolved.layout, asker.AnswerTime(), asker.Rows(),
                   [](const CMBRecord* row) { return RecordBytes(*row); });
  }
  answer.Send();
}

void RecordQueries::Last(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  ResultsAnswer answer(*request);
  for (const WantedRecord& wanted : std::get<0>(records)) {
    const ResolvedRecord resolved = Resolve(wanted);
    if (resolved.outcome != RequestOutcome::kDone) {
      answer.AddError(wanted.record, OutcomeError(resolved.outcome, wanted.record));
      continue;
    }
    const RecordLayout& layout = *resolved.layout;
    if (!m_schedule.Holds(wanted.record, layout.category)) {
      answer.AddError(wanted.record,
                      {"not-scheduled", "no schedule collects the record " + wanted.record, ""});
      continue;
    }
    static const KeptRows kNone;
    const KeptRows* found = m_lastRows.Find(wanted.record, layout.category);
    const KeptRows& kept = found == nullptr ? kNone : *found;
    answer.AddRows(layout, kept.time, kept.rows,
                   [](const std::vector<unsigned char>& row) { return std::span(row); });
  }
  answer.Send();
}
