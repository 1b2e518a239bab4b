#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/ask/Connection.h"
#include "client/looks/TwoLooks.h"
#include "client/view/FineShares.h"
#include "client/view/Wish.h"

/// Answers wishes by asking the daemon, over one connection.
class Looker {
 public:
  /// `stop` is that of Connection. Throws ClientError.
  Looker(const std::string& socket, int stop);

  /// What the wish comes to: figures of now are those since the look before. Of a repeated wish the
  /// workgroup, the plot and the alarm stay those of its first answer, which alone has the trends.
  /// Throws ClientError, Interrupted.
  [[nodiscard]] Sight Look(const Wish& wish);

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  void LookNow(const Wish& wish, Sight& sight);
  void LookBack(const Wish& wish, Sight& sight);
  /// The time of the kept rows next to the wish's; none at the end of what is kept.
  [[nodiscard]] std::optional<std::int64_t> StepFrom(const Wish& wish);
  [[nodiscard]] std::optional<std::int64_t> StepAlong(const Wish& wish, const std::string& record);
  void LookOnce(const Wish& wish, Sight& sight);
  /// Adds the rows of the answer and of the pages behind it to `rows`.
  void TakePages(Json& request, const std::string& record, Json& rows);
  [[nodiscard]] SeenRows Kept(const WantedRows& wanted, std::int64_t time);
  [[nodiscard]] SeenRows KeptSince(const WantedRows& wanted, std::int64_t since,
                                   std::int64_t until);
  void ReadPlot(const WantedPlot& wanted, std::int64_t time);
  void ReadVerdicts(Sight& sight);
  /// The rows that the schedule made last.
  [[nodiscard]] SeenRows Last(const WantedRows& wanted);
  void ReadAlarmList(Sight& sight, bool isWanted);
  /// True for a first look at what only two looks say all of.
  [[nodiscard]] bool Compare(const WantedRows& wanted, SeenRows& seen, TimePoint at);
  [[nodiscard]] Json RecordRequest(const WantedRows& wanted);
  [[nodiscard]] std::shared_ptr<const Schema> SchemaOf(const std::string& record);
  [[nodiscard]] double ScheduledSeconds(const std::string& record) const;

  /// What is asked for with the first answer to a wish alone.
  struct Opened {
    std::optional<ReportTable> workgroups;
    std::optional<AlarmDetails> alarm;
    std::vector<std::pair<std::int64_t, double>> plot;
    std::string plotError;
  };
  struct Comparison {
    TwoLooks looks;
    FineShares shares;
  };

  Connection m_connection;
  bool m_isPlayed;  ///< the daemon's times go on by samples of a capture
  std::uint64_t m_lastWish = 0;
  std::map<std::string, std::shared_ptr<const Schema>> m_schemas;
  std::map<std::string, Comparison> m_comparisons;  ///< by the record and what is chosen of it
  Opened m_opened;
  std::vector<Listing> m_listing;
  Status m_status;
  TimePoint m_statusAt;
  std::optional<AlarmListing> m_alarms;
  TimePoint m_alarmsAt;
  Json m_verdicts = Json::Array();
  TimePoint m_verdictsAt;
  double m_processors = 0;
};

/// The labels of `columns` and what comes besides: keys, the counters of rates, and what FineShares
/// works with. None for none.
[[nodiscard]] std::vector<std::string> CompleteColumns(const std::vector<std::string>& columns,
                                                       const Schema& schema);
