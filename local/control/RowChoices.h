#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "json/RowCondition.h"
#include "json/RowOrder.h"
#include "local/control/ControlRequest.h"
#include "local/history/RowFields.h"
#include "node/LayoutRegistry.h"

/// What an array member of a request may hold.
struct TextBounds {
  std::size_t texts = 256;
  std::size_t bytes = 1024;  ///< of a text
  std::size_t stars = 1024;  ///< in a text
};

/// The texts of an array member, none where it is missing; the error names the member.
[[nodiscard]] std::variant<std::vector<std::string>, ControlError> ReadTexts(
    const Json& message, const char* name, const TextBounds& bounds = {});

/// What a request wants to see of the rows of its records: the members `columns`, `where`, `sort`,
/// `limit` and `arguments`.
class RowChoices {
 public:
  static constexpr std::int64_t kMaxLimit = 100000;
  /// Of conditions.
  static constexpr TextBounds kConditionBounds{16, RowCondition::kLongest,
                                               RowCondition::kMostStars};

  /// All rows with all fields in their own order.
  RowChoices() = default;

  /// Reads the members. `layout` is that of the one record that is asked for, or null where there
  /// are more: then all members but `arguments` are refused. It must outlive the choices. The error
  /// is bad-field with the member's name.
  [[nodiscard]] static std::variant<RowChoices, ControlError> Read(const Json& message,
                                                                   const RecordLayout* layout);

  /// Whether there is a member besides `arguments`.
  [[nodiscard]] bool Any() const { return m_isAny; }
  /// The fields to show, as their places in the layout, each once; none for all of them.
  [[nodiscard]] const std::vector<std::size_t>& Columns() const { return m_columns; }
  [[nodiscard]] const std::vector<RowOrder>& Sort() const { return m_sort; }
  [[nodiscard]] const std::vector<RowCondition>& Where() const { return m_where; }
  /// The most rows to show; none for all.
  [[nodiscard]] std::optional<std::size_t> Limit() const { return m_limit; }
  /// Whether the field has a value to show or to compare; else it is null in rows.
  [[nodiscard]] bool Shows(const FieldLayout& field) const {
    return field.hasSource && (m_hasArguments || !HoldsArguments(field));
  }
  /// Where in the layout the label stands. Throws std::invalid_argument for a label that the record
  /// does not have and for one that may not be compared.
  [[nodiscard]] RowField Find(const RecordLayout& layout, std::string_view label) const;

  /// What the conditions ask a key or a text to be: names of rows.
  [[nodiscard]] std::vector<std::string> NamedRows(const RecordLayout& layout) const;

  /// Whether the row is wanted; `valueAt` gives the value of the field at a place of the layout.
  [[nodiscard]] bool Holds(const std::function<Json(std::size_t)>& valueAt) const;
  /// The same of one condition of Where alone, by its index.
  [[nodiscard]] bool Holds(std::size_t condition,
                           const std::function<Json(std::size_t)>& valueAt) const;
  /// The values that the row is sorted by.
  [[nodiscard]] std::vector<Json> SortKeys(const std::function<Json(std::size_t)>& valueAt) const;
  /// Whether a row of the one set of sort keys stands before that of the other.
  [[nodiscard]] bool ComesBefore(const std::vector<Json>& a, const std::vector<Json>& b) const;
  /// The wanted fields as an object of label and value.
  [[nodiscard]] Json MakeRow(const RecordLayout& layout,
                             const std::function<Json(std::size_t)>& valueAt) const;

  /// The same of a row's bytes, as RowToJson makes it.
  [[nodiscard]] Json RowJson(const RecordLayout& layout,
                             std::span<const unsigned char> bytes) const;

 private:
  std::optional<ControlError> ReadPlain(const Json& message);
  std::optional<ControlError> ReadLabels(const Json& message, const RecordLayout& layout);

  bool m_isAny = false;
  bool m_hasArguments = true;
  std::vector<std::size_t> m_columns;
  std::vector<RowCondition> m_where;
  std::vector<RowOrder> m_sort;
  std::optional<std::size_t> m_limit;
};
