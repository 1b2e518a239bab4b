#pragma once

#include <cstdint>

#include "local/history/HistoryStore.h"
#include "local/metrics/GateFigures.h"
#include "local/metrics/MetricText.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/ScheduleBook.h"

/// What the daemon has to say of itself. All is referred to for the call only.
struct AgentFacts {
  const BatchDesk& desk;
  const ScheduleBook& schedule;
  const HistoryStore& history;
  std::uint64_t scrapes;  ///< since the start
  const GateFigures& gate;
};

/// The families of the daemon itself: build, batches, schedules, history, scrapes, what the gate
/// sends, and the registered figures.
void AddAgentMetrics(MetricText& text, const AgentFacts& facts);
