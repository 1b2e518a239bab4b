#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <list>
#include <stdexcept>
#include <string_view>

#include "node/LayoutRegistry.h"
#include "node/Record.h"
#include "tests/support/Testing.h"

// Rows as clients see them: the bytes of a record through its published layout.

/// A figure to as many digits as a test compares, a hyphen for one that is not told.
inline std::string FigureText(double figure, FieldType type) {
  char text[32] = "-";
  if (!std::isnan(figure)) {
    std::snprintf(text, sizeof text, type == FieldType::kFloat ? "%.6g" : "%.10g", figure);
  }
  return text;
}

template <class Number>
double NumberAt(const char* place) {
  Number number{};
  std::memcpy(&number, place, sizeof number);
  return static_cast<double>(number);
}

/// A field's value, a hyphen for a text that is empty.
inline std::string FieldText(const CMBRecord& record, const FieldLayout& field) {
  const char* const place = static_cast<const char*>(record.GetRecStart()) + field.offset;
  switch (field.type) {
    case FieldType::kText: {
      const std::string text(place, ::strnlen(place, field.width));
      return text.empty() ? "-" : text;
    }
    case FieldType::kLong:
      return FigureText(NumberAt<std::int32_t>(place), field.type);
    case FieldType::kUlong:
      return FigureText(NumberAt<std::uint32_t>(place), field.type);
    case FieldType::kFloat:
      return FigureText(NumberAt<float>(place), field.type);
    case FieldType::kDouble:
      return FigureText(NumberAt<double>(place), field.type);
    default:
      return "a field of another type";
  }
}

inline const RecordLayout& LayoutOf(const CMBRecord& record) {
  const RecordLayout* const layout =
      LayoutRegistry::Instance().Find(record.GetRecType(), record.GetDataType());
  if (layout == nullptr) {
    throw std::runtime_error(std::string("no layout of ") + record.GetRecType());
  }
  return *layout;
}

inline std::string FieldText(const CMBRecord& record, std::string_view label) {
  for (const FieldLayout& field : LayoutOf(record).fields) {
    if (field.label == label) {
      return FieldText(record, field);
    }
  }
  return "no such field";
}

/// The rows that a record is to have in each way to ask for it, from a table of
/// tests/fixtures/modern-rows, whose README.md tells the form.
class RowTable {
 public:
  explicit RowTable(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    m_columns = CutAt('\t', line);
    Row common;
    while (std::getline(in, line)) {
      if (line == "row") {
        m_rows.push_back(common);
        continue;
      }
      std::vector<std::string> cells = CutAt('\t', line);
      const std::string last = cells.back();
      cells.resize(m_columns.size(), last);
      (m_rows.empty() ? common : m_rows.back())[cells.front()] = cells;
    }
  }

  /// Compares all fields of the records: one that the table does not name is to tell nothing.
  void Expect(const std::list<CMBRecord*>& records, const std::string& column) const {
    SCOPED_TRACE(column);
    std::size_t place = 1;
    while (place < m_columns.size() && m_columns[place] != column) {
      ++place;
    }
    ASSERT_LT(place, m_columns.size());
    ASSERT_FALSE(m_rows.empty());
    ASSERT_EQ(records.size(), m_rows.size());
    auto row = m_rows.begin();
    for (const CMBRecord* record : records) {
      SCOPED_TRACE(row - m_rows.begin());
      std::size_t found = 0;
      for (const FieldLayout& field : LayoutOf(*record).fields) {
        const auto cells = row->find(field.label);
        const bool isNamed = cells != row->end();
        found += isNamed ? 1 : 0;
        EXPECT_EQ(FieldText(*record, field), Expected(field, isNamed ? cells->second[place] : ""))
            << field.label;
      }
      EXPECT_EQ(found, row->size()) << "a label of the table that the record lacks";
      ++row;
    }
  }

 private:
  using Row = std::map<std::string, std::vector<std::string>>;

  static std::string Expected(const FieldLayout& field, const std::string& cell) {
    if (field.type == FieldType::kText || cell == "-") {
      return cell.empty() ? "-" : cell;
    }
    const bool canBeUntold = field.type == FieldType::kFloat || field.type == FieldType::kDouble;
    return cell.empty() && canBeUntold ? "-"
                                       : FigureText(std::strtod(cell.c_str(), nullptr), field.type);
  }

  std::vector<std::string> m_columns;
  std::vector<Row> m_rows;
};
