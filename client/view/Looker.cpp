#include "client/view/Looker.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <optional>

#include "client/ask/Errors.h"
#include "client/looks/RecordReader.h"
#include "client/show/Labels.h"
#include "client/show/RowValues.h"
#include "client/view/RowMembers.h"

namespace {

constexpr const char* kApplications = "APP";
constexpr const char* kApplicationName = "Application Name";
constexpr const char* kVerdict = "Application Status";
constexpr std::chrono::seconds kStatusAge{10};
constexpr std::int64_t kTrendSeconds = 15 * 60;
constexpr std::int64_t kAlarmSeconds = 86400;
/// Of a record that no schedule collects any more.
constexpr double kUnknownPace = 300;

void AddColumn(std::vector<std::string>& columns, const std::string& label) {
  if (std::find(columns.begin(), columns.end(), label) == columns.end()) {
    columns.push_back(label);
  }
}

std::string ComparisonName(const WantedRows& wanted) {
  std::string name = wanted.record;
  for (const std::string& condition : wanted.where) {
    name += '\n' + condition;
  }
  return name;
}

}  // namespace

std::vector<std::string> CompleteColumns(const std::vector<std::string>& columns,
                                         const Schema& schema) {
  std::vector<std::string> all;
  if (columns.empty() || schema.fields.empty()) {
    return all;
  }
  // In the record's own order, as rows are then read fastest.
  for (const Field& field : schema.fields) {
    const auto isWanted = [&](const std::string& label) {
      return std::find(columns.begin(), columns.end(), label) != columns.end();
    };
    const bool isBase = std::any_of(
        schema.fields.begin(), schema.fields.end(),
        [&](const Field& other) { return other.rateOf == field.label && isWanted(other.label); });
    const bool isTime =
        field.label == kRecordTime || field.label == "User CPU" || field.label == "System CPU";
    if (isWanted(field.label) || field.meaning == "key" || isBase || isTime) {
      AddColumn(all, field.label);
    }
  }
  return all;
}

Looker::Looker(const std::string& socket, int stop)
    : m_connection(socket, stop), m_isPlayed(std::getenv(kPlayedVariable) != nullptr) {
  m_listing = ReadListing(m_connection.Ask({{"op", "records"}}));
}

Sight Looker::Look(const Wish& wish) {
  Sight sight;
  const bool isNew = wish.number != m_lastWish;
  if (isNew || std::chrono::steady_clock::now() - m_statusAt > kStatusAge) {
    m_status = ReadStatus(m_connection.Ask({{"op", "status"}}));
    m_statusAt = std::chrono::steady_clock::now();
  }
  sight.time = wish.time;
  if (wish.moment == Moment::kBefore || wish.moment == Moment::kAfter) {
    const bool isBack = wish.moment == Moment::kBefore;
    const auto time = StepFrom(wish);
    sight.time = time.value_or(wish.time);
    sight.isNow = !time && (!isBack || wish.isFromNow);
    sight.note = isBack && !time ? "nothing is kept of before" : "";
  } else {
    sight.isNow = wish.moment == Moment::kNow;
  }
  if (sight.isNow) {
    LookNow(wish, sight);
  } else {
    LookBack(wish, sight);
  }
  if (isNew) {
    LookOnce(wish, sight);
  }
  sight.workgroups = m_opened.workgroups;
  sight.alarm = m_opened.alarm;
  sight.plot = m_opened.plot;
  sight.plotError = m_opened.plotError;
  ReadAlarmList(sight, wish.wantsAlarms);
  ReadVerdicts(sight);
  sight.status = m_status;
  sight.listing = m_listing;
  m_lastWish = wish.number;
  return sight;
}

Json Looker::RecordRequest(const WantedRows& wanted) {
  Json request{{"record", wanted.record}};
  if (const auto schema = SchemaOf(wanted.record)) {
    if (std::vector<std::string> columns = CompleteColumns(wanted.columns, *schema);
        !columns.empty()) {
      request["columns"] = TextsJson(columns);
    }
    if (!wanted.where.empty()) {
      request["where"] = TextsJson(wanted.where);
    }
  }
  return request;
}

void Looker::LookNow(const Wish& wish, Sight& sight) {
  sight.time = std::time(nullptr);
  Json records = Json::Array();
  std::vector<const WantedRows*> asked;
  for (const WantedRows& wanted : wish.records) {
    if (wanted.record == kApplications) {
      // Verdicts are the schedule's: where nothing is defined, a look of its own would be a
      // warning in the daemon's log each time.
      sight.records.insert_or_assign(wanted.record, std::make_shared<const SeenRows>(Last(wanted)));
      continue;
    }
    records.PushBack(RecordRequest(wanted));
    asked.push_back(&wanted);
  }
  if (asked.empty()) {
    return;
  }
  std::vector<RecordName> names;
  for (const WantedRows* wanted : asked) {
    names.push_back({wanted->record, ""});
  }
  Json answer = m_connection.Ask({{"op", "get"}, {"records", std::move(records)}});
  // What was not looked at has nothing to compare with that would be of now.
  std::erase_if(m_comparisons, [&](const auto& entry) {
    return std::none_of(asked.begin(), asked.end(), [&](const WantedRows* wanted) {
      return ComparisonName(*wanted) == entry.first;
    });
  });
  const TimePoint now = std::chrono::steady_clock::now();
  std::vector<RecordAnswer> answers = ReadResults(answer, names);
  // The daemon's own clock, which an error does not tell: that of a capture that is played is
  // another one.
  const auto told = std::find_if(answers.begin(), answers.end(),
                                 [](const RecordAnswer& one) { return one.time != 0; });
  sight.time = told != answers.end() ? told->time : sight.time;
  const TimePoint at = m_isPlayed ? PlayedTime(sight.time) : now;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const WantedRows& wanted = *asked[i];
    SeenRows seen{std::move(answers[i].rows), SchemaOf(wanted.record), answers[i].time,
                  std::move(answers[i].error), false};
    if (seen.error.empty()) {
      if (wanted.record == kHostRecord && seen.rows.Size() == 1) {
        m_processors = FigureOf(seen.rows[0], "Active CPUs").value_or(0);
      }
      sight.isFirst = Compare(wanted, seen, at) || sight.isFirst;
    }
    sight.records.insert_or_assign(wanted.record,
                                   std::make_shared<const SeenRows>(std::move(seen)));
  }
}

