#include "client/report/EventParts.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <map>
#include <utility>

#include "client/ask/AlarmAnswers.h"
#include "client/report/FigureText.h"
#include "client/show/Render.h"

namespace {

constexpr std::size_t kMostAlarmsAsked = 1000;
constexpr std::size_t kMostAlarmsListed = 200;
/// Seconds within which two times tell of one start, as the clock of a host may be set.
constexpr std::int64_t kSameHostStart = 60;
constexpr std::size_t kMostGaps = 50;
constexpr const char* kRowSeconds = "Interval";
constexpr const char* kBootTime = "Boot Time";
constexpr const char* kStartTime = "Start Time";

std::vector<SummaryCell> AlarmLine(const Alarm& alarm) {
  return {TimeCell(alarm.since),
          alarm.until ? TimeCell(*alarm.until) : SummaryCell{"active", false},
          {alarm.severity, false},
          {alarm.name, false},
          {alarm.text, false}};
}

/// The last word of a key, which is a time. Times stand in keys, as points are rounded.
std::int64_t TimeOfKey(const PointSeries& series) {
  return std::strtoll(series.key.c_str() + (series.key.rfind(' ') + 1), nullptr, 10);
}

/// The times at which the host was started, by all rows of the stretch.
std::vector<std::int64_t> HostStarts(KeptRows& rows) {
  std::vector<std::int64_t> times;
  const PointsAnswer answer =
      rows.Points({"PI", {kRowSeconds}, {}, std::vector<std::string>{kBootTime}, 1});
  for (const PointSeries& series : answer.series) {
    times.push_back(TimeOfKey(series));
  }
  return StartsOf(std::move(times), kSameHostStart);
}

/// Those of the agent: the present one by what it says, the others by the rows of its own process.
std::vector<std::int64_t> AgentStarts(SummaryPart& part, KeptRows& rows) {
  const auto present = static_cast<std::int64_t>(
      std::llround(static_cast<double>(std::time(nullptr)) - rows.State().uptimeSeconds));
  const std::string record = rows.FirstOf({"PDI", "PD"});
  if (record.empty()) {
    part.notes.emplace_back(
        "Starts of the agent before its last one are known by rows of PDI or PD, and there are "
        "none.");
    return {present};
  }
  const PointsAnswer answer = rows.Points(
      {record, {kRowSeconds}, {"Program=qmtdmon"}, std::vector<std::string>{"PID", kStartTime}});
  std::vector<Span> lives;
  for (const PointSeries& series : answer.series) {
    const std::vector<Bucket>& buckets = series.Of(kRowSeconds);
    if (!buckets.empty()) {
      lives.push_back({TimeOfKey(series), buckets.back().time});
    }
  }
  return ChainedStarts(std::move(lives), present);
}

}  // namespace

std::vector<std::int64_t> StartsOf(std::vector<std::int64_t> times, std::int64_t same) {
  std::ranges::sort(times);
  std::vector<std::int64_t> starts;
  std::optional<std::int64_t> before;
  for (const std::int64_t time : times) {
    if (time > 0 && (!before || time - *before > same)) {
      starts.push_back(time);
    }
    before = time;
  }
  return starts;
}

std::vector<std::int64_t> ChainedStarts(std::vector<Span> lives, std::int64_t present) {
  std::ranges::sort(lives,
                    [](const Span& left, const Span& right) { return left.end > right.end; });
  std::vector<std::int64_t> starts{present};
  for (const Span& life : lives) {
    if (life.end < starts.back()) {
      starts.push_back(life.begin);
    }
  }
  std::ranges::reverse(starts);
  return starts;
}

