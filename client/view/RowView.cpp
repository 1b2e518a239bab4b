#include "client/view/RowView.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Labels.h"
#include "client/show/RowValues.h"
#include "json/RowText.h"

namespace {

constexpr std::size_t kWidestText = 40;
constexpr std::size_t kRoomBetween = 1;
/// What is left of a text where there is not room for all.
constexpr std::size_t kLeastText = 12;
constexpr std::size_t kLeastLastText = 24;
constexpr std::size_t kLeastTree = 26;

const Field* FieldOf(const Schema* schema, const std::string& label) {
  return schema == nullptr ? nullptr : FindField(*schema, label);
}

/// Decimals of the figures of a field: those of one column stand below each other.
int DecimalsOfField(const Field& field) {
  if (field.meaning == "percent") {
    return 1;
  }
  const bool isWhole = field.type == "ulong" || field.type == "long" || field.type == "double";
  return isWhole && field.meaning != "rate" ? -1 : field.type == "utime" ? 3 : 1;
}

}  // namespace

RowView::RowView(const PaneRecord& kind) : m_kind(kind) {
  m_arrangement.sort = kind.sort;
  m_arrangement.tree = kind.isTreeAtFirst ? kind.tree : TreeKind::kNone;
}

WantedRows RowView::Wanted() const {
  WantedRows wanted{m_kind.record, {}, {}};
  if (m_seen == nullptr || m_seen->schema == nullptr) {
    for (const PaneColumn& column : m_kind.columns) {
      wanted.columns.emplace_back(column.label);
    }
  } else {
    wanted.columns = ColumnLabels();
  }
  if (wanted.columns.empty()) {
    return wanted;
  }
  const std::vector<std::string> tree = TreeLabels(m_kind.tree);
  wanted.columns.insert(wanted.columns.end(), tree.begin(), tree.end());
  for (const std::string& label : {m_arrangement.sort, m_filter.Label()}) {
    if (!label.empty()) {
      wanted.columns.push_back(label);
    }
  }
  return wanted;
}

void RowView::Update(std::shared_ptr<const SeenRows> seen) {
  const bool isFirst = m_columns.empty();
  m_lines.clear();
  m_seen = std::move(seen);
  if (isFirst && m_seen->schema != nullptr) {
    MakeColumns();
  }
  if (isFirst && !m_arrangement.sort.empty()) {
    SortBy(m_arrangement.sort);
  }
  Arrange();
}

void RowView::Forget() {
  m_lines.clear();
  if (m_seen != nullptr) {
    auto empty = std::make_shared<SeenRows>();
    empty->schema = m_seen->schema;
    m_seen = std::move(empty);
  }
}

void RowView::Arrange() {
  m_lines.clear();
  if (m_seen != nullptr) {
    m_lines = ArrangeRows(m_seen->rows, m_filter, m_arrangement);
  }
  FollowCursor();
}

std::size_t RowView::All() const { return m_seen == nullptr ? 0 : m_seen->rows.Size(); }

const Json* RowView::Selected() const {
  return m_cursor < m_lines.size() ? m_lines[m_cursor].row : nullptr;
}

RowView::Column RowView::MakeColumn(const std::string& label, const std::string& heading,
                                    double bytes) const {
  // A label may come from a file of settings.
  Column column{label, SafeText(heading), bytes};
  if (const Field* field = FieldOf(m_seen->schema.get(), label); field != nullptr) {
    column.decimals = DecimalsOfField(*field);
    column.isTime = IsTime(*field);
    column.isNumber = IsNumeric(*field) && !column.isTime;
    column.isCompared = column.isNumber && field->meaning != "key";
    column.place = static_cast<std::size_t>(field - m_seen->schema->fields.data());
  }
  column.width = TextWidth(column.heading);
  return column;
}

void RowView::MakeColumns() {
  m_columns.clear();
  const Schema& schema = *m_seen->schema;
  if (!m_chosen.empty()) {
    for (const std::string& label : m_chosen) {
      const auto own = std::find_if(m_kind.columns.begin(), m_kind.columns.end(),
                                    [&](const PaneColumn& one) { return one.label == label; });
      const bool isOwn = own != m_kind.columns.end();
      m_columns.push_back(MakeColumn(label, isOwn ? own->heading : label, isOwn ? own->bytes : 0));
    }
    return;
  }
  for (const PaneColumn& column : m_kind.columns) {
    if (FieldOf(&schema, column.label) != nullptr) {
      m_columns.push_back(MakeColumn(column.label, column.heading, column.bytes));
    }
  }
  if (m_columns.empty()) {
    for (const ShownColumn& column : schema.shown) {
      const bool isSize = column.label.find("Bytes") != std::string::npos;
      m_columns.push_back(MakeColumn(column.label, column.heading, isSize ? 1 : 0));
    }
  }
  if (m_columns.empty()) {
    for (const Field& field : schema.fields) {
      if (field.label != "Record Type" && field.label != "Record Time" &&
          field.label != "Interval") {
        m_columns.push_back(MakeColumn(field.label, field.label, 0));
      }
    }
  }
}