SeenRows Looker::Last(const WantedRows& wanted) {
  Json answer =
      m_connection.Ask({{"op", "last"}, {"records", Json::Array({RecordRequest(wanted)})}});
  std::vector<RecordAnswer> answers = ReadResults(answer, {{wanted.record, ""}});
  return {std::move(answers.front().rows), SchemaOf(wanted.record), answers.front().time,
          std::move(answers.front().error), false};
}

bool Looker::Compare(const WantedRows& wanted, SeenRows& seen, TimePoint at) {
  if (seen.schema == nullptr) {
    return false;
  }
  const auto [place, isNew] = m_comparisons.try_emplace(
      ComparisonName(wanted), Comparison{TwoLooks(*seen.schema), FineShares(*seen.schema)});
  place->second.looks.Compare(seen.rows, at);
  place->second.shares.Set(seen.rows, at, m_processors);
  return isNew && place->second.looks.AreNeeded();
}

void Looker::LookOnce(const Wish& wish, Sight& sight) {
  m_opened = {};
  if (wish.wantsTrends) {
    for (const WantedRows& wanted : wish.records) {
      if (!wanted.where.empty() || wanted.columns.empty()) {
        continue;
      }
      if (wanted.record == kHostRecord || wanted.record == "NETD") {
        sight.trends.insert_or_assign(wanted.record,
                                      KeptSince(wanted, sight.time - kTrendSeconds, sight.time));
      }
    }
  }
  if (wish.process && sight.isNow) {
    try {
      m_opened.workgroups = ReadReport(
          m_connection.Ask({{"op", "report"},
                            {"report", "workgroups"},
                            {"arguments", Json{{"pid", std::to_string(*wish.process)}}}}));
    } catch (const RefusedError&) {
      // A process that has ended belongs to none.
    }
  }
  if (wish.alarm) {
    try {
      Json answer = m_connection.Ask({{"op", "alarm"}, {"id", *wish.alarm}});
      m_opened.alarm = ReadAlarm(answer, *wish.alarm);
    } catch (const RefusedError& error) {
      sight.note = error.what();
    }
  }
  if (wish.plot) {
    ReadPlot(*wish.plot, sight.time);
  }
}

void Looker::ReadVerdicts(Sight& sight) {
  const WantedRows wanted{kApplications, {kApplicationName, kVerdict}, {}};
  if (sight.isNow) {
    const TimePoint now = std::chrono::steady_clock::now();
    if (now - m_verdictsAt > kStatusAge) {
      m_verdicts = Last(wanted).rows;
      m_verdictsAt = now;
    }
  } else {
    m_verdicts = Kept(wanted, sight.time).rows;
    m_verdictsAt = {};
  }
  for (const Json& row : m_verdicts.Elements()) {
    const Json* verdict = row.Find(kVerdict);
    const Json* name = row.Find(kApplicationName);
    if (verdict != nullptr && *verdict == Json("ABNORMAL") && name != nullptr && name->IsString()) {
      sight.abnormal.push_back(name->Text());
    }
  }
}

void Looker::ReadAlarmList(Sight& sight, bool isWanted) {
  const TimePoint now = std::chrono::steady_clock::now();
  const bool isFresh = sight.isNow && m_alarms && !isWanted && now - m_alarmsAt < kStatusAge;
  if (!isFresh) {
    try {
      m_alarms = ReadAlarms(m_connection.Ask({{"op", "alarms"},
                                              {"since", sight.time - kAlarmSeconds},
                                              {"until", sight.time},
                                              {"limit", 1000}}));
    } catch (const RefusedError&) {
      m_alarms = AlarmListing();
    }
    m_alarmsAt = now;
  }
  sight.alarms = m_alarms;
  if (!sight.isNow) {
    m_alarms.reset();
  }
}

std::shared_ptr<const Schema> Looker::SchemaOf(const std::string& record) {
  const auto [place, isNew] = m_schemas.try_emplace(record);
  if (isNew) {
    try {
      place->second =
          std::make_shared<const Schema>(ReadSchema(m_connection.Ask(SchemaRequest({record, ""}))));
    } catch (const RefusedError&) {
      // Rows can be shown without a layout, only less nicely.
    }
  }
  return place->second;
}

double Looker::ScheduledSeconds(const std::string& record) const {
  const auto schedule = std::find_if(m_status.schedules.begin(), m_status.schedules.end(),
                                     [&](const Schedule& one) { return one.record == record; });
  return schedule == m_status.schedules.end() ? kUnknownPace : schedule->seconds;
}
