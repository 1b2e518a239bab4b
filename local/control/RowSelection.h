#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <span>
#include <vector>

#include "local/control/RowChoices.h"

/// The choice among the rows of one record, made in stretches: those that are wanted, in the order
/// wanted, up to the limit. Rows that are equal keep their order.
class RowSelection {
 public:
  using RowBytes = std::span<const unsigned char>;

  /// What all selections together may hold of values to sort by.
  static constexpr std::size_t kMaxKeyBytes = std::size_t{64} << 20U;

  /// Choices, layout and what the rows point to must outlive the selection.
  RowSelection(const RowChoices& choices, const RecordLayout& layout, std::vector<RowBytes> rows);
  ~RowSelection() { s_keyBytes -= m_keyBytes; }
  RowSelection(const RowSelection&) = delete;
  RowSelection& operator=(const RowSelection&) = delete;

  /// Looks at rows until the time is over, at one condition of one row at least; true if there is
  /// more to look at. Throws std::bad_alloc beyond kMaxKeyBytes; the selection is of no use then.
  [[nodiscard]] bool GoOn(std::chrono::steady_clock::duration limit);
  /// How many rows are wanted, before the limit. Final once GoOn has given false.
  [[nodiscard]] std::size_t Total() const { return m_total; }
  /// The rows that are chosen, once GoOn has given false. The selection is empty then.
  [[nodiscard]] std::vector<RowBytes> Take();

 private:
  struct Before {
    const RowChoices* choices;
    bool operator()(const std::vector<Json>& a, const std::vector<Json>& b) const {
      return choices->ComesBefore(a, b);
    }
  };

  void Step();
  void Keep(RowBytes bytes);
  void KeepSorted(RowBytes bytes);
  void HoldKeyBytes(std::size_t bytes);
  void FreeKeyBytes(std::size_t bytes);

  static inline std::size_t s_keyBytes = 0;

  const RowChoices& m_choices;
  const RecordLayout& m_layout;
  std::vector<RowBytes> m_rows;  ///< those kept stand in front
  std::size_t m_most;            ///< rows to keep
  std::size_t m_next = 0;        ///< the row to look at
  std::size_t m_condition = 0;   ///< its next condition
  std::size_t m_kept = 0;        ///< rows kept as they came
  std::size_t m_total = 0;
  std::size_t m_keyBytes = 0;
  /// The rows kept in an order: sorted one by one, since a sort can't be left and gone on with.
  std::multimap<std::vector<Json>, RowBytes, Before> m_sorted;
};
