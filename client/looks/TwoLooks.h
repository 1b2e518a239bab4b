#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/ask/Answers.h"

/// Compares consecutive looks at one record: says of each instance, which its key fields tell from
/// the others, what happened since the look before.
class TwoLooks {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A schema without fields is that of a record which nothing can be compared of.
  explicit TwoLooks(const Schema& schema);

  /// Whether the record has fields that only two looks give a meaning.
  [[nodiscard]] bool AreNeeded() const { return m_areNeeded; }

  /// Makes of `rows`, which hold totals and were collected at `at`, what happened since the rows
  /// before: counters are differences, rates these by the second, `Interval` is the seconds between
  /// the looks. Null where nothing can be derived: in the first look, of a new instance, of a
  /// counter that went backwards. Leaves the rows of a record alone that needs no two looks.
  void Compare(Json& rows, TimePoint at);

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

  std::size_t TotalOf(const Column& counter);
  [[nodiscard]] std::string KeyOf(const Json& row) const;
  [[nodiscard]] Totals TotalsOf(const Json& row) const;
  [[nodiscard]] Totals GrowthOf(const Totals& now, const Totals* before) const;

  std::vector<Column> m_columns;  ///< those that are part of a comparison
  std::vector<Column> m_counters;
  bool m_areNeeded = false;
  std::unordered_map<std::string, Totals> m_last;
  TimePoint m_lastAt;
  bool m_hasLast = false;
};
