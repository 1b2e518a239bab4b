#include "local/control/RecordQueries.h"

#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "json/JsonText.h"
#include "local/control/RequestTurns.h"
#include "local/control/RowChoices.h"
#include "local/control/RowSelection.h"
#include "local/history/FieldValue.h"

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

std::variant<WantedRecord, ControlError> ReadWantedRecord(const Json& element) {
  const ControlError wrong{"bad-field", "records must hold names or {\"record\", \"category\"}",
                           "records"};
  if (element.IsString()) {
    return WantedRecord{element.Text(), 0};
  }
  if (!element.IsObject()) {
    return wrong;
  }
  static constexpr std::array kMembers{"record", "category"};
  if (auto error = CheckMembers(element, kMembers)) {
    return *std::move(error);
  }
  const Json* name = element.Find("record");
  if (name == nullptr || !name->IsString()) {
    return wrong;
  }
  auto category = ReadCategory(element);
  if (auto* error = std::get_if<ControlError>(&category)) {
    return std::move(*error);
  }
  return WantedRecord{name->Text(), std::get<unsigned char>(category)};
}

std::variant<std::vector<WantedRecord>, ControlError> ReadRecords(const Json& message) {
  const Json* records = message.Find("records");
  if (records == nullptr || !records->IsArray()) {
    return ControlError{"bad-field", "records must be an array", "records"};
  }
  if (records->Size() > RecordQueries::kMaxRecords) {
    return ControlError{
        "bad-field",
        "records holds more than " + std::to_string(RecordQueries::kMaxRecords) + " names",
        "records"};
  }
  std::vector<WantedRecord> wanted;
  for (const Json& element : records->Elements()) {
    auto entry = ReadWantedRecord(element);
    if (auto* error = std::get_if<ControlError>(&entry)) {
      return std::move(*error);
    }
    wanted.push_back(std::get<WantedRecord>(std::move(entry)));
  }
  return wanted;
}

/// The choices of a request. Of a record that can't be shown there is nothing to choose from.
std::variant<RowChoices, ControlError> ReadChoices(const Json& message,
                                                   const std::vector<WantedRecord>& wanted) {
  const RecordLayout* layout = wanted.size() == 1 ? Resolve(wanted.front()).layout : nullptr;
  if (wanted.size() == 1 && layout == nullptr) {
    return RowChoices();
  }
  return RowChoices::Read(message, layout);
}

/// The answer with one result after the other. Its text is made as the client takes it.
class ResultsAnswer {
 public:
  ResultsAnswer(const ControlRequest& request, RowChoices choices)
      : m_text(request.AnswerHead() + ",\"results\":["), m_choices(std::move(choices)) {}
  ResultsAnswer(const ResultsAnswer&) = delete;
  ResultsAnswer& operator=(const ResultsAnswer&) = delete;

  void AddError(const std::string& record, const ControlError& error) {
    m_results.push_back({Json{{"record", record}, {"error", ErrorJson(error)}}, nullptr, {}, {}});
  }
  /// `owner` keeps the bytes of the rows.
  void AddRows(const RecordLayout& layout, std::time_t time, std::shared_ptr<const void> owner,
               std::vector<std::span<const unsigned char>> rows) {
    Json head{{"record", layout.name},
              {"category", std::string(1, static_cast<char>(layout.category))},
              {"time", time}};
    if (m_choices.Any()) {
      m_selection.emplace(m_choices, layout, std::exchange(rows, {}));
    }
    m_results.push_back({std::move(head), &layout, std::move(owner), std::move(rows)});
  }

  /// Sends what has been added, as soon as the rows are chosen.
  static void Send(const std::shared_ptr<ResultsAnswer>& answer, RequestTurns& turns,
                   const std::shared_ptr<ControlRequest>& request) {
    // Most choices are made in no time.
    constexpr std::chrono::milliseconds kAtOnce{2};
    if (!answer->Choose(kAtOnce)) {
      SendChosen(answer, *request);
      return;
    }
    turns.Add(request, [answer, request] {
      if (answer->Choose(kRequestTurn)) {
        return true;
      }
      SendChosen(answer, *request);
      return false;
    });
  }

 private:
  static constexpr std::size_t kPieceSize = 65536;

  struct Result {
    Json head;
    const RecordLayout* layout;  ///< null for an error
    std::shared_ptr<const void> owner;
    std::vector<std::span<const unsigned char>> rows;
  };

  static void SendChosen(const std::shared_ptr<ResultsAnswer>& answer,
                         const ControlRequest& request) {
    request.Peer().AnswerInPieces([answer](std::string& piece) { return answer->Next(piece); });
  }

  /// A turn of choosing among the rows; true if it needs another.
  bool Choose(std::chrono::milliseconds time) {
    if (!m_selection) {
      return false;
    }
    if (m_selection->GoOn(time)) {
      return true;
    }
    Result& result = m_results.back();
    result.head["rows_total"] = m_selection->Total();
    result.rows = m_selection->Take();
    m_selection.reset();
    return false;
  }

  bool Next(std::string& piece) {
    while (m_text.size() < kPieceSize && m_place < m_results.size()) {
      AddNext();
    }
    const bool isMore = m_place < m_results.size();
    piece = std::exchange(m_text, {});
    if (!isMore) {
      piece += "]}";
    }
    return isMore;
  }

