#include "local/metrics/AgentMetrics.h"

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "node/FigureRegistry.h"

namespace {

constexpr const char* kPrefix = "qmt_agent_";

void Begin(MetricText& text, const char* name, const char* help, MetricKind kind,
           const char* unit = "") {
  MetricFamily family;
  family.name = std::string(kPrefix) + name;
  family.help = help;
  family.kind = kind;
  family.unit = unit;
  text.Begin(family);
}

void AddOne(MetricText& text, const char* name, const char* help, MetricKind kind, double value,
            const char* unit = "") {
  Begin(text, name, help, kind, unit);
  text.Sample({}, value);
}

double Seconds(std::chrono::steady_clock::duration length) {
  return std::chrono::duration<double>(length).count();
}

void AddFacts(MetricText& text) {
  MetricText::Labels labels{{"version", QMT_VERSION}};
  for (const Fact& fact : FigureRegistry::Instance().Facts()) {
    labels.push_back({fact.name, fact.text});
  }
  MetricFamily family;
  family.name = "qmt_agent";
  family.help = "What the agent says of itself in words";
  family.kind = MetricKind::kInfo;
  text.Begin(family);
  text.Sample(labels, 1);
}

void AddBatches(MetricText& text, const BatchDesk& desk) {
  AddOne(text, "records_built", "Rows that were made for anybody", MetricKind::kCounter,
         static_cast<double>(desk.RowsMade()));
  AddOne(text, "batches", "Batches that were sent to the agent", MetricKind::kCounter,
         static_cast<double>(desk.Batches()));
  if (const auto& last = desk.LastOfSchedule()) {
    AddOne(text, "batch_age_seconds", "Time since the end of the last batch of schedules",
           MetricKind::kGauge, Seconds(std::chrono::steady_clock::now() - last->end), "seconds");
    AddOne(text, "batch_duration_seconds", "Duration of the last batch of schedules",
           MetricKind::kGauge, Seconds(last->duration), "seconds");
    AddOne(text, "batch_failed_records",
           "Records of the last batch of schedules that were not built", MetricKind::kGauge,
           static_cast<double>(last->errors));
  }
}

void AddSchedules(MetricText& text, const ScheduleBook& schedule) {
  if (schedule.Entries().empty()) {
    return;
  }
  const auto add = [&](const char* name, const char* help, MetricKind kind, auto value) {
    Begin(text, name, help, kind);
    for (const auto& entry : schedule.Entries()) {
      text.Sample({{"record", entry->asker->Record()}}, static_cast<double>(value(*entry)));
    }
  };
  using Entry = ScheduleBook::Entry;
  add("schedule_runs", "Collections by the schedule of a record", MetricKind::kCounter,
      [](const Entry& entry) { return entry.runs; });
  add("schedule_skipped", "Times of a schedule that passed unused", MetricKind::kCounter,
      [](const Entry& entry) { return entry.skipped; });
}

void AddHistory(MetricText& text, const HistoryStore& history) {
  AddOne(text, "history_size_bytes", "Size of the history file", MetricKind::kGauge,
         static_cast<double>(history.SizeBytes()), "bytes");
  AddOne(text, "history_lost_batches", "Batches that could not be kept", MetricKind::kCounter,
         static_cast<double>(history.LostBatches()));
}

void AddAlarms(MetricText& text, const AlarmFigures& alarms) {
  if (alarms.alarms.empty()) {
    return;
  }
  Begin(text, "alarm_active", "Rows for which the alarm is active", MetricKind::kGauge);
  for (const AlarmFigures::Alarm& alarm : alarms.alarms) {
    text.Sample({{"alarm", alarm.name}, {"severity", alarm.severity}},
                static_cast<double>(alarm.active));
  }
  const auto add = [&](const char* name, const char* help, std::uint64_t value) {
    AddOne(text, name, help, MetricKind::kCounter, static_cast<double>(value));
  };
  add("alarms", "Alarms that have begun", alarms.begun);
  add("alarm_skipped_batches", "Batches that alarms were not held against", alarms.losses.batches);
  add("alarm_left_out_rows", "Rows that alarms had no room for", alarms.losses.leftOut);
  add("alarm_unkept", "Alarms and captured rows that the history does not have",
      alarms.losses.unkept);
  add("alarm_uncaptured_records", "Records that could not be captured with an alarm",
      alarms.losses.captures);
  add("alarm_commands", "Commands of alarms that were started", alarms.commands);
  add("alarm_command_failures", "Commands of alarms that failed", alarms.commandFailures);
  add("alarm_dropped_commands", "Commands of alarms that there was no room for",
      alarms.droppedCommands);
}

const char* UnitOf(const std::string& name) {
  return name.ends_with("_seconds") ? "seconds" : name.ends_with("_bytes") ? "bytes" : "";
}

MetricKind KindOf(const Figure& figure) {
  return figure.kind == FigureKind::kCounter ? MetricKind::kCounter : MetricKind::kGauge;
}

double ValueOf(const Figure& figure) { return figure.read ? figure.read() : 0; }

/// Those of one group are one family, in the place of the first.
void AddFigures(MetricText& text) {
  const std::vector<Figure>& figures = FigureRegistry::Instance().Figures();
  std::set<std::string> groups;
  for (const Figure& figure : figures) {
    if (figure.group.name.empty()) {
      AddOne(text, figure.name.c_str(), figure.help.c_str(), KindOf(figure), ValueOf(figure),
             UnitOf(figure.name));
      continue;
    }
    const Figure::Group& group = figure.group;
    if (!groups.insert(group.name).second) {
      continue;
    }
    Begin(text, group.name.c_str(), group.help.c_str(), KindOf(figure), UnitOf(group.name));
    for (const Figure& member : figures) {
      if (member.group.name == group.name) {
        text.Sample({{group.label, member.group.value}}, ValueOf(member));
      }
    }
  }
}

}  // namespace

void AddAgentMetrics(MetricText& text, const AgentFacts& facts) {
  Begin(text, "build", "The version of the daemon", MetricKind::kInfo);
  text.Sample({{"version", QMT_VERSION}}, 1);
  AddFacts(text);
  AddBatches(text, facts.desk);
  AddSchedules(text, facts.schedule);
  AddHistory(text, facts.history);
  AddOne(text, "scrapes", "Scrapes that were asked for", MetricKind::kCounter,
         static_cast<double>(facts.scrapes));
  AddGateMetrics(text, facts.gate);
  AddAlarms(text, facts.alarms);
  AddFigures(text);
}
