#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "local/alarm/AlarmBook.h"
#include "local/control/ControlRequest.h"
#include "local/control/HistoryTurns.h"

/// The operations of alarms: `alarms`, `alarm`, `alarm_rules` and `alarm_follow`. Without alarms
/// there are no definitions and an empty list.
class AlarmQueries {
 public:
  static constexpr std::size_t kUsualLimit = 100;
  static constexpr std::size_t kMostListed = 1000;
  /// Followers at a time; one more is told `busy`, but for the gate: without it nobody would be
  /// told elsewhere.
  static constexpr std::size_t kMostFollowers = 16;
  /// Changes that may wait for a follower; with one more it is dropped.
  static constexpr std::size_t kMostBehind = 1000;

  AlarmQueries(RequestTurns& turns, HistoryStore& history)
      : m_history(history), m_turns(turns, history) {}
  ~AlarmQueries();

  /// From now on its alarms are told; it outlives the questions.
  void Serve(AlarmBook& book);
  void Alarms(const std::shared_ptr<ControlRequest>& request);
  void Alarm(const std::shared_ptr<ControlRequest>& request);
  void Rules(const std::shared_ptr<ControlRequest>& request) const;
  void Follow(const std::shared_ptr<ControlRequest>& request);

 private:
  class Follower;

  [[nodiscard]] Json DefinitionsJson() const;
  void AnswerList(const ControlRequest& request, std::vector<Json> kept, std::size_t limit) const;
  void Tell(const Json& alarm);

  AlarmBook* m_book = nullptr;
  HistoryStore& m_history;
  HistoryTurns m_turns;
  std::vector<std::shared_ptr<Follower>> m_followers;
};
