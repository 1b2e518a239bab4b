#include "local/control/ControlOperations.h"

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <span>

#include "local/control/AskedRecords.h"
#include "local/control/FactsJson.h"
#include "local/history/FieldValue.h"
#include "node/FigureRegistry.h"
#include "node/LayoutRegistry.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration) {
  constexpr double kMilliPerSecond = 1000;
  using std::chrono::milliseconds;
  return static_cast<double>(std::chrono::duration_cast<milliseconds>(duration).count()) /
         kMilliPerSecond;
}

std::string CategoryText(unsigned char category) {
  return std::string(1, static_cast<char>(category));
}

Json SchedulesJson(const ScheduleBook& schedule) {
  Json list = Json::Array();
  for (const auto& entry : schedule.Entries()) {
    list.PushBack(Json{{"record", entry->asker->Record()},
                       {"category", CategoryText(entry->asker->Category())},
                       {"seconds", entry->period.count()},
                       {"runs", entry->runs},
                       {"rows", entry->rows},
                       {"last_time", entry->lastTime},
                       {"skipped", entry->skipped}});
  }
  return list;
}

Json BatchJson(const std::optional<BatchReport>& last) {
  if (!last) {
    return nullptr;
  }
  return Json{{"age_seconds", Seconds(Clock::now() - last->end)},
              {"duration_seconds", Seconds(last->duration)},
              {"records", last->records},
              {"errors", last->errors}};
}

Json FiguresJson() {
  Json list = Json::Array();
  for (const Figure& figure : FigureRegistry::Instance().Figures()) {
    const double value = figure.read ? figure.read() : std::nan("");
    list.PushBack(Json{{"name", figure.name},
                       {"help", figure.help},
                       {"kind", figure.kind == FigureKind::kCounter ? "counter" : "gauge"},
                       {"value", std::isfinite(value) ? Json(value) : Json(nullptr)}});
  }
  return list;
}

std::string Joined(const std::vector<std::string>& addresses) {
  std::string text;
  for (const std::string& address : addresses) {
    text += (text.empty() ? "" : ", ") + address;
  }
  return text;
}

Json LayoutJson(const RecordLayout& layout) {
  Json fields = Json::Array();
  for (const FieldLayout& field : layout.fields) {
    Json entry{{"label", field.label},
               {"type", FieldTypeText(field)},
               {"offset", field.offset},
               {"width", field.width},
               {"meaning", FieldMeaningName(field.meaning)}};
    if (*field.group != '\0') {
      entry["group"] = field.group;
    }
    if (*field.rateOf != '\0') {
      entry["of"] = field.rateOf;
    }
    if (field.needsTwoLooks) {
      entry["two_looks"] = true;
    }
    if (*field.help != '\0') {
      entry["help"] = field.help;
    }
    if (!field.hasSource) {
      entry["source"] = false;
    }
    fields.PushBack(std::move(entry));
  }
  Json schema{{"record", layout.name},
              {"structure", layout.structure},
              {"category", CategoryText(layout.category)},
              {"size", layout.size},
              {"fields", std::move(fields)}};
  if (*layout.about != '\0') {
    schema["about"] = layout.about;
  }
  if (!layout.shown.empty()) {
    Json shown = Json::Array();
    for (const ShownColumn& column : layout.shown) {
      shown.PushBack(Json{{"label", column.label}, {"heading", column.heading}});
    }
    schema["shown"] = std::move(shown);
  }
  return schema;
}

}  // namespace

struct ControlOperations::Operation {
  const char* name;
  Rights right;
  std::array<const char*, 16> members;
  void (ControlOperations::*serve)(const RequestPtr&);
};

const ControlOperations::Operation* ControlOperations::FindOperation(const std::string& name) {
  static constexpr std::array<Operation, 23> kOperations{{
      {"records", Rights::kRead, {"op", "id"}, &ControlOperations::Records},
      {"schema", Rights::kRead, {"op", "id", "record", "category"}, &ControlOperations::Schema},
      {"get",
       Rights::kRead,
       {"op", "id", "records", "rates", "named", "columns", "where", "sort", "limit", "arguments"},
       &ControlOperations::Get},
      {"last",
       Rights::kRead,
       {"op", "id", "records", "columns", "where", "sort", "limit", "arguments"},
       &ControlOperations::Last},
      {"status", Rights::kRead, {"op", "id"}, &ControlOperations::Status},
      {"config", Rights::kRead, {"op", "id"}, &ControlOperations::Config},
      {"config_set", Rights::kChange, {"op", "id", "item", "value"}, &ControlOperations::ConfigSet},
      {"report",
       Rights::kRead,
       {"op", "id", "report", "arguments"},
       &ControlOperations::MakeReport},
      {"history",
       Rights::kRead,
       {"op", "id", "record", "category", "since", "until", "at", "after", "columns", "where",
        "sort", "limit", "arguments", "points", "by"},
       &ControlOperations::History},
      {"schedule_set",
       Rights::kChange,
       {"op", "id", "record", "seconds"},
       &ControlOperations::ScheduleSet},
      {"schedule_remove",
       Rights::kChange,
       {"op", "id", "record"},
       &ControlOperations::ScheduleRemove},
      {"metrics",
       Rights::kRead,
       {"op", "id", "records", "format", "names"},
       &ControlOperations::Metrics},
      {"samples",
       Rights::kRead,
       {"op", "id", "records", "names", "after", "since", "samples"},
       &ControlOperations::Samples},
      {"follow", Rights::kRead, {"op", "id", "records", "arguments"}, &ControlOperations::Follow},
      {"gate",
       Rights::kRead,
       {"op", "id", "addresses", "push", "notices"},
       &ControlOperations::Gate},
      {"alarms",
       Rights::kRead,
       {"op", "id", "since", "until", "limit", "state"},
       &ControlOperations::Alarms},
      {"alarm", Rights::kRead, {"op", "id", "arguments"}, &ControlOperations::Alarm},
      {"alarm_rules", Rights::kRead, {"op", "id"}, &ControlOperations::AlarmRuleText},
      {"alarm_follow", Rights::kRead, {"op", "id"}, &ControlOperations::FollowAlarms},
      {"console_token", Rights::kAdmit, {"op", "id"}, &ControlOperations::MakeToken},
      {"token_check", Rights::kRead, {"op", "id", "token"}, &ControlOperations::CheckToken},
      {"log", Rights::kRead, {"op", "id", "lines"}, &ControlOperations::Log},
      {"shutdown", Rights::kChange, {"op", "id"}, &ControlOperations::Shutdown},
  }};
  for (const Operation& operation : kOperations) {
    if (name == operation.name) {
      return &operation;
    }
  }
  return nullptr;
}

