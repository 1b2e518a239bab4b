#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "local/history/HistoryStore.h"
#include "local/log/ProblemReport.h"
#include "local/loop/EventLoop.h"
#include "local/metrics/AlarmFigures.h"
#include "local/metrics/GateFigures.h"
#include "local/metrics/MetricNames.h"
#include "local/metrics/MetricText.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/ScheduleBook.h"

/// What a scrape comes to: the metrics, or why there are none.
struct MetricsAnswer {
  enum class Outcome { kDone, kBadRecord, kBadNames, kStopping, kNoMemory };

  Outcome outcome = Outcome::kDone;
  /// The metrics, in lines that all end; else, of a record that is unknown, is not served or can't
  /// be exposed, and of names that there are none of, what is wrong.
  std::string text;
};

/// Why a record can't be exposed, as in "is unknown"; null if it can.
[[nodiscard]] const char* WhyNotExposed(const std::string& record);

/// Why there are no names of the node exporter; null where there are.
[[nodiscard]] const char* WhyNoNodeNames();

/// Makes metrics of the agent's records: each scrape is one look without rates, which moves no
/// schedule's differences. Scrapes of the same records that come within kShared share a batch.
class MetricsDesk {
 public:
  static constexpr std::chrono::milliseconds kShared{1000};
  /// Sets of records whose last rows are kept.
  static constexpr std::size_t kMostSets = 8;

  MetricsDesk(EventLoop& loop, BatchDesk& desk, const ScheduleBook& schedule,
              const HistoryStore& history);

  /// The records of a scrape that names none. Those that can't be exposed are reported and left
  /// out.
  void Configure(const std::vector<std::string>& records, const ProblemReport& report);

  /// What the gate says of what it sends, at the moment of the call. Until it is set, nothing.
  void SetGateFigures(std::function<GateFigures()> figures) { m_gate = std::move(figures); }
  /// The same of alarms.
  void SetAlarmFigures(std::function<AlarmFigures()> figures) { m_alarms = std::move(figures); }
  [[nodiscard]] const std::vector<std::string>& Records() const { return m_records; }

  /// Answers a scrape of these records, or, where there are none, of the configured ones: at once
  /// or after its turn in the loop, once in any case.
  using Done = std::function<void(MetricsAnswer)>;
  void Scrape(const std::vector<std::string>& records, MetricFormat format, Done done);
  /// The same of all records that have figures under the names of the node exporter.
  void ScrapeNode(MetricFormat format, Done done);

 private:
  /// The last look at one set of records.
  struct Look;
  using Names = std::vector<std::string>;

  /// Those of a scrape that names none.
  [[nodiscard]] Names RecordsWithRows() const;
  [[nodiscard]] std::shared_ptr<Look> LookOf(const Names& records);
  void Answer(const std::shared_ptr<Look>& look, MetricFormat format, MetricNames names, Done done);
  void Post(const std::shared_ptr<Look>& look);
  void Run(CMBNode& node, const std::shared_ptr<Look>& look);
  [[nodiscard]] MetricsAnswer Render(Look& look, MetricFormat format, MetricNames names);
  void AddAgentNames(MetricText& text, Look& look);
  static void AddNodeNames(MetricText& text, Look& look);

  EventLoop& m_loop;
  BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  const HistoryStore& m_history;
  Names m_records;
  std::map<Names, std::shared_ptr<Look>> m_looks;
  std::uint64_t m_scrapes = 0;
  std::function<GateFigures()> m_gate = [] { return GateFigures(); };
  std::function<AlarmFigures()> m_alarms = [] { return AlarmFigures(); };
};
