#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "io/MemoryRest.h"
#include "local/control/AlarmQueries.h"
#include "local/control/ConfigQueries.h"
#include "local/control/ControlRequest.h"
#include "local/control/FollowQueries.h"
#include "local/control/GateQueries.h"
#include "local/control/HistoryQueries.h"
#include "local/control/MetricsQueries.h"
#include "local/control/RecordQueries.h"
#include "local/control/ReportQueries.h"
#include "local/control/SampleQueries.h"
#include "local/control/ScheduleQueries.h"

/// What the daemon says of itself.
struct DaemonFacts {
  std::string node;
  std::string host;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

/// What a client may ask for: a table of operations, each with the right that it needs.
class ControlOperations {
 public:
  ControlOperations(EventLoop& loop, BatchDesk& desk, ScheduleBook& schedule,
                    const LastRows& lastRows, HistoryStore& history);

  /// Where changes of the schedule are kept.
  void SetIniFile(const std::string& directory, const std::string& name) {
    m_scheduleChanges.SetIniFile(directory, name);
  }
  void SetFacts(DaemonFacts facts) { m_facts = std::move(facts); }
  /// Takes each batch of the schedules behind `lastRows`, for those who follow.
  [[nodiscard]] FollowQueries& Followers() { return m_follow; }
  [[nodiscard]] MetricsDesk& Metrics() { return m_metricsDesk; }
  /// Answers of these alarms; they outlive the questions.
  void ServeAlarms(AlarmBook& book);
  [[nodiscard]] GateQueries& TheGate() { return m_gate; }
  /// Hears of all bytes that clients are sent.
  [[nodiscard]] MemoryRest& Memory() { return m_memory; }
  /// From now on every line is refused.
  void Stop() { m_isStopping = true; }
  /// Serves one line of a client, which is answered now or, after its turn in the loop, later.
  /// While the daemon stops every line is refused.
  void Handle(const std::string& line, const std::shared_ptr<ControlPeer>& peer);

 private:
  using RequestPtr = std::shared_ptr<ControlRequest>;
  struct Operation;
  static const Operation* FindOperation(const std::string& name);

  void Records(const RequestPtr& request);
  void Schema(const RequestPtr& request);
  void Get(const RequestPtr& request) { m_queries.Get(request); }
  void Last(const RequestPtr& request) { m_queries.Last(request); }
  void Status(const RequestPtr& request);
  void Config(const RequestPtr& request) { m_config.Config(request); }
  void ConfigSet(const RequestPtr& request) { m_config.ConfigSet(request); }
  void MakeReport(const RequestPtr& request) { m_reports.Report(request); }
  void History(const RequestPtr& request) { m_history.History(request); }
  void Samples(const RequestPtr& request) { m_samples.Samples(request); }
  void ScheduleSet(const RequestPtr& request) { m_scheduleChanges.Set(request); }
  void ScheduleRemove(const RequestPtr& request) { m_scheduleChanges.Remove(request); }
  void Shutdown(const RequestPtr& request);
  void Metrics(const RequestPtr& request) { m_metrics.Metrics(request); }
  void Follow(const RequestPtr& request) { m_follow.Follow(request); }
  void Gate(const RequestPtr& request) { m_gate.Gate(*request, m_facts.host); }
  void MakeToken(const RequestPtr& request) { m_gate.MakeToken(*request); }
  void CheckToken(const RequestPtr& request) { m_gate.CheckToken(*request); }
  void Alarms(const RequestPtr& request) { m_alarms.Alarms(request); }
  void Alarm(const RequestPtr& request) { m_alarms.Alarm(request); }
  void AlarmRuleText(const RequestPtr& request) { m_alarms.Rules(request); }
  void FollowAlarms(const RequestPtr& request) { m_alarms.Follow(request); }
  void Log(const RequestPtr& request) { m_gate.Log(*request); }

  EventLoop& m_loop;
  BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  ScheduleQueries m_scheduleChanges;
  RequestTurns m_turns;
  RecordQueries m_queries;
  ConfigQueries m_config;
  ReportQueries m_reports;
  HistoryQueries m_history;
  SampleQueries m_samples;
  MetricsDesk m_metricsDesk;
  MetricsQueries m_metrics;
  FollowQueries m_follow;
  AlarmQueries m_alarms;
  GateQueries m_gate;
  MemoryRest m_memory;
  DaemonFacts m_facts;
  bool m_isStopping = false;
};
