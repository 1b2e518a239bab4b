#pragma once

#include <compare>
#include <string_view>

#include "json/Json.h"
#include "json/RowCondition.h"

/// One label that rows are sorted by.
class RowOrder {
 public:
  /// Reads "LABEL", which sorts numbers in descending order and texts in ascending order; a "+" in
  /// front asks for ascending, a "-" for descending. `hasField` tells whether a text as it stands,
  /// its sign included, is a label. What `find` throws passes.
  RowOrder(std::string_view text, const FieldFinder& find,
           const std::function<bool(std::string_view)>& hasField);

  /// The field whose values are sorted.
  [[nodiscard]] const RowField& Field() const { return m_field; }
  [[nodiscard]] bool IsDescending() const { return m_isDescending; }
  /// Less: a row with `left` stands before one with `right`. One without the value stands last.
  [[nodiscard]] std::weak_ordering Compare(const Json& left, const Json& right) const;

 private:
  RowField m_field;
  bool m_isDescending = false;
};
