#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/show/Condition.h"

/// Which rows and columns to show and in what order, as typed.
struct ChoiceOptions {
  std::vector<std::string> where;    ///< see Condition; all must hold
  std::vector<std::string> sort;     ///< labels, the first one counts most
  std::vector<std::string> columns;  ///< labels with commas between them

  [[nodiscard]] bool Any() const { return !where.empty() || !sort.empty() || !columns.empty(); }
};

/// The options understood for one record.
class RowChoice {
 public:
  /// Numbers are sorted in descending order and texts in ascending order; a "+" in front of the
  /// label asks for ascending, a "-" for descending. Throws UsageError, naming what is wrong.
  RowChoice(const ChoiceOptions& options, const Schema& schema);

  /// Leaves of the rows, and of each row, what was chosen. Rows that are equal keep their order;
  /// one without the value comes last.
  void Apply(Json& rows) const;

  /// Whether one of two rows is sorted before the other.
  [[nodiscard]] bool ComesBefore(const Json& a, const Json& b) const;

  /// Whether columns were chosen, which then stand in the order wanted.
  [[nodiscard]] bool HasColumns() const { return !m_columns.empty(); }

 private:
  struct Column {
    std::string label;
    std::size_t place;  ///< of the label in a row, as a rule
  };
  struct SortKey {
    Column column;
    bool descending;
  };

  static Column ColumnOf(const Field& field, const Schema& schema);
  static SortKey ParseSortKey(std::string_view text, const Schema& schema);
  void ParseColumns(std::string_view text, const Schema& schema);
  [[nodiscard]] Json Narrowed(const Json& row) const;

  std::vector<Condition> m_where;
  std::vector<SortKey> m_sort;
  std::vector<Column> m_columns;
};
