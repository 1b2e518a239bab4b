#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "io/LoopTimer.h"
#include "local/log/ProblemReport.h"
#include "local/loop/EventLoop.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/RecordSink.h"

/// One line of the ini file's section "Schedule": record name = seconds.
struct ScheduleLine {
  std::string record;
  std::string seconds;
  std::size_t number = 0;  ///< of the line in its file, from 1
};

/// What is collected at fixed intervals. Each record has one request for the life of the book.
/// Requests that are due together travel in one batch. A time that comes while the batch before
/// still waits or runs, or that has passed unnoticed, is skipped and counted.
class ScheduleBook {
 public:
  static constexpr long kMinSeconds = 1;
  static constexpr long kMaxSeconds = 86400;

  /// One record's schedule and how it went.
  struct Entry {
    std::shared_ptr<RecordAsker> asker;
    std::uint64_t number = 0;             ///< of the book's entries, of all that there ever were
    std::shared_ptr<RecordAsker> totals;  ///< asks for the same without rates; null for nobody
    std::chrono::seconds period{0};
    std::chrono::steady_clock::time_point due;
    bool isWaiting = false;  ///< its batch stands in the queue or runs
    std::uint64_t runs = 0;
    std::uint64_t skipped = 0;
    std::size_t rows = 0;      ///< of the last run
    std::time_t lastTime = 0;  ///< of the last run, seconds since the epoch
  };

  using EntryList = std::vector<std::shared_ptr<Entry>>;

  ScheduleBook(EventLoop& loop, BatchDesk& desk, RecordSink& sink);

  /// Of these records the sink is given the totals too, from the schedules' next lines on.
  void KeepTotals(std::set<std::string> records) { m_withTotals = std::move(records); }
  /// Takes the lines over. A bad one (seconds that are no whole number from 1 to 86400, a record
  /// that has a line already or that nobody knows) is reported as "path:line: ..." and left out;
  /// of unknown records the first ten are named, then their number is told. A record that is not
  /// served is asked for all the same: the agent reports it once.
  void Load(const std::string& path, const std::vector<ScheduleLine>& lines,
            const ProblemReport& report);
  /// The same, with the line and what is wrong in it told apart.
  using LineReport = std::function<void(std::size_t line, const std::string& problem)>;
  void Load(const std::vector<ScheduleLine>& lines, const LineReport& report);
  /// The same at run time: a record's schedule is made, and asks for it at once, or changed.
  /// `seconds` lies within the limits.
  void Set(const std::string& record, long seconds);
  /// Called behind each Remove that has removed a schedule; the batch's end tells of all else.
  void OnRemoved(std::function<void()> listener) { m_onRemoved = std::move(listener); }
  /// False if the record has no schedule. A batch at work is ended with it.
  [[nodiscard]] bool Remove(const std::string& record);
  /// Reads the seconds of a line; 0 if they are no whole number within the limits.
  [[nodiscard]] static long ParseSeconds(const std::string& text);
  /// Asks for every record at once, which gives the interval records their first sample, and then
  /// at their times.
  void Start();
  void Stop() { m_timer.Cancel(); }
  /// Whether a schedule collects the record.
  [[nodiscard]] bool Holds(const std::string& record, unsigned char category) const;
  [[nodiscard]] const EntryList& Entries() const { return m_entries; }

 private:
  EntryList::iterator Find(const std::string& record);
  std::shared_ptr<Entry> Add(const std::string& record, unsigned char category, long seconds);
  void WaitForNext();
  void AskForDue();
  void PostBatch(EntryList due);
  static void SetWaiting(const EntryList& entries, bool isWaiting);
  void Collect(CMBNode& node, const EntryList& due);
  /// Gives the sink what the batch has made.
  void GiveRows(CMBNode& node, const EntryList& due, std::span<const RequestOutcome> outcomes);
  /// The rows of an answer that are to be logged.
  [[nodiscard]] static std::vector<const CMBRecord*> LoggedRows(CMBNode& node,
                                                                const RecordAsker& asker);

  EventLoop& m_loop;
  BatchDesk& m_desk;
  RecordSink& m_sink;
  LoopTimer m_timer;
  EntryList m_entries;
  std::function<void()> m_onRemoved = [] {};
  std::uint64_t m_lastNumber = 0;
  std::set<std::string> m_withTotals;
  std::set<std::pair<std::string, unsigned char>> m_held;  ///< record and category of each entry
};
