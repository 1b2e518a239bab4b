#include "tests/client/report/KeptServer.h"

#include <limits>

#include "json/RowCondition.h"

namespace {

std::int64_t KeptTime(const Json& row) { return row["Record Time"].Whole(); }

std::int64_t WholeOr(const Json& request, const char* name, std::int64_t other) {
  const Json* member = request.Find(name);
  return member == nullptr ? other : member->Whole();
}

/// The rows of the time that is nearest.
std::vector<Json> NearestTo(std::vector<Json> rows, std::int64_t time) {
  if (rows.empty()) {
    return rows;
  }
  const std::int64_t nearest = KeptTime(*std::ranges::min_element(
      rows, {}, [&](const Json& row) { return std::abs(KeptTime(row) - time); }));
  std::erase_if(rows, [&](const Json& row) { return KeptTime(row) != nearest; });
  return rows;
}

/// Adds a value to the points of a label, whose last bucket may be of that time already and then
/// holds `count` values.
void AddPoint(Json& points, std::size_t& count, std::int64_t time, double value) {
  if (points.Size() > 0 && points[points.Size() - 1][0].Whole() == time) {
    Json& last = points[points.Size() - 1];
    last[1] = std::min(last[1].Number(), value);
    last[2] = last[2].Number() + (value - last[2].Number()) / static_cast<double>(++count);
    last[3] = std::max(last[3].Number(), value);
  } else {
    count = 1;
    points.PushBack(Json::Array({time, value, value, value}));
  }
}

}  // namespace

KeptServer::KeptServer(Rows rows, double every, std::size_t pageRows)
    : m_rows(std::move(rows)), m_every(every), m_pageRows(pageRows) {}

std::size_t KeptServer::Asked(const std::string& record) const {
  const std::vector<Json> requests = Requests();
  return static_cast<std::size_t>(std::ranges::count_if(requests, [&](const Json& request) {
    return request["op"] == "history" && request["record"] == record;
  }));
}

Json KeptServer::Status() const {
  Json schedules = Json::Array();
  for (const auto& [record, rows] : m_rows) {
    schedules.PushBack({{"record", record},
                        {"category", "4"},
                        {"seconds", m_every},
                        {"runs", 1},
                        {"rows", rows.size()},
                        {"last_time", nullptr},
                        {"skipped", 0}});
  }
  return {{"pid", 1},
          {"uptime_seconds", 10.0},
          {"version", "1"},
          {"node", "n"},
          {"host", "h<1"},
          {"schedules", schedules},
          {"last_batch", nullptr},
          {"figures", Json::Array()}};
}

Json KeptServer::Records() const {
  Json records = Json::Array({{{"record", "HIDD"}, {"category", "4"}, {"served", false}}});
  for (const auto& [record, rows] : m_rows) {
    records.PushBack({{"record", record}, {"category", "4"}, {"served", true}});
  }
  return records;
}

std::vector<Json> KeptServer::Between(const Json& request) const {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const std::int64_t since = WholeOr(request, "since", 0);
  const std::int64_t until = WholeOr(request, "until", kMost);
  std::vector<Json> rows = m_rows.at(request["record"].Text());
  std::erase_if(rows,
                [&](const Json& row) { return KeptTime(row) < since || KeptTime(row) > until; });
  if (const Json* where = request.Find("where")) {
    for (const Json& text : where->Elements()) {
      const RowCondition condition(text.Text(),
                                   [](auto label) { return RowField{std::string(label)}; });
      std::erase_if(
          rows, [&](const Json& row) { return !condition.Holds(row[condition.Field().label]); });
    }
  }
  if (request.Find("at") != nullptr) {
    rows = NearestTo(std::move(rows), request["at"].Whole());
  }
  if (const Json* sort = request.Find("sort"); sort != nullptr && (*sort)[0].Text()[0] == '-') {
    std::ranges::reverse(rows);
  }
  return rows;
}

Json KeptServer::Page(const Json& request) const {
  const std::vector<Json> rows = Between(request);
  const Json* after = request.Find("after");
  std::size_t place = after == nullptr ? 0 : (*after)[1].Unsigned();
  const auto limit =
      static_cast<std::size_t>(WholeOr(request, "limit", static_cast<std::int64_t>(m_pageRows)));
  const std::size_t end = std::min(rows.size(), place + limit);
  Json page = Json::Array();
  for (; place < end; ++place) {
    page.PushBack(rows[place]);
  }
  Json next;
  if (end < rows.size() && request.Find("limit") == nullptr) {
    next = Json::Array({KeptTime(rows[end - 1]), end});
  }
  return {{"record", request["record"]}, {"category", "4"}, {"rows", page}, {"next", next}};
}

Json KeptServer::Points(const Json& request) const {
  const std::int64_t since = request["since"].Whole();
  const std::int64_t width = (request["until"].Whole() - since) / request["points"].Whole() + 1;
  Json series = Json::Array();
  std::map<std::pair<std::ptrdiff_t, std::string>, std::size_t> counts;
  for (const Json& row : Between(request)) {
    Json key = Json::Object();
    if (const Json* by = request.Find("by")) {
      for (const Json& label : by->Elements()) {
        key[label.Text()] = row[label.Text()];
      }
    }
    auto found = std::ranges::find_if(series.Elements(),
                                      [&](const Json& each) { return each["key"] == key; });
    if (found == series.Elements().end()) {
      series.PushBack({{"key", key}, {"points", Json::Object()}});
      found = series.Elements().end() - 1;
    }
    for (const Json& column : request["columns"].Elements()) {
      if (const Json* value = row.Find(column.Text()); value != nullptr && value->IsNumber()) {
        Json& points = (*found)["points"][column.Text()];
        points = points.IsNull() ? Json::Array() : points;
        std::size_t& count = counts[{found - series.Elements().begin(), column.Text()}];
        AddPoint(points, count, KeptTime(row) - (KeptTime(row) - since) % width, value->Number());
      }
    }
  }
  return {{"seconds", width}, {"series", series}, {"omitted", 0}};
}

std::string KeptServer::Reply(const Json& request) const {
  const std::string op = request["op"].Text();
  if (op == "status") {
    return Answer(request, {{"status", Status()}});
  }
  if (op == "records") {
    return Answer(request, {{"records", Records()}});
  }
  if (op == "alarms") {
    return Answer(
        request, {{"alarms",
                   {{"file", "alarms"}, {"definitions", Json::Array()}, {"list", Json::Array()}}}});
  }
  return Answer(request,
                {{"history", request.Find("points") == nullptr ? Page(request) : Points(request)}});
}
