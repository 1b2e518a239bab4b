#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "local/control/ConfigQueries.h"
#include "local/control/ControlRequest.h"
#include "local/control/HistoryQueries.h"
#include "local/control/RecordQueries.h"
#include "local/control/ReportQueries.h"
#include "local/control/ScheduleQueries.h"

/// What the daemon says of itself.
struct DaemonFacts {
  std::string node;
  std::string host;
  std::string http;  ///< the address of the metrics; empty if there is none
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
  void SetHttpAddress(const std::string& address) { m_facts.http = address; }
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
  void ScheduleSet(const RequestPtr& request) { m_scheduleChanges.Set(request); }
  void ScheduleRemove(const RequestPtr& request) { m_scheduleChanges.Remove(request); }
  void Shutdown(const RequestPtr& request);

  EventLoop& m_loop;
  BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  ScheduleQueries m_scheduleChanges;
  RecordQueries m_queries;
  ConfigQueries m_config;
  ReportQueries m_reports;
  HistoryQueries m_history;
  DaemonFacts m_facts;
  bool m_isStopping = false;
};
