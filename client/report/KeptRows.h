#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/report/Points.h"
#include "client/report/Summary.h"

/// What is asked for as points.
struct PointsQuestion {
  std::string record;
  std::vector<std::string> columns;
  std::vector<std::string> where;
  std::optional<std::vector<std::string>> by;  ///< nothing: the record's keys
  std::int64_t points = kMostPoints;
};

/// The rows that the daemon has kept of a stretch of time. Throws ClientError.
class KeptRows {
 public:
  /// `connection` outlives it. `chosen`: the records that may be asked for, all if it is empty.
  KeptRows(Connection& connection, std::int64_t since, std::int64_t until,
           const std::set<std::string>& chosen);

  [[nodiscard]] std::int64_t Since() const { return m_since; }
  [[nodiscard]] std::int64_t Until() const { return m_until; }
  [[nodiscard]] const Status& State() const { return m_status; }
  [[nodiscard]] Connection& Daemon() { return m_connection; }

  /// Whether rows of the record may be asked for and there are any.
  [[nodiscard]] bool Has(const std::string& record);
  /// Whether the record may be asked for.
  [[nodiscard]] bool IsChosen(const std::string& record) const;
  /// The first of the records that has rows; empty if none has.
  [[nodiscard]] std::string FirstOf(const std::vector<std::string>& records);
  /// The seconds of the record's schedule, 0 if it has none.
  [[nodiscard]] double Every(const std::string& record) const;

  /// The answer as it came.
  [[nodiscard]] Json AskPoints(const PointsQuestion& question, std::int64_t since,
                               std::int64_t until);
  [[nodiscard]] PointsAnswer Points(const PointsQuestion& question);
  /// The same with the means of the series, for which it asks a second time: means of buckets do
  /// not tell it, as a bucket may hold fewer rows than another.
  [[nodiscard]] PointsAnswer PointsWithMeans(PointsQuestion question);
  /// Calls `take` with each row that fulfils `where`, the oldest first, one page in memory at a
  /// time.
  void Each(const std::string& record, const std::vector<std::string>& columns, std::int64_t since,
            std::int64_t until, const std::function<void(const Json&)>& take,
            const std::vector<std::string>& where = {});
  /// The rows of the time that is nearest to `time`.
  [[nodiscard]] Json At(const std::string& record, const std::vector<std::string>& columns,
                        std::int64_t time);
  /// The time of the first or the last row from `since` to `until`.
  [[nodiscard]] std::optional<std::int64_t> EdgeTime(const std::string& record, bool isFirst,
                                                     std::int64_t since, std::int64_t until);
  /// Rows that Each() gave so far.
  [[nodiscard]] std::uint64_t Count() const { return m_count; }

 private:
  Connection& m_connection;
  std::int64_t m_since;
  std::int64_t m_until;
  std::set<std::string> m_chosen;
  Status m_status;
  std::map<std::string, bool> m_has;
  std::uint64_t m_count = 0;
};

/// The number under the label; nothing where there is none.
[[nodiscard]] std::optional<double> NumberOf(const Json& row, const std::string& label);
/// The text under the label, a number in digits; empty where there is none.
[[nodiscard]] std::string TextOf(const Json& row, const std::string& label);

inline constexpr const char* kRecordTime = "Record Time";
