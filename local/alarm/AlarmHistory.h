#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"
#include "local/history/HistoryStore.h"
#include "local/log/ProblemReport.h"

/// A row that was kept with an alarm.
struct CapturedRow {
  std::int64_t id = 0;  ///< of the alarm
  std::string record;
  std::time_t time = 0;  ///< when the record's rows were made
  std::string row;       ///< the text of an object of label and value
};

/// What is kept of alarms in the file of the history: a table of alarms and one of the rows that
/// were captured with them, both with a column `Record Time`, so that they age and are bounded like
/// the records' own. What can't be written for the moment waits, within bounds.
class AlarmHistory {
 public:
  static constexpr std::size_t kMostWaiting = std::size_t{16} << 20;  ///< bytes
  static constexpr std::chrono::milliseconds kTurn{10};               ///< of one Flush

  AlarmHistory(HistoryStore& store, ProblemReport report)
      : m_store(store), m_report(std::move(report)) {}

  /// Keeps the alarm, in place of what was kept of the same number before.
  void Put(const Json& alarm);
  void PutRow(CapturedRow row);
  /// Writes what waits, a transaction of one turn; true if there is more and it can be gone on with
  /// at once.
  [[nodiscard]] bool Flush();
  [[nodiscard]] bool HasWaiting() const { return !m_alarms.empty() || !m_rows.empty(); }

  [[nodiscard]] std::size_t WaitingBytes() const { return m_bytes; }

  /// The greatest number that was given, 0 for none, and the alarms that have not ended: of many
  /// the newest ones.
  void ReadOpen(std::int64_t& lastId, std::vector<Json>& active);

  /// Whether the alarm of that number has ended; none where it is not kept or that can't be told.
  [[nodiscard]] std::optional<bool> HasEnded(std::int64_t id);

  /// Which alarms are read, and how far that has got.
  struct Look {
    std::int64_t since = INT64_MIN;  ///< those that were active at any moment from here
    std::int64_t until = INT64_MAX;  ///< to here
    bool isActiveOnly = false;
    std::size_t limit = 0;                ///< of all
    std::int64_t below = INT64_MAX;       ///< the numbers that are still to be looked at
    std::optional<std::int64_t> least{};  ///< none below it is asked for; once it is known
    std::vector<Json> found{};            ///< newest first
  };
  /// Reads on until `end`; true if there may be more.
  [[nodiscard]] static bool Read(SqlDatabase& database, Look& look,
                                 std::chrono::steady_clock::time_point end);
  [[nodiscard]] static std::optional<Json> Find(SqlDatabase& database, std::int64_t id);
  /// Calls `visit` with the captured rows of an alarm behind the one of number `after`, in their
  /// order, until it says false; the number of the last one.
  static std::int64_t ReadRows(SqlDatabase& database, std::int64_t id, std::int64_t after,
                               const std::function<bool(const CapturedRow&)>& visit);

  /// Alarms and rows that could not be kept, since the start.
  [[nodiscard]] std::uint64_t Lost() const { return m_lost; }

 private:
  void Bound();
  void Write(SqlDatabase& database);

  HistoryStore& m_store;
  ProblemReport m_report;
  std::deque<Json> m_alarms;
  std::deque<CapturedRow> m_rows;
  std::size_t m_bytes = 0;  ///< of what waits, about
  std::uint64_t m_lost = 0;
  std::string m_problem;
};