void RowView::SetColumns(std::vector<std::string> labels) {
  m_chosen = std::move(labels);
  m_firstColumn = 0;
  if (m_seen != nullptr && m_seen->schema != nullptr) {
    MakeColumns();
  }
}

std::vector<std::string> RowView::ColumnLabels() const {
  std::vector<std::string> labels;
  for (const Column& column : m_columns) {
    labels.push_back(column.label);
  }
  return labels.empty() ? m_chosen : labels;
}

void RowView::SetFilter(const std::string& text) {
  static const Schema kNone;
  const bool hasSchema = m_seen != nullptr && m_seen->schema != nullptr;
  m_filter = RowFilter(text, hasSchema ? *m_seen->schema : kNone);
  m_filterText = text;
  Arrange();
}

void RowView::SortBy(const std::string& label) {
  const Field* field = m_seen == nullptr ? nullptr : FieldOf(m_seen->schema.get(), label);
  const bool isNumeric = field != nullptr && IsNumeric(*field);
  const bool isKey = field != nullptr && field->meaning == "key";
  m_arrangement.sort = label;
  // Figures begin with the greatest, names and numbers of things with the first.
  m_arrangement.isDescending = isNumeric && !isKey;
  Arrange();
}

void RowView::ToggleMark(std::int64_t time) {
  m_marked.clear();
  if (m_markTime || m_seen == nullptr || m_seen->schema == nullptr) {
    m_markTime.reset();
    return;
  }
  for (const Json& row : m_seen->rows.Elements()) {
    m_marked.insert_or_assign(RowKey(row, *m_seen->schema), row);
  }
  m_markTime = time;
}

void RowView::FollowCursor() {
  if (!m_cursorKey.empty() && m_seen != nullptr && m_seen->schema != nullptr) {
    const auto line = std::find_if(m_lines.begin(), m_lines.end(), [&](const RowLine& one) {
      return RowKey(*one.row, *m_seen->schema) == m_cursorKey;
    });
    if (line != m_lines.end()) {
      m_cursor = static_cast<std::size_t>(line - m_lines.begin());
    }
  }
  m_cursor = std::min(m_cursor, m_lines.empty() ? 0 : m_lines.size() - 1);
}

void RowView::KeepCursorInside(std::size_t height) {
  m_top = std::min(m_top, m_cursor);
  if (height > 0 && m_cursor >= m_top + height) {
    m_top = m_cursor - height + 1;
  }
  // No room is left empty below while rows stand above.
  const std::size_t lastTop = m_lines.size() > height ? m_lines.size() - height : 0;
  m_top = std::min(m_top, lastTop);
}

std::string RowView::DifferenceText(const Json& row, const Column& column) const {
  const auto marked = m_marked.find(RowKey(row, *m_seen->schema));
  if (marked == m_marked.end()) {
    return "new";
  }
  const Json& now = ValueOf(row, column.place, column.label);
  const Json& before = ValueOf(marked->second, column.place, column.label);
  if (!now.IsNumber() || !before.IsNumber()) {
    return "-";
  }
  const double difference = now.Number() - before.Number();
  const std::string size =
      column.bytes > 0 ? BytesText(std::abs(difference) * column.bytes)
                       : FixedText(std::abs(difference),
                                   column.decimals >= 0 ? column.decimals : DecimalsOf(difference));
  return difference == 0 ? size : (difference > 0 ? "+" : "-") + size;
}

bool RowView::IsTreeColumn(const Column& column) const {
  return IsTree() && column.label == (m_arrangement.tree == TreeKind::kPaths ? "Path" : "Program");
}