std::vector<SharedGap> SharedGapsOf(const std::vector<RecordGaps>& all) {
  std::map<std::pair<std::int64_t, std::int64_t>, std::string> records;
  for (const RecordGaps& each : all) {
    for (const Span& gap : each.gaps) {
      std::string& names = records[{gap.begin, gap.end}];
      names += names.empty() ? "" : ", ";
      names += each.record;
    }
  }
  std::vector<SharedGap> gaps;
  for (const auto& [span, names] : records) {
    gaps.push_back({{span.first, span.second}, names});
  }
  return gaps;
}

void FillAlarms(SummaryPart& part, const PartInput& input) {
  const AlarmListing listing = ReadAlarms(input.rows.Daemon().Ask({{"op", "alarms"},
                                                                   {"limit", kMostAlarmsAsked},
                                                                   {"since", input.rows.Since()},
                                                                   {"until", input.rows.Until()}}));
  SummaryTable table{"", {"Since", "Until", "Severity", "Alarm", "What"}, {}};
  std::size_t count = 0;
  for (const Alarm& alarm : listing.alarms) {
    if (!input.rows.IsChosen(alarm.record)) {
      continue;
    }
    if (++count <= kMostAlarmsListed) {
      table.rows.push_back(AlarmLine(alarm));
    }
  }
  if (count == 0) {
    part.notes.emplace_back(listing.definitions.empty() ? "No alarm is defined."
                                                        : "There was no alarm.");
    return;
  }
  if (count > kMostAlarmsListed || listing.alarms.size() >= kMostAlarmsAsked) {
    part.notes.push_back("The newest " + std::to_string(table.rows.size()) +
                         " are shown; there are more.");
  }
  part.tables.push_back(std::move(table));
}

void FillRestarts(SummaryPart& part, const PartInput& input) {
  KeptRows& rows = input.rows;
  std::vector<std::pair<std::int64_t, std::string>> starts;
  if (rows.Has("PI")) {
    for (const std::int64_t time : HostStarts(rows)) {
      starts.emplace_back(time, "the host");
    }
  }
  for (const std::int64_t time : AgentStarts(part, rows)) {
    starts.emplace_back(time, "the agent");
  }
  std::erase_if(starts, [&](const auto& start) {
    return start.first < rows.Since() || start.first > rows.Until();
  });
  std::ranges::stable_sort(starts);
  if (starts.empty()) {
    part.notes.emplace_back("Neither the host nor the agent was started in this time.");
    return;
  }
  SummaryTable table{"", {"When", "What was started"}, {}};
  for (const auto& [time, what] : starts) {
    table.rows.push_back({TimeCell(time), {what, false}});
  }
  part.tables.push_back(std::move(table));
}

void FillGaps(SummaryPart& part, const PartInput& input) {
  std::vector<SharedGap> gaps = SharedGapsOf(input.gaps);
  for (const RecordGaps& each : input.gaps) {
    if (each.isCut) {
      part.notes.push_back(each.record + " has further gaps, which are shorter.");
    }
  }
  if (gaps.empty()) {
    part.notes.emplace_back(input.gaps.empty() ? "No scheduled record has rows."
                                               : "No row of a schedule is missing.");
    return;
  }
  if (gaps.size() > kMostGaps) {
    part.notes.push_back("The longest " + std::to_string(kMostGaps) + " of " +
                         std::to_string(gaps.size()) + " are shown.");
    std::ranges::stable_sort(gaps, [](const SharedGap& left, const SharedGap& right) {
      return left.span.Seconds() > right.span.Seconds();
    });
    gaps.resize(kMostGaps);
    std::ranges::stable_sort(gaps, [](const SharedGap& left, const SharedGap& right) {
      return left.span.begin < right.span.begin;
    });
  }
  SummaryTable table{"", {"From", "To", "Length", "Rows of"}, {}};
  for (const SharedGap& gap : gaps) {
    table.rows.push_back({TimeCell(gap.span.begin),
                          TimeCell(gap.span.end),
                          FigureCell(static_cast<double>(gap.span.Seconds()), "duration"),
                          {gap.records, false}});
  }
  part.tables.push_back(std::move(table));
}
