#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "local/control/ControlRequest.h"
#include "local/control/HistoryTurns.h"
#include "local/control/RowReader.h"
#include "local/control/TotalsReader.h"
#include "local/history/HistoryStore.h"
#include "local/schedule/ScheduleBook.h"

/// Why the operation `samples` has nothing of a record, as in "is unknown"; null if it has.
[[nodiscard]] const char* WhyNotSampled(const std::string& record);

/// The operation `samples`: kept rows as the samples that /metrics would have shown of them, for
/// who pushes them on.
class SampleQueries {
 public:
  /// Names in one request.
  static constexpr std::size_t kMostRecords = 64;
  static constexpr std::size_t kMostSamples = 100000;
  static constexpr std::size_t kUsualSamples = 10000;
  /// The longest time that an answer names until it is of use to ask again.
  static constexpr std::chrono::seconds kLongestWait{60};
  /// Who has looked for so long answers with what there is, and where to go on from: clients do not
  /// wait for ever, and would begin anew where they did.
  static constexpr std::chrono::milliseconds kLongestLook{5000};
  /// An answer that is longer ends.
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  /// All outlive it and the requests.
  SampleQueries(RequestTurns& turns, HistoryStore& store, const ScheduleBook& schedule,
                std::chrono::milliseconds longestLook = kLongestLook);
  ~SampleQueries();
  SampleQueries(const SampleQueries&) = delete;
  SampleQueries& operator=(const SampleQueries&) = delete;

  void Samples(const std::shared_ptr<ControlRequest>& request);

 private:
  /// What is asked for, and how far it has come.
  struct Work;

  /// Whether it needs another turn.
  bool TakeTurn(SqlDatabase& database, Work& work);
  /// How a turn has ended: all is read, there is more than one answer takes, or time was up.
  enum class Reading { kDone, kHasMore, kWaits };
  using TurnClock = TotalsReader::Clock;
  [[nodiscard]] Reading ReadOn(Work& work, TurnClock::time_point end);
  void DropReaders();
  /// Those of before a table has changed.
  void DropOldReaders(SqlDatabase& database);
  void SeekAll(SqlDatabase& database, Work& work, TurnClock::time_point end);
  void RestAll(Work& work);
  void Answer(Work& work, bool isMore);
  /// Whole seconds until a schedule makes the next row of a record that is asked for; one that runs
  /// late is due now.
  [[nodiscard]] long WaitFor(const Work& work) const;

  HistoryStore& m_store;
  const ScheduleBook& m_schedule;
  HistoryTurns m_turns;
  std::chrono::milliseconds m_longestLook;
  std::map<const RecordLayout*, std::unique_ptr<RowReader>> m_readers;
  std::optional<TotalsReader> m_totals;
  std::int64_t m_schema = 0;  ///< of the file as the readers are made for it
};