  /// The head of the present result, one of its rows, or its end.
  void AddNext() {
    Result& result = m_results[m_place];
    if (!std::exchange(m_isBegun, true)) {
      m_text += m_place == 0 ? "" : ",";
      m_text += JsonText(result.head);
      if (result.layout != nullptr) {
        m_text.back() = ',';
        m_text += "\"rows\":[";
      }
    }
    if (m_row < result.rows.size()) {
      m_text += m_row == 0 ? "" : ",";
      m_text += JsonText(m_choices.RowJson(*result.layout, result.rows[m_row]));
      ++m_row;
      return;
    }
    m_text += result.layout == nullptr ? "" : "]}";
    result = {};
    ++m_place;
    m_row = 0;
    m_isBegun = false;
  }

  std::string m_text;
  RowChoices m_choices;
  std::vector<Result> m_results;
  /// Of the last result; a request with choices has but one.
  std::optional<RowSelection> m_selection;
  std::size_t m_place = 0;  ///< the result at work
  std::size_t m_row = 0;    ///< its next row
  bool m_isBegun = false;   ///< whether its head has been given
};

}  // namespace

std::variant<unsigned char, ControlError> ReadCategory(const Json& object) {
  const Json* category = object.Find("category");
  if (category == nullptr) {
    return static_cast<unsigned char>(0);
  }
  if (!category->IsString() || category->Text().size() != 1) {
    return ControlError{"bad-field", "category must be a text of one character", "category"};
  }
  return static_cast<unsigned char>(category->Text().front());
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
  RowChoices choices;
};

void RecordQueries::Get(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  const Json* rates = request->Message().Find("rates");
  if (rates != nullptr && !rates->IsBool()) {
    request->Fail({"bad-field", "rates must be true or false", "rates"});
    return;
  }

  auto choices = ReadChoices(request->Message(), std::get<0>(records));
  if (const auto* error = std::get_if<ControlError>(&choices)) {
    request->Fail(*error);
    return;
  }

  const bool isRates = rates != nullptr && rates->Bool();
  GetPlan plan{request, {}, {}, std::get<RowChoices>(std::move(choices))};
  std::map<std::pair<std::string, unsigned char>, std::size_t> ordinals;
  for (const WantedRecord& wanted : std::get<0>(records)) {
    const ResolvedRecord resolved = Resolve(wanted);
    plan.items.push_back({wanted.record, resolved, plan.askers.size()});
    if (resolved.outcome == RequestOutcome::kDone) {
      const unsigned char category = resolved.layout->category;
      const std::size_t ordinal = ordinals[{wanted.record, category}]++;
      plan.askers.push_back(
          request->Peer().Requests().Find(wanted.record, category, isRates, ordinal));
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
  try {
    AnswerGet(node, plan);
  } catch (const std::bad_alloc&) {
    plan.request->FailForMemory();
  }
}

void RecordQueries::AnswerGet(CMBNode& node, const GetPlan& plan) {
  if (plan.request->Peer().IsGone()) {
    plan.request->Peer().Answer("");
    return;
  }
  std::vector<RequestOutcome> outcomes;
  if (!m_desk.MayHold(plan.askers)) {
    plan.request->FailForMemory();
    return;
  }
  if (!plan.askers.empty()) {
    outcomes = m_desk.Send(node, plan.askers, plan.items.size() - plan.askers.size());
  }
  const auto answer = std::make_shared<ResultsAnswer>(*plan.request, plan.choices);
  for (const GetPlan::Item& item : plan.items) {
    const RequestOutcome outcome = item.resolved.outcome == RequestOutcome::kDone
                                       ? outcomes[item.asker]
                                       : item.resolved.outcome;
    if (outcome != RequestOutcome::kDone) {
      answer->AddError(item.record, OutcomeError(outcome, item.record));
      continue;
    }
    const std::shared_ptr<RecordAsker>& asker = plan.askers[item.asker];
    std::vector<std::span<const unsigned char>> rows;
    rows.reserve(asker->Rows().size());
    for (const CMBRecord* row : asker->Rows()) {
      rows.push_back(RecordBytes(*row));
    }
    answer->AddRows(*item.resolved.layout, asker->AnswerTime(), asker, std::move(rows));
  }
  ResultsAnswer::Send(answer, m_turns, plan.request);
}

void RecordQueries::Last(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  auto choices = ReadChoices(request->Message(), std::get<0>(records));
  if (const auto* error = std::get_if<ControlError>(&choices)) {
    request->Fail(*error);
    return;
  }
  const auto answer =
      std::make_shared<ResultsAnswer>(*request, std::get<RowChoices>(std::move(choices)));
  for (const WantedRecord& wanted : std::get<0>(records)) {
    const ResolvedRecord resolved = Resolve(wanted);
    if (resolved.outcome != RequestOutcome::kDone) {
      answer->AddError(wanted.record, OutcomeError(resolved.outcome, wanted.record));
      continue;
    }
    const RecordLayout& layout = *resolved.layout;
    if (!m_schedule.Holds(wanted.record, layout.category)) {
      answer->AddError(wanted.record,
                       {"not-scheduled", "no schedule collects the record " + wanted.record, ""});
      continue;
    }
    const std::shared_ptr<const KeptRows> kept = m_lastRows.Find(wanted.record, layout.category);
    answer->AddRows(layout, kept->time, kept, {kept->rows.begin(), kept->rows.end()});
  }
  ResultsAnswer::Send(answer, m_turns, request);
}
