#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "json/RowCondition.h"

/// Which rows are to be seen: a condition in the language of --where, or a plain text that one of
/// the row's texts or numbers contains in any (ASCII) case.
class RowFilter {
 public:
  /// All rows.
  RowFilter() = default;
  /// A text with an operator behind a label of the schema is a condition, every other one a plain
  /// text. Throws UsageError for a condition that can't be meant.
  RowFilter(const std::string& text, const Schema& schema);

  [[nodiscard]] bool IsOn() const { return m_condition || !m_plain.empty(); }
  /// The label that must be there beside what is shown; empty for none.
  [[nodiscard]] std::string Label() const;
  [[nodiscard]] bool Holds(const Json& row) const;

 private:
  std::optional<RowCondition> m_condition;
  std::string m_plain;  ///< in small letters
};
