#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "json/RowCondition.h"
#include "json/RowOrder.h"

/// Which rows and columns to show and in what order, as typed.
struct ChoiceOptions {
  std::vector<std::string> where;    ///< see RowCondition; all must hold
  std::vector<std::string> sort;     ///< labels, the first one counts most
  std::vector<std::string> columns;  ///< labels with commas between them

  [[nodiscard]] bool Any() const { return !where.empty() || !sort.empty() || !columns.empty(); }
};

/// The options understood for one record.
class RowChoice {
 public:
  /// The languages are those of RowCondition and RowOrder. Throws UsageError, naming what is wrong.
  RowChoice(const ChoiceOptions& options, const Schema& schema);

  /// What the conditions ask keys and texts to be, as the daemon takes names of rows.
  [[nodiscard]] const std::vector<std::string>& NamedRows() const { return m_namedRows; }

  /// Leaves of the rows, and of each row, what was chosen. Rows that are equal keep their order;
  /// one without the value comes last.
  void Apply(Json& rows) const;

  // The same in parts: which rows, in which order, and which of their columns.
  [[nodiscard]] bool Holds(const Json& row) const;
  void Sort(Json& rows) const;
  [[nodiscard]] Json Narrowed(Json row) const;
  [[nodiscard]] bool HasOrder() const { return !m_sort.empty(); }

  /// Whether one of two rows is sorted before the other.
  [[nodiscard]] bool ComesBefore(const Json& a, const Json& b) const;

  /// Whether columns were chosen, which then stand in the order wanted.
  [[nodiscard]] bool HasColumns() const { return !m_columns.empty(); }

 private:
  struct Column {
    std::string label;
    std::size_t place;  ///< of the label in a row, as a rule
  };

  static Column ColumnOf(const Field& field, const Schema& schema);
  void ParseColumns(std::string_view text, const Schema& schema);
  void NameRows(const Schema& schema);

  std::vector<RowCondition> m_where;
  std::vector<std::string> m_namedRows;
  std::vector<RowOrder> m_sort;
  std::vector<Column> m_columns;
};
