#include "client/report/KeptRows.h"

#include <algorithm>
#include <utility>

#include "client/ask/Errors.h"
#include "client/looks/RecordNames.h"
#include "json/RowCondition.h"

namespace {

Json TextList(const std::vector<std::string>& texts) {
  Json list = Json::Array();
  for (const std::string& text : texts) {
    list.PushBack(text);
  }
  return list;
}

Json HistoryRequest(const std::string& record, const std::vector<std::string>& columns) {
  return {{"op", "history"}, {"record", record}, {"columns", TextList(columns)}};
}

void AddConditions(Json& request, const std::vector<std::string>& where) {
  if (!where.empty()) {
    request["where"] = TextList(where);
  }
}

}  // namespace

KeptRows::KeptRows(Connection& connection, std::int64_t since, std::int64_t until,
                   const std::set<std::string>& chosen)
    : m_connection(connection),
      m_since(since),
      m_until(until),
      m_status(ReadStatus(connection.Ask({{"op", "status"}}))) {
  const std::vector<Listing> listings = ReadListing(connection.Ask({{"op", "records"}}));
  for (const Listing& each : listings) {
    // What is not served has no rows, and a name that two records have is the first one's.
    m_has.emplace(each.record, each.served);
  }
  const RecordNames names(listings);
  for (const std::string& typed : chosen) {
    RecordName record = ParseRecordName(typed);
    if (!names.Resolve(record)) {
      throw UsageError("--records: " + names.Missing(record));
    }
    m_chosen.insert(record.name);
  }
  for (auto& [record, hasRows] : m_has) {
    hasRows = hasRows && IsChosen(record);
  }
}

bool KeptRows::IsChosen(const std::string& record) const {
  return m_chosen.empty() || m_chosen.count(record) != 0;
}

bool KeptRows::Has(const std::string& record) {
  const auto found = m_has.find(record);
  if (found != m_has.end() && found->second) {
    found->second = EdgeTime(record, true, m_since, m_until).has_value();
  }
  return found != m_has.end() && found->second;
}

std::string KeptRows::FirstOf(const std::vector<std::string>& records) {
  const auto found =
      std::ranges::find_if(records, [&](const std::string& record) { return Has(record); });
  return found == records.end() ? "" : *found;
}

double KeptRows::Every(const std::string& record) const {
  const auto found = std::ranges::find(m_status.schedules, record, &Schedule::record);
  return found == m_status.schedules.end() ? 0 : found->seconds;
}

Json KeptRows::AskPoints(const PointsQuestion& question, std::int64_t since, std::int64_t until) {
  Json request = HistoryRequest(question.record, question.columns);
  request["since"] = since;
  request["until"] = until;
  request["points"] = question.points;
  AddConditions(request, question.where);
  if (question.by) {
    request["by"] = TextList(*question.by);
  }
  return m_connection.Ask(std::move(request));
}

PointsAnswer KeptRows::Points(const PointsQuestion& question) {
  return ReadPoints(AskPoints(question, m_since, m_until));
}

PointsAnswer KeptRows::PointsWithMeans(PointsQuestion question) {
  PointsAnswer answer = Points(question);
  question.points = 1;
  const PointsAnswer whole = Points(question);
  for (PointSeries& series : answer.series) {
    const auto found = std::ranges::find(whole.series, series.key, &PointSeries::key);
    if (found == whole.series.end()) {
      continue;
    }
    for (const auto& [label, buckets] : found->points) {
      if (buckets.size() == 1) {
        series.means[label] = buckets.front().mean;
      }
    }
  }
  return answer;
}

void KeptRows::Each(const std::string& record, const std::vector<std::string>& columns,
                    std::int64_t since, std::int64_t until,
                    const std::function<void(const Json&)>& take,
                    const std::vector<std::string>& where) {
  Json request = HistoryRequest(record, columns);
  AddConditions(request, where);
  request["since"] = since;
  request["until"] = until;
  bool hasMore = true;
  while (hasMore) {
    Json answer = m_connection.Ask(request);
    HistoryPage page = ReadHistory(answer, {record, ""});
    for (const Json& row : page.answer.rows.Elements()) {
      take(row);
    }
    m_count += page.answer.rows.Size();
    hasMore = GoToNextPage(request, page);
  }
}

Json KeptRows::At(const std::string& record, const std::vector<std::string>& columns,
                  std::int64_t time) {
  Json request = HistoryRequest(record, columns);
  request["at"] = time;
  Json answer = m_connection.Ask(std::move(request));
  HistoryPage page = ReadHistory(answer, {record, ""});
  Json rows = std::move(page.answer.rows);
  if (!page.next.IsNull()) {
    // Further pages are of the time that was found.
    const std::int64_t found = page.next[0].Whole();
    rows = Json::Array();
    Each(record, columns, found, found, [&](const Json& row) { rows.PushBack(row); });
  }
  return rows;
}

std::optional<std::int64_t> KeptRows::EdgeTime(const std::string& record, bool isFirst,
                                               std::int64_t since, std::int64_t until) {
  Json request = HistoryRequest(record, {kRecordTime});
  request["since"] = since;
  request["until"] = until;
  request["limit"] = 1;
  request["sort"] = Json::Array({isFirst ? "+Record Time" : "-Record Time"});
  Json answer = m_connection.Ask(std::move(request));
  const HistoryPage page = ReadHistory(answer, {record, ""});
  const Json::ElementList& rows = page.answer.rows.Elements();
  const auto time = rows.empty() ? std::nullopt : NumberOf(rows.front(), kRecordTime);
  return time ? std::optional(static_cast<std::int64_t>(*time)) : std::nullopt;
}

std::optional<double> NumberOf(const Json& row, const std::string& label) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsNumber() ? std::optional(value->Number()) : std::nullopt;
}

std::string TextOf(const Json& row, const std::string& label) {
  const Json* value = row.Find(label);
  return value == nullptr || value->IsNull() ? "" : ShownValue(*value, false);
}
