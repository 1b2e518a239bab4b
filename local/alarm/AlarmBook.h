#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "json/Json.h"
#include "local/alarm/AgentRow.h"
#include "local/alarm/AlarmCapture.h"
#include "local/alarm/AlarmCommand.h"
#include "local/alarm/AlarmHistory.h"
#include "local/alarm/AlarmLosses.h"
#include "local/alarm/AlarmPast.h"
#include "local/alarm/AlarmStates.h"
#include "local/alarm/AlarmWatch.h"
#include "local/metrics/AlarmFigures.h"

/// Where alarms are defined and what is done about them.
struct AlarmBookSettings {
  std::string file;        ///< of the definitions; empty for none
  bool isRequired = true;  ///< false: none is there, and nothing is said of it
  std::string statesFile;  ///< what a restart finds the states in
  AlarmCommandSettings command;
};

/// The alarms of the host: definitions held against the rows that the schedules make, in turns of
/// the loop behind the batch that made them. Nothing is collected for it, and nothing of it is
/// waited for by a schedule. For the loop's thread.
class AlarmBook : public RecordSink {
 public:
  static constexpr std::chrono::milliseconds kTurn{10};
  /// Batches that may wait to be looked at; the oldest one is passed over for one more.
  static constexpr std::size_t kMostBatches = 8;
  /// Alarms that are remembered without the history.
  static constexpr std::size_t kMostRecent = 200;

  AlarmBook(EventLoop& loop, BatchDesk& desk, ScheduleBook& schedule, const LastRows& lastRows,
            HistoryStore& history, ProblemReport report);
  ~AlarmBook() override;

  /// Hears of each alarm that begins or ends.
  using Listener = std::function<void(const Json& alarm)>;
  void OnChange(Listener listener) { m_listeners.push_back(std::move(listener)); }
  /// Hears once of each alarm that is not evaluated, and why.
  using OffListener =
      std::function<void(const AlarmDefinition& definition, const std::string& why)>;
  void OnOff(OffListener listener) { m_onOff = std::move(listener); }

  /// Reads the definitions, whose faults are reported with file and line, and what is known of
  /// their alarms from before. Once, when the schedules are known.
  void Configure(AlarmBookSettings settings);
  /// `lastRows` takes each batch's rows before this one does.
  void Take(const ScheduledRows& rows) override;
  void EndBatch() override;
  void AbandonBatch() override { m_taken.reset(); }
  /// Writes what a restart should find.
  void Stop();

  [[nodiscard]] const std::string& File() const { return m_settings.file; }
  [[nodiscard]] const std::vector<std::unique_ptr<AlarmWatch>>& Watches() const {
    return m_watches;
  }
  /// "ok", "pending", "active" or "off".
  [[nodiscard]] static const char* StateName(const AlarmWatch& watch);
  /// The alarms that are active, newest first; and the last ones that began or ended, oldest first.
  [[nodiscard]] std::vector<Json> Active() const;
  [[nodiscard]] const std::deque<Json>& Recent() const { return m_recent; }
  [[nodiscard]] AlarmFigures Figures() const;
  /// The interval of a record's schedule; 0 where it has none.
  [[nodiscard]] std::chrono::seconds IntervalOf(const std::string& record) const;

 private:
  struct Batch;

  void ReadFile();
  void Resume();
  void ResumeOne(const Json& kept);
  void CheckSchedules();
  void Post();
  void Work();
  /// Each true if there is more to do at once.
  [[nodiscard]] bool ReadPast(std::chrono::steady_clock::time_point end);
  [[nodiscard]] bool Evaluate(std::chrono::steady_clock::time_point end);
  [[nodiscard]] bool EvaluateWatch(Batch& batch, std::chrono::steady_clock::time_point end);
  /// Goes on with the end of all alarms of definitions that are off.
  [[nodiscard]] bool EndOff(std::chrono::steady_clock::time_point end);
  [[nodiscard]] AlarmLosses Losses() const;
  void Changed(AlarmWatch& watch, AlarmState& state);
  void Captured(std::int64_t id, const std::string& record);
  void Tell(const Json& alarm);
  [[nodiscard]] static Json AlarmJson(const AlarmWatch& watch, const AlarmState& state);
  [[nodiscard]] AlarmWatch* FindWatch(const Json& alarm) const;

  EventLoop& m_loop;
  const ScheduleBook& m_schedule;
  const LastRows& m_lastRows;
  HistoryStore& m_store;
  ProblemReport m_report;
  AlarmBookSettings m_settings;
  AlarmHistory m_history;
  AlarmCapture m_capture;
  AlarmCommand m_command;
  AlarmLossLog m_lossLog;
  AgentRow m_agentRow;
  std::unique_ptr<AlarmStates> m_states;
  std::vector<std::unique_ptr<AlarmWatch>> m_watches;
  std::vector<Listener> m_listeners;
  OffListener m_onOff = [](const AlarmDefinition&, const std::string&) {};
  std::unique_ptr<Batch> m_taken;  ///< what EndBatch is to look at
  std::deque<std::unique_ptr<Batch>> m_batches;
  std::deque<AlarmPast> m_past;
  std::deque<Json> m_recent;
  std::uint64_t m_begun = 0;
  std::uint64_t m_skippedBatches = 0;
  bool m_hasAgentAlarms = false;
  bool m_isPosted = false;
  std::shared_ptr<bool> m_isAlive = std::make_shared<bool>(true);
};

/// The rows of a schedule's batch that alarms are about.
struct AlarmBook::Batch {
  AlarmBatchRows rows;
  std::size_t watch = 0;  ///< the one at work
  std::size_t row = 0;    ///< its next row
  bool hasBegun = false;  ///< the watch knows of the batch
};
