#include <algorithm>

#include "client/show/Labels.h"
#include "client/view/RowView.h"

bool RowView::Take(const Key& key, const Area& area) {
  return TakeMove(key, area) || TakeSort(key) || TakeClick(key, area);
}

void RowView::Move(std::ptrdiff_t by) {
  if (m_lines.empty()) {
    return;
  }
  const auto last = static_cast<std::ptrdiff_t>(m_lines.size()) - 1;
  m_cursor = static_cast<std::size_t>(
      std::clamp(static_cast<std::ptrdiff_t>(m_cursor) + by, std::ptrdiff_t{0}, last));
  // From the top on the cursor stays there: who looks at the first wants whatever is first.
  m_cursorKey = m_cursor == 0 || m_seen->schema == nullptr
                    ? std::string()
                    : RowKey(*m_lines[m_cursor].row, *m_seen->schema);
}

bool RowView::TakeMove(const Key& key, const Area& area) {
  const auto page = static_cast<std::ptrdiff_t>(std::max<std::size_t>(area.height, 3)) - 2;
  constexpr std::ptrdiff_t kAll = 1'000'000'000;
  switch (key.code) {
    case KeyCode::kUp:
    case KeyCode::kWheelUp:
      Move(-1);
      return true;
    case KeyCode::kDown:
    case KeyCode::kWheelDown:
      Move(1);
      return true;
    case KeyCode::kPageUp:
      Move(-page);
      return true;
    case KeyCode::kPageDown:
      Move(page);
      return true;
    case KeyCode::kHome:
      Move(-kAll);
      return true;
    case KeyCode::kEnd:
      Move(kAll);
      return true;
    case KeyCode::kLeft:
      m_firstColumn -= m_firstColumn > 0 ? 1 : 0;
      return true;
    case KeyCode::kRight:
      m_firstColumn += m_firstColumn + 2 < m_columns.size() ? 1 : 0;
      return true;
    default:
      return false;
  }
}

void RowView::MoveSort(int by) {
  if (m_columns.empty()) {
    return;
  }
  const auto now = std::find_if(m_columns.begin(), m_columns.end(), [&](const Column& column) {
    return column.label == m_arrangement.sort;
  });
  const auto count = static_cast<std::ptrdiff_t>(m_columns.size());
  const std::ptrdiff_t place =
      now == m_columns.end() ? (by > 0 ? 0 : count - 1) : now - m_columns.begin() + by;
  SortBy(m_columns[static_cast<std::size_t>((place + count) % count)].label);
}

bool RowView::TakeSort(const Key& key) {
  /// The keys of sorting that people have in their fingers, and the labels that they may mean.
  static const std::map<char, std::vector<std::string>> kSortKeys{
      {'P', {"CPU % Each", "CPU %", "In Use %", "Busy %"}},
      {'M', {"Real Mem Kbytes", "Memory Bytes", "Anonymous Bytes", "Mbytes in Use"}},
      {'D', {"Throughput/sec", "Read Bytes/sec", "Storage Read Bytes", "Mbytes Xferd/sec"}},
      {'N', {"PID", "Path", "Device", "Interface", "File System"}}};
  if (key.Is('<') || key.Is('>')) {
    MoveSort(key.Is('<') ? -1 : 1);
    return true;
  }
  if (key.Is('R')) {
    m_arrangement.isDescending = !m_arrangement.isDescending;
    Arrange();
    return true;
  }
  if (key.Is('t') && m_kind.tree != TreeKind::kNone) {
    m_arrangement.tree = IsTree() ? TreeKind::kNone : m_kind.tree;
    Arrange();
    return true;
  }
  const auto known = key.code == KeyCode::kCharacter && key.text.size() == 1
                         ? kSortKeys.find(key.text.front())
                         : kSortKeys.end();
  if (known == kSortKeys.end() || m_seen == nullptr || m_seen->schema == nullptr) {
    return false;
  }
  for (const std::string& label : known->second) {
    if (FindField(*m_seen->schema, label) != nullptr) {
      SortBy(label);
      return true;
    }
  }
  return false;
}

bool RowView::TakeClick(const Key& key, const Area& area) {
  if (key.code != KeyCode::kClick || key.line < area.line || key.line >= area.line + area.height) {
    return false;
  }
  if (key.line > area.line) {
    const std::size_t line = m_top + key.line - area.line - 1;
    if (line < m_lines.size()) {
      Move(static_cast<std::ptrdiff_t>(line) - static_cast<std::ptrdiff_t>(m_cursor));
    }
    return true;
  }
  for (const Place& place : Places(m_width)) {
    if (key.column < place.begin || key.column >= place.begin + place.width) {
      continue;
    }
    const std::string& label = m_columns[place.column].label;
    if (label == m_arrangement.sort) {
      m_arrangement.isDescending = !m_arrangement.isDescending;
      Arrange();
    } else {
      SortBy(label);
    }
  }
  return true;
}
