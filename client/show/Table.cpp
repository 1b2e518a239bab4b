#include "client/show/Table.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "client/ask/SafeText.h"

Table::Table(std::vector<std::string> headings, std::vector<bool> repeated) {
  repeated.resize(headings.size());
  for (std::size_t i = 0; i < headings.size(); ++i) {
    const std::size_t width = TextWidth(headings[i]);
    m_columns.push_back({std::move(headings[i]), repeated[i], true, width});
  }
}

void Table::AddRow(std::vector<Cell> cells) {
  cells.resize(m_columns.size());
  for (std::size_t i = 0; i < cells.size(); ++i) {
    Column& column = m_columns[i];
    const Cell& cell = cells[i];
    column.width = std::max(column.width, TextWidth(cell.text));
    column.numbers = column.numbers && (cell.number || cell.text.empty() || cell.text == "-");
  }
  m_rows.push_back(std::move(cells));
}

std::string Table::Text(const Screen& screen) const {
  const auto groups = Groups(screen.width);
  if (groups.size() > 1 && m_rows.size() == 1 && !m_isBegun) {
    return ListText(screen);
  }
  std::string text;
  for (const auto& group : groups) {
    text += text.empty() && !(m_isBegun && groups.size() > 1) ? "" : "\n";
    text += GroupText(group, m_isBegun && groups.size() == 1, screen);
  }
  return text;
}

std::string Table::TakeText(const Screen& screen) {
  std::string text = Text(screen);
  m_rows.clear();
  m_isBegun = true;
  return text;
}

std::vector<std::vector<std::size_t>> Table::Groups(std::size_t width) const {
  std::vector<std::size_t> keys;
  std::size_t keyWidth = 0;
  for (std::size_t i = 0; i < m_columns.size(); ++i) {
    if (m_columns[i].repeated) {
      keys.push_back(i);
      keyWidth += m_columns[i].width + kGap;
    }
  }
  if (keyWidth > width / 2) {
    keys.clear();
    keyWidth = 0;
  }
  std::vector<std::vector<std::size_t>> groups(1);
  std::size_t used = 0;
  std::size_t fresh = 0;
  for (std::size_t i = 0; i < m_columns.size(); ++i) {
    const std::size_t own = m_columns[i].width + kGap;
    const bool full = width != 0 && used + own > width + kGap;
    if (full && fresh != 0) {
      // A key that has its place only further on stands there, not in front of the group as well.
      groups.emplace_back();
      std::copy_if(keys.begin(), keys.end(), std::back_inserter(groups.back()),
                   [&](std::size_t key) { return key < i; });
      used = std::accumulate(
          groups.back().begin(), groups.back().end(), std::size_t{0},
          [&](std::size_t sum, std::size_t key) { return sum + m_columns[key].width + kGap; });
      fresh = 0;
    }
    groups.back().push_back(i);
    ++fresh;
    used += own;
  }
  return groups;
}

std::string Table::GroupText(const std::vector<std::size_t>& group, bool goesOn,
                             const Screen& screen) const {
  std::string heading;
  for (const std::size_t i : group) {
    AppendCell(heading, m_columns[i].heading, m_columns[i], i == group.back());
  }
  std::string text = goesOn ? "" : Emphasize(heading, screen) + '\n';
  for (const auto& row : m_rows) {
    for (const std::size_t i : group) {
      AppendCell(text, row[i].text, m_columns[i], i == group.back());
    }
    text += '\n';
  }
  return text;
}

std::string Table::ListText(const Screen& screen) const {
  std::size_t width = 0;
  for (const Column& column : m_columns) {
    width = std::max(width, TextWidth(column.heading));
  }
  std::string text;
  for (std::size_t i = 0; i < m_columns.size(); ++i) {
    const std::string& heading = m_columns[i].heading;
    text += Emphasize(heading, screen);
    text.append(width - TextWidth(heading) + kGap, ' ');
    text += m_rows.front()[i].text + '\n';
  }
  return text;
}

void Table::AppendCell(std::string& line, const std::string& text, const Column& column,
                       bool last) const {
  const std::size_t blanks = column.width - TextWidth(text);
  if (column.numbers) {
    line.append(blanks, ' ');
  }
  line += text;
  if (!last) {
    line.append((column.numbers ? 0 : blanks) + kGap, ' ');
  }
}