std::string RowView::CellText(const RowLine& line, std::size_t place) const {
  const Column& column = m_columns[place];
  if (m_markTime && column.isCompared) {
    return DifferenceText(*line.row, column);
  }
  const Json& value = ValueOf(*line.row, column.place, column.label);
  std::string text;
  if (column.bytes > 0 && value.IsNumber()) {
    text = BytesText(value.Number() * column.bytes);
  } else if (value.IsNumber() && column.decimals >= 0) {
    text = FixedText(value.Number(), column.decimals);
  } else {
    ColumnStyle style;
    style.time = column.isTime;
    style.decimals = value.IsReal() ? DecimalsOf(value.Number()) : 0;
    text = CellOf(value, style).text;
  }
  if (!IsTreeColumn(column)) {
    return text;
  }
  if (m_arrangement.tree == TreeKind::kPaths && line.depth > 0) {
    // The groups above it stand above it.
    text.erase(0, text.rfind('/') + 1);
  }
  return std::string(2 * line.depth, ' ') + text;
}

void RowView::Measure(std::size_t height) {
  for (std::size_t i = m_top; i < std::min(m_lines.size(), m_top + height); ++i) {
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
      const std::size_t width = std::min(TextWidth(CellText(m_lines[i], column)), kWidestText);
      m_columns[column].width = std::max(m_columns[column].width, width);
    }
  }
}

std::vector<std::size_t> RowView::FittedWidths(std::size_t width) const {
  std::vector<std::size_t> widths;
  std::size_t sum = 0;
  for (const Column& column : m_columns) {
    const bool isLastText = &column == &m_columns.back() && !column.isNumber;
    const std::size_t least = IsTree() ? kLeastText : kLeastLastText;
    widths.push_back(isLastText ? std::min(column.width, least) : column.width);
    sum += widths.back() + kRoomBetween;
  }
  // Figures are never cut; the longest texts give way to what stands behind them.
  while (sum > width + kRoomBetween) {
    const auto isCuttable = [&](std::size_t i) {
      const std::size_t least = IsTreeColumn(m_columns[i]) ? kLeastTree : kLeastText;
      return !m_columns[i].isNumber && widths[i] > least && i + 1 < widths.size();
    };
    std::size_t longest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i) {
      if (isCuttable(i) && (longest == widths.size() || widths[i] > widths[longest])) {
        longest = i;
      }
    }
    if (longest == widths.size()) {
      break;
    }
    --widths[longest];
    --sum;
  }
  return widths;
}

std::vector<RowView::Place> RowView::Places(std::size_t width) const {
  const std::vector<std::size_t> widths = FittedWidths(width);
  std::vector<Place> places;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < m_columns.size(); ++i) {
    // The first column tells which row it is and stays.
    if (i != 0 && i <= m_firstColumn) {
      continue;
    }
    if (begin >= width) {
      break;
    }
    const bool isLast = i + 1 == m_columns.size();
    const std::size_t wanted = isLast && !m_columns[i].isNumber ? width - begin : widths[i];
    places.push_back({i, begin, std::min(wanted, width - begin)});
    begin += wanted + kRoomBetween;
  }
  return places;
}

void RowView::DrawHeadings(Canvas& canvas, std::size_t line) const {
  for (const Place& place : Places(canvas.Width())) {
    const Column& column = m_columns[place.column];
    const std::size_t width = TextWidth(column.heading);
    const std::size_t indent = column.isNumber && width < place.width ? place.width - width : 0;
    const bool isSorted = column.label == m_arrangement.sort;
    canvas.Put(line, place.begin + indent, column.heading,
               isSorted ? Tone::kSelected : Tone::kTitle, place.width - indent);
  }
}

void RowView::DrawRow(Canvas& canvas, std::size_t line, const RowLine& row, bool isSelected) const {
  for (const Place& place : Places(canvas.Width())) {
    const Column& column = m_columns[place.column];
    const std::string text = CellText(row, place.column);
    const std::size_t width = TextWidth(text);
    const std::size_t indent = column.isNumber && width < place.width ? place.width - width : 0;
    canvas.Put(line, place.begin + indent, text,
               m_markTime && column.isCompared ? Tone::kMark : Tone::kPlain, place.width - indent);
  }
  if (isSelected) {
    canvas.Paint(line, 0, canvas.Width(), Tone::kSelected);
  }
}

void RowView::Draw(Canvas& canvas, const Area& area) {
  m_width = canvas.Width();
  if (area.height == 0) {
    return;
  }
  const std::size_t height = area.height - 1;
  KeepCursorInside(height);
  Measure(height);
  DrawHeadings(canvas, area.line);
  for (std::size_t i = 0; i < height && m_top + i < m_lines.size(); ++i) {
    DrawRow(canvas, area.line + 1 + i, m_lines[m_top + i], m_top + i == m_cursor);
  }
}
