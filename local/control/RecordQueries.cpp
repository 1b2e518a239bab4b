#include "local/control/RecordQueries.h"

#include <map>
#include <new>
#include <span>
#include <utility>

#include "local/control/AskedRecords.h"
#include "local/control/ResultsAnswer.h"
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

}  // namespace

/// One `get` on its way: what was asked for, and the requests of those that can be asked for.
struct RecordQueries::GetPlan {
  struct Item {
    AskedRecord asked;
    std::size_t asker;  ///< index into `askers`; counts only for kDone
  };
  std::shared_ptr<ControlRequest> request;
  std::vector<Item> items;
  std::vector<std::shared_ptr<RecordAsker>> askers;
};

void RecordQueries::Get(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadAskedRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  const Json* rates = request->Message().Find("rates");
  if (rates != nullptr && !rates->IsBool()) {
    request->Fail({"bad-field", "rates must be true or false", "rates"});
    return;
  }

  const bool isRates = rates != nullptr && rates->Bool();
  GetPlan plan{request, {}, {}};
  std::map<std::pair<std::string, unsigned char>, std::size_t> ordinals;
  for (AskedRecord& asked : std::get<0>(records)) {
    const std::size_t asker = plan.askers.size();
    if (asked.outcome == RequestOutcome::kDone) {
      const unsigned char category = asked.layout->category;
      const std::size_t ordinal = ordinals[{asked.name, category}]++;
      plan.askers.push_back(
          request->Peer().Requests().Find(asked.name, category, isRates, ordinal));
      plan.askers.back()->NameRows(asked.choices.NamedRows(*asked.layout));
    }
    plan.items.push_back({std::move(asked), asker});
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
    m_desk.ReleaseMemory();
  }
  const auto answer = std::make_shared<ResultsAnswer>(*plan.request);
  for (const auto& [asked, place] : plan.items) {
    const RequestOutcome outcome =
        asked.outcome == RequestOutcome::kDone ? outcomes[place] : asked.outcome;
    if (outcome != RequestOutcome::kDone) {
      answer->AddError(asked.name, OutcomeError(outcome, asked.name));
      continue;
    }
    const std::shared_ptr<RecordAsker>& asker = plan.askers[place];
    std::vector<std::span<const unsigned char>> rows;
    rows.reserve(asker->Rows().size());
    for (const CMBRecord* row : asker->Rows()) {
      rows.push_back(RecordBytes(*row));
    }
    answer->AddRows(*asked.layout, asked.choices, asker->AnswerTime(), asker, std::move(rows));
  }
  ResultsAnswer::Send(answer, m_turns, plan.request);
}

void RecordQueries::Last(const std::shared_ptr<ControlRequest>& request) {
  auto records = ReadAskedRecords(request->Message());
  if (const auto* error = std::get_if<ControlError>(&records)) {
    request->Fail(*error);
    return;
  }
  const auto answer = std::make_shared<ResultsAnswer>(*request);
  for (AskedRecord& asked : std::get<0>(records)) {
    if (asked.outcome != RequestOutcome::kDone) {
      answer->AddError(asked.name, OutcomeError(asked.outcome, asked.name));
      continue;
    }
    const RecordLayout& layout = *asked.layout;
    if (!m_schedule.Holds(asked.name, layout.category)) {
      answer->AddError(asked.name,
                       {"not-scheduled", "no schedule collects the record " + asked.name, ""});
      continue;
    }
    const std::shared_ptr<const KeptRows> kept = m_lastRows.Find(asked.name, layout.category);
    answer->AddRows(layout, std::move(asked.choices), kept->time, kept,
                    kept->rows);
  }
  ResultsAnswer::Send(answer, m_turns, request);
}
