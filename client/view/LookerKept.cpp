#include <cmath>
#include <utility>

#include "client/ask/Errors.h"
#include "client/view/Looker.h"
#include "client/view/RowMembers.h"

// What a Looker reads of the daemon's history.

namespace {

constexpr std::size_t kPlotPoints = 200;
/// Of a host with more there is a sight of so many.
constexpr std::size_t kMostKeptRows = 50'000;

}  // namespace

void Looker::LookBack(const Wish& wish, Sight& sight) {
  m_comparisons.clear();
  for (const WantedRows& wanted : wish.records) {
    SeenRows seen = Kept(wanted, sight.time);
    if (seen.error.empty() && !seen.rows.Elements().empty()) {
      const double apart = std::abs(static_cast<double>(seen.time - sight.time));
      seen.isFar = apart > 1.5 * ScheduledSeconds(wanted.record);
    }
    sight.records.insert_or_assign(wanted.record,
                                   std::make_shared<const SeenRows>(std::move(seen)));
  }
}

std::optional<std::int64_t> Looker::StepFrom(const Wish& wish) {
  Wish step = wish;
  std::optional<std::int64_t> reached;
  for (std::size_t i = 0; i < wish.count; ++i) {
    std::optional<std::int64_t> time = StepAlong(step, wish.steps);
    if (!time && wish.steps != kHostRecord) {
      // A record that is not kept leaves the steps to the host's own.
      time = StepAlong(step, kHostRecord);
    }
    if (!time) {
      // On from the newest is now; back from the oldest there is nothing.
      return wish.moment == Moment::kAfter ? std::nullopt : reached;
    }
    reached = step.time = *time;
  }
  return reached;
}

std::optional<std::int64_t> Looker::StepAlong(const Wish& wish, const std::string& record) {
  const bool isBack = wish.moment == Moment::kBefore;
  Json request{{"op", "history"}, {"record", record}, {"limit", 1}};
  request["columns"] = Json::Array({kRecordTime});
  request["sort"] = Json::Array({isBack ? "-Record Time" : "+Record Time"});
  request[isBack ? "until" : "since"] = wish.time + (isBack ? -1 : 1);
  try {
    Json answer = m_connection.Ask(std::move(request));
    const HistoryPage page = ReadHistory(answer, {record, ""});
    if (page.answer.rows.Elements().empty()) {
      return std::nullopt;
    }
    return RecordTimeOf(page.answer.rows[0]);
  } catch (const RefusedError&) {
    return std::nullopt;
  }
}

void Looker::TakePages(Json& request, const std::string& record, Json& rows) {
  bool isMore = true;
  while (isMore && rows.Size() < kMostKeptRows) {
    Json answer = m_connection.Ask(request);
    HistoryPage page = ReadHistory(answer, {record, ""});
    for (Json& row : page.answer.rows.Elements()) {
      rows.PushBack(std::move(row));
    }
    isMore = GoToNextPage(request, page);
  }
}

SeenRows Looker::Kept(const WantedRows& wanted, std::int64_t time) {
  SeenRows seen;
  seen.schema = SchemaOf(wanted.record);
  Json request = RecordRequest(wanted);
  request["op"] = "history";
  request["at"] = time;
  try {
    TakePages(request, wanted.record, seen.rows);
  } catch (const RefusedError& error) {
    seen.error = error.what();
  }
  seen.time = seen.rows.Elements().empty() ? 0 : RecordTimeOf(seen.rows[0]);
  return seen;
}

SeenRows Looker::KeptSince(const WantedRows& wanted, std::int64_t since, std::int64_t until) {
  SeenRows seen;
  seen.schema = SchemaOf(wanted.record);
  Json request = RecordRequest(wanted);
  request["op"] = "history";
  request["since"] = since;
  request["until"] = until;
  try {
    TakePages(request, wanted.record, seen.rows);
  } catch (const RefusedError& error) {
    seen.error = error.what();
  }
  return seen;
}

void Looker::ReadPlot(const WantedPlot& wanted, std::int64_t time) {
  Json request{{"op", "history"},
               {"record", wanted.record},
               {"since", time - wanted.seconds},
               {"until", time},
               {"points", kPlotPoints}};
  request["columns"] = Json::Array({wanted.label});
  request["by"] = Json::Array();
  if (!wanted.where.empty()) {
    request["where"] = TextsJson(wanted.where);
  }
  try {
    const Json answer = m_connection.Ask(std::move(request));
    const Json* history = answer.Find("history");
    const Json* series = history == nullptr ? nullptr : history->Find("series");
    if (series == nullptr || !series->IsArray() || series->Elements().empty()) {
      return;
    }
    const Json* points = series->Elements().front().Find("points");
    const Json* values = points == nullptr ? nullptr : points->Find(wanted.label);
    if (values == nullptr || !values->IsArray()) {
      return;
    }
    for (const Json& point : values->Elements()) {
      constexpr std::size_t kMean = 2;
      if (point.IsArray() && point.Size() > kMean && point[0].IsWhole() &&
          point[kMean].IsNumber()) {
        m_opened.plot.emplace_back(point[0].Whole(), point[kMean].Number());
      }
    }
  } catch (const RefusedError& error) {
    m_opened.plotError = error.what();
  }
}
