#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "json/Json.h"

/// What choosing among rows needs to know of a field.
struct RowField {
  std::string label;
  std::size_t place = 0;  ///< of the field in the record, and as a rule of the label in a row
  bool isNumeric = false;
  bool isTime = false;  ///< a whole number of it is seconds since the epoch
};

/// The field that a label means; throws what its owner throws for a label that means none.
using FieldFinder = std::function<RowField(std::string_view label)>;

/// A value as tables show it; a whole number of a time as a date.
[[nodiscard]] std::string ShownValue(const Json& value, bool isTime);

/// What a row must fulfil: one label, an operator and what the value is compared with.
class RowCondition {
 public:
  /// Bytes and stars of one that the daemon takes: each is held against every row, and each star
  /// multiplies what that takes.
  static constexpr std::size_t kLongest = 256;
  static constexpr std::size_t kMostStars = 8;

  /// Reads "LABEL=VALUE", with != < <= > >= ~ (a shell pattern) or !~ as well; blanks around the
  /// label and the value don't count. Throws std::invalid_argument for no operator and a value that
  /// its field can't have; what `find` throws passes.
  RowCondition(std::string_view text, const FieldFinder& find);

  /// The field whose value is asked for.
  [[nodiscard]] const RowField& Field() const { return m_field; }
  /// The operator as it is written.
  [[nodiscard]] std::string_view Sign() const { return m_sign; }
  /// What the value is compared with, as it is written, and whether as a number.
  [[nodiscard]] const std::string& Operand() const { return m_text; }
  [[nodiscard]] bool IsNumeric() const { return m_isNumber; }
  /// That number; 0 where texts are compared.
  [[nodiscard]] double Number() const { return m_number; }
  /// Whether that value of a row fulfils it. One that is not there fulfils != only; a number that
  /// is compared as a text is taken as tables show it.
  [[nodiscard]] bool Holds(const Json& value) const;

 private:
  enum class Operator {
    kEqual,
    kNotEqual,
    kLess,
    kLessEqual,
    kGreater,
    kGreaterEqual,
    kLike,
    kUnlike
  };

  template <class Value>
  [[nodiscard]] bool Compare(const Value& left, const Value& right) const;
  [[nodiscard]] bool HoldsText(const std::string& text) const;
  void ReadNumber();

  RowField m_field;
  bool m_isNumber = false;  ///< numbers are compared, not texts
  Operator m_operator = Operator::kEqual;
  std::string_view m_sign;
  std::string m_text;
  double m_number = 0;
};
