#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/ask/Answers.h"

/// The moment of a look at a capture that is played, whose time goes on by samples and as fast as
/// it is played; `time` is the answer's, whatever it is.
[[nodiscard]] inline std::chrono::steady_clock::time_point PlayedTime(std::int64_t time) {
  constexpr std::int64_t kLatest = 9'000'000'000;  // in nanoseconds it has 63 bits
  return std::chrono::steady_clock::time_point(
      std::chrono::seconds(std::clamp<std::int64_t>(time, 0, kLatest)));
}

/// The environment's name for it, by which `replay` starts the view.
inline constexpr const char* kPlayedVariable = "QMT_VIEW_PLAYED";

/// Compares consecutive looks at one record: says of each instance, which its key fields tell from
/// the others, what happened since the look before.
class TwoLooks {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A schema without fields is that of a record which nothing can be compared of.
  explicit TwoLooks(const Schema& schema);

  /// Whether the record has fields that only two looks give a meaning.
  [[nodiscard]] bool AreNeeded() const { return m_areNeeded; }

  /// Whether there was a look that another can be compared with.
  [[nodiscard]] bool HasLast() const { return m_hasLast; }

  /// Makes of `rows`, which hold totals and were collected at `at`, what happened since the rows
  /// before: counters are differences, rates these by the second, `Interval` is the seconds between
  /// the looks. Null where nothing can be derived: in the first look, of a new instance, of a
  /// counter that went backwards, and where the look before was not earlier. Leaves the rows of a
  /// record alone that needs no two looks.
  void Compare(Json& rows, TimePoint at);

  // The same row by row, between the begin of a look and its end.
  void Begin(TimePoint at);
  void CompareRow(Json& row);
  void End();

  /// About as many as are held of the looks, however long their rows were.
  [[nodiscard]] std::size_t HeldBytes() const { return m_last.bytes + m_now.bytes; }

 private:
  enum class Kind { kKey, kCounter, kRate, kShare, kInterval };
  struct Column {
    Kind kind;
    std::string label;
    std::size_t place;      ///< of the label in a row, as a rule
    bool wraps = false;     ///< a counter of 32 bits
    std::size_t total = 0;  ///< where a counter's or a rate's total stands in Totals
  };
  using Totals = std::vector<double>;  ///< not a number where there is none
  struct Look {
    std::unordered_map<std::string, Totals> totals;  ///< by the key
    std::size_t bytes = 0;
  };

  std::size_t TotalOf(const Column& counter);
  [[nodiscard]] std::string KeyOf(const Json& row) const;
  [[nodiscard]] Totals TotalsOf(const Json& row) const;
  [[nodiscard]] Totals GrowthOf(const Totals& now, const Totals* before) const;

  std::vector<Column> m_columns;  ///< those that are part of a comparison
  std::vector<Column> m_counters;
  bool m_areNeeded = false;
  Look m_last;  ///< those that this look has not had yet
  Look m_now;
  TimePoint m_at;        ///< of the look that began last
  double m_seconds = 0;  ///< since the one before, not a number if it was the first
  bool m_hasLast = false;
};
