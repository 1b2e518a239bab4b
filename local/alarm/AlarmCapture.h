#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "local/alarm/AlarmHistory.h"
#include "local/loop/EventLoop.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/RecordSink.h"
#include "local/schedule/ScheduleBook.h"
#include "node/LayoutRegistry.h"

/// The rows that a batch made, by record.
using AlarmBatchRows = std::map<std::string, std::shared_ptr<const KeptRows>>;

/// Keeps rows of other records with an alarm that begins: those of the same batch; else, also where
/// that has none, the last ones of the record's schedule, if they are younger than its interval;
/// else what it tells when asked, once, in a batch behind the present one.
class AlarmCapture {
 public:
  static constexpr std::size_t kMostRows = 1000;  ///< of one record
  static constexpr std::size_t kMostJobs = 64;    ///< records that wait to be kept

  AlarmCapture(EventLoop& loop, BatchDesk& desk, const ScheduleBook& schedule,
               const LastRows& lastRows, AlarmHistory& history);
  ~AlarmCapture();

  /// `onReady` is called when there is work after an answer on demand.
  void OnReady(std::function<void()> onReady) { m_onReady = std::move(onReady); }
  /// Hears of rows that are kept after an answer on demand.
  using KeptListener = std::function<void(std::int64_t id, const std::string& record)>;
  void OnKept(KeptListener listener) { m_onKept = std::move(listener); }
  /// The alarm of that number has begun in the batch of `rows`. Which of the records' rows are kept
  /// at once.
  [[nodiscard]] std::vector<std::string> Take(std::int64_t id,
                                              const std::vector<std::string>& records,
                                              const AlarmBatchRows& rows);
  /// Puts rows into the history until `end`; true if there is more and room for it.
  [[nodiscard]] bool Work(std::chrono::steady_clock::time_point end);
  /// Records of an alarm whose rows could not be kept, since the start.
  [[nodiscard]] std::uint64_t Lost() const { return m_lost; }

 private:
  struct Job;

  /// Rows that there are already; none without any.
  [[nodiscard]] std::shared_ptr<const KeptRows> PresentRows(const std::string& record,
                                                            const AlarmBatchRows& rows) const;
  /// Whether they are kept.
  bool Add(std::int64_t id, const std::string& record, std::shared_ptr<const KeptRows> rows);
  void Demand(std::int64_t id, const std::string& record);
  void Ask(CMBNode& node);
  void Step();

  EventLoop& m_loop;
  BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  const LastRows& m_lastRows;
  AlarmHistory& m_history;
  std::function<void()> m_onReady = [] {};
  KeptListener m_onKept = [](std::int64_t, const std::string&) {};
  std::uint64_t m_lost = 0;
  std::deque<Job> m_jobs;
  std::map<std::string, std::vector<std::int64_t>> m_demands;  ///< numbers of alarms by record
  bool m_isAsked = false;
  std::shared_ptr<bool> m_isAlive = std::make_shared<bool>(true);
};

/// Which of a record's rows are kept, in which order, as indices: those that are greatest by what
/// the record's rows are weighed by, or else the first, kMostRows at most.
[[nodiscard]] std::vector<std::size_t> ChosenRows(const RecordLayout& layout, const KeptRows& rows);
