#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/view/Area.h"
#include "client/view/Canvas.h"
#include "client/view/Key.h"
#include "client/view/PaneKinds.h"
#include "client/view/RowFilter.h"
#include "client/view/RowLines.h"
#include "client/view/Wish.h"

/// The rows of one record as a table to move about in, to sort and to filter.
class RowView {
 public:
  /// `kind` must outlive it.
  explicit RowView(const PaneRecord& kind);

  [[nodiscard]] const PaneRecord& Kind() const { return m_kind; }
  /// What must be asked for.
  [[nodiscard]] WantedRows Wanted() const;

  /// Takes the rows of a new sight.
  void Update(std::shared_ptr<const SeenRows> seen);
  /// Shows no rows until the next sight: those that it has are of another moment.
  void Forget();
  /// The same rows, after the filter or the order has changed.
  void Arrange();

  /// Draws headings and rows.
  void Draw(Canvas& canvas, const Area& area);
  /// Takes a key that moves, sorts or chooses; false if it is none.
  [[nodiscard]] bool Take(const Key& key, const Area& area);

  /// Chooses the columns, labels of the layout; none for those of the beginning.
  void SetColumns(std::vector<std::string> labels);
  [[nodiscard]] std::vector<std::string> ColumnLabels() const;
  /// The filter as typed. Throws UsageError, and leaves the old one.
  void SetFilter(const std::string& text);
  [[nodiscard]] const std::string& FilterText() const { return m_filterText; }
  void SortBy(const std::string& label);
  [[nodiscard]] const std::string& SortLabel() const { return m_arrangement.sort; }
  [[nodiscard]] bool IsTree() const { return m_arrangement.tree != TreeKind::kNone; }

  /// Remembers the rows, for the differences to them that are shown from then on; forgets them the
  /// second time.
  void ToggleMark(std::int64_t time);
  /// When the mark was set; none without one.
  [[nodiscard]] std::optional<std::int64_t> MarkTime() const { return m_markTime; }

  /// The row that the cursor stands on; null if there is none.
  [[nodiscard]] const Json* Selected() const;
  [[nodiscard]] const SeenRows* Seen() const { return m_seen.get(); }
  /// Rows listed, and all of them.
  [[nodiscard]] std::size_t Shown() const { return m_lines.size(); }
  [[nodiscard]] std::size_t All() const;

 private:
  struct Column {
    std::string label;
    std::string heading;
    double bytes = 0;
    int decimals = -1;  ///< of a number; -1 for as many as it has
    bool isTime = false;
    bool isNumber = false;
    bool isCompared = false;  ///< a figure whose difference to the mark says something
    std::size_t place = 0;    ///< of the label in the record
    std::size_t width = 0;    ///< the widest so far
  };

  void MakeColumns();
  [[nodiscard]] Column MakeColumn(const std::string& label, const std::string& heading,
                                  double bytes) const;
  void FollowCursor();
  void KeepCursorInside(std::size_t height);
  /// Whether it shows how deep a row lies.
  [[nodiscard]] bool IsTreeColumn(const Column& column) const;
  [[nodiscard]] std::string CellText(const RowLine& line, std::size_t column) const;
  [[nodiscard]] std::string DifferenceText(const Json& row, const Column& column) const;
  void Measure(std::size_t height);
  void DrawHeadings(Canvas& canvas, std::size_t line) const;
  void DrawRow(Canvas& canvas, std::size_t line, const RowLine& row, bool isSelected) const;
  /// Where each visible column begins, and its index.
  struct Place {
    std::size_t column;
    std::size_t begin;
    std::size_t width;
  };
  /// Widths of the columns, for a frame of that width.
  [[nodiscard]] std::vector<std::size_t> FittedWidths(std::size_t width) const;
  [[nodiscard]] std::vector<Place> Places(std::size_t width) const;
  [[nodiscard]] bool TakeMove(const Key& key, const Area& area);
  [[nodiscard]] bool TakeSort(const Key& key);
  [[nodiscard]] bool TakeClick(const Key& key, const Area& area);
  void MoveSort(int by);
  void Move(std::ptrdiff_t by);

  const PaneRecord& m_kind;
  std::shared_ptr<const SeenRows> m_seen;  ///< null before the first sight
  std::vector<Column> m_columns;
  std::vector<std::string> m_chosen;  ///< labels; none for those of the beginning
  std::string m_filterText;
  RowFilter m_filter;
  RowArrangement m_arrangement;
  std::vector<RowLine> m_lines;
  std::size_t m_cursor = 0;
  std::size_t m_top = 0;
  std::size_t m_firstColumn = 0;  ///< columns are shifted out of sight to the left
  std::size_t m_width = 80;       ///< of the frame drawn last
  std::string m_cursorKey;        ///< the row that the cursor follows; empty at the top
  std::map<std::string, Json> m_marked;
  std::optional<std::int64_t> m_markTime;
};