ControlOperations::ControlOperations(EventLoop& loop, BatchDesk& desk, ScheduleBook& schedule,
                                     const LastRows& lastRows, HistoryStore& history)
    : m_loop(loop),
      m_desk(desk),
      m_schedule(schedule),
      m_scheduleChanges(schedule),
      m_turns(loop),
      m_queries(loop, m_turns, desk, schedule, lastRows),
      m_config(loop),
      m_reports(loop),
      m_history(m_turns, history),
      m_samples(m_turns, history, schedule),
      m_metricsDesk(loop, desk, schedule, history),
      m_metrics(m_metricsDesk),
      m_follow(lastRows),
      m_alarms(m_turns, history),
      m_memory(loop) {
  m_metricsDesk.SetGateFigures([this] { return m_gate.Figures(); });
}

void ControlOperations::ServeAlarms(AlarmBook& book) {
  m_alarms.Serve(book);
  m_metricsDesk.SetAlarmFigures([&book] { return book.Figures(); });
}

void ControlOperations::Handle(const std::string& line, const std::shared_ptr<ControlPeer>& peer) {
  auto parsed = ParseRequestLine(line);
  if (const auto* error = std::get_if<ControlError>(&parsed)) {
    ControlRequest(Json::Object(), peer).Fail(*error);
    return;
  }
  const auto request = std::make_shared<ControlRequest>(std::get<Json>(std::move(parsed)), peer);
  if (m_isStopping || EventLoop::IsStopRequested()) {
    request->Fail(StoppingError());
    return;
  }
  const Json* op = request->Message().Find("op");
  if (op == nullptr || !op->IsString()) {
    request->Fail({"bad-field", "op must be the name of an operation", "op"});
    return;
  }
  const auto& name = op->Text();
  const Operation* operation = FindOperation(name);
  if (operation == nullptr) {
    request->Fail({"unknown-op", "no operation \"" + name + "\"", "op"});
  } else if (peer->PeerRights() < operation->right) {
    request->Fail({"permission-denied", "permission denied", ""});
  } else if (const auto error = CheckMembers(request->Message(), operation->members)) {
    request->Fail(*error);
  } else {
    (this->*operation->serve)(request);
  }
}

void ControlOperations::Records(const RequestPtr& request) {
  const LayoutRegistry& registry = LayoutRegistry::Instance();
  Json list = Json::Array();
  for (const RecordListing& row : registry.Listing()) {
    list.PushBack(Json{{"record", row.name},
                       {"category", CategoryText(row.category)},
                       {"served", row.served},
                       {"layout", registry.Find(row.name, row.category) != nullptr}});
  }
  request->Succeed("records", std::move(list));
}

void ControlOperations::Schema(const RequestPtr& request) {
  const Json* record = request->Message().Find("record");
  if (record == nullptr || !record->IsString()) {
    request->Fail({"bad-field", "record must be the name of a record", "record"});
    return;
  }
  const auto category = ReadCategory(request->Message());
  if (const auto* error = std::get_if<ControlError>(&category)) {
    request->Fail(*error);
    return;
  }
  const auto& name = record->Text();
  const RecordLayout* layout =
      LayoutRegistry::Instance().Find(name, std::get<unsigned char>(category));
  if (layout == nullptr) {
    request->Fail({"unknown-record", "no record \"" + name + "\"", "record"});
    return;
  }
  request->Succeed("schema", LayoutJson(*layout));
}

void ControlOperations::Status(const RequestPtr& request) {
  const GateFigures gate = m_gate.Figures();
  request->Succeed("status", Json{{"pid", ::getpid()},
                                  {"uptime_seconds", Seconds(Clock::now() - m_facts.start)},
                                  {"version", QMT_VERSION},
                                  {"node", m_facts.node},
                                  {"host", m_facts.host},
                                  {"http", Joined(m_gate.Addresses())},
                                  {"schedules", SchedulesJson(m_schedule)},
                                  {"last_batch", BatchJson(m_desk.Last())},
                                  {"last_scheduled_batch", BatchJson(m_desk.LastOfSchedule())},
                                  {"history", m_history.StateJson()},
                                  {"push", ::FiguresJson(gate.push)},
                                  {"notices", ::FiguresJson(gate.notices)},
                                  {"facts", FactsJson()},
                                  {"figures", FiguresJson()}});
}

void ControlOperations::Shutdown(const RequestPtr& request) {
  request->Succeed();
  LoopTask task;
  task.run = [](CMBNode& node) {
    CMBUnsolicitedEvent<CMBShutdown> event;
    event.m_records.emplace_back();
    node.Dispatch(&event);
  };
  m_loop.Post(std::move(task));
}
