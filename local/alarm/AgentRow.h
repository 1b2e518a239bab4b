#pragma once

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "local/history/HistoryStore.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/ScheduleBook.h"
#include "node/LayoutRegistry.h"

/// The name of the record that the daemon makes of itself, for its alarms alone.
inline constexpr const char* kAgentRecord = "AGENT";

/// Its layout: what went wrong between two batches of the schedules.
[[nodiscard]] const RecordLayout& AgentLayout();

/// Makes the row of each batch.
class AgentRow {
 public:
  AgentRow(const BatchDesk& desk, const ScheduleBook& schedule, const HistoryStore& history)
      : m_desk(desk), m_schedule(schedule), m_history(history) {}

  /// The bytes of the row; none at the first call, which has nothing to compare with.
  /// `failedCommands`: commands of alarms that were not started, or failed, since the start.
  [[nodiscard]] std::vector<unsigned char> Make(std::time_t now, std::uint64_t failedCommands);

 private:
  /// By how much the count has grown since the last call.
  double Growth(const char* name, double count);

  const BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  const HistoryStore& m_history;
  std::map<std::string, double> m_last;
};
