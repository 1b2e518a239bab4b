#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/show/Terminal.h"

/// Blanks between two columns.
inline constexpr std::size_t kGap = 2;

/// One place of a table: safe text, without line ends.
struct Cell {
  std::string text;
  bool number = false;
};

/// Headings above rows, each column as wide as its widest cell. A column of numbers (empty cells
/// and
/// "-" aside) stands to the right.
class Table {
 public:
  /// `repeated` says of each column whether it is shown again where a table that is too wide goes
  /// on below; shorter than `headings` is fine.
  explicit Table(std::vector<std::string> headings, std::vector<bool> repeated = {});

  /// A row with as many cells as there are headings.
  void AddRow(std::vector<Cell> cells);

  /// Whole lines. One row is one line; on a screen of limited width a table that is too wide is cut
  /// into groups of columns one below the other, and into lines of heading and value if it has one
  /// row only.
  [[nodiscard]] std::string Text(const Screen& screen) const;
  /// The same of the rows that were added since it was called before, which go. The lines go on
  /// below those before, without headings, unless they are cut.
  [[nodiscard]] std::string TakeText(const Screen& screen);

 private:
  struct Column {
    std::string heading;
    bool repeated = false;
    bool numbers = true;
    std::size_t width = 0;  ///< columns of the terminal
  };

  [[nodiscard]] std::vector<std::vector<std::size_t>> Groups(std::size_t width) const;
  [[nodiscard]] std::string GroupText(const std::vector<std::size_t>& group, bool goesOn,
                                      const Screen& screen) const;
  [[nodiscard]] std::string ListText(const Screen& screen) const;
  void AppendCell(std::string& line, const std::string& text, const Column& column,
                  bool last) const;

  std::vector<Column> m_columns;
  std::vector<std::vector<Cell>> m_rows;
  bool m_isBegun = false;  ///< headings stand above
};
