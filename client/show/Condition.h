#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/ask/Answers.h"

/// What a row must fulfil: one label, an operator and what the value is compared with.
class Condition {
 public:
  /// Reads "LABEL=VALUE", with != < <= > >= or ~ (a shell pattern) as well; blanks around the label
  /// and the value don't count. Throws UsageError for no operator, a label that the record does not
  /// have, and a value that its field can't have.
  Condition(std::string_view text, const Schema& schema);

  /// A value that is not there fulfils != only.
  [[nodiscard]] bool Holds(const Json& row) const;

 private:
  enum class Operator { kEqual, kNotEqual, kLess, kLessEqual, kGreater, kGreaterEqual, kLike };

  template <class Value>
  [[nodiscard]] bool Compare(const Value& left, const Value& right) const;

  std::string m_label;
  std::size_t m_place = 0;  ///< of the label in a row, as a rule
  bool m_isTime = false;
  bool m_isNumber = false;
  Operator m_operator = Operator::kEqual;
  std::string m_text;
  double m_number = 0;
};

/// Whether the values of the field are numbers.
[[nodiscard]] bool IsNumeric(const Field& field);
