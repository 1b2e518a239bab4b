#include "client/view/ColumnChooser.h"

#include <algorithm>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Labels.h"

namespace {

constexpr std::size_t kLabelRoom = 34;

}  // namespace

ColumnChooser::ColumnChooser(const Schema& schema, const std::vector<std::string>& chosen,
                             std::function<void(const std::vector<std::string>&)> done)
    : m_done(std::move(done)) {
  const auto add = [this](const Field& field, bool isChosen) {
    m_entries.push_back(
        {field.label, field.hasSource ? field.help : "nothing tells it here", isChosen});
  };
  for (const std::string& label : chosen) {
    if (const Field* field = FindField(schema, label); field != nullptr) {
      add(*field, true);
    }
  }
  for (const Field& field : schema.fields) {
    if (std::find(chosen.begin(), chosen.end(), field.label) == chosen.end()) {
      add(field, false);
    }
  }
}

void ColumnChooser::Shift(bool isUp) {
  const std::size_t other = isUp ? m_cursor - 1 : m_cursor + 1;
  if (other < m_entries.size()) {
    std::swap(m_entries[m_cursor], m_entries[other]);
    m_cursor = other;
  }
}

bool ColumnChooser::Take(const Key& key, const Area& area) {
  const std::size_t last = m_entries.empty() ? 0 : m_entries.size() - 1;
  const std::size_t page = std::max<std::size_t>(area.height, 3) - 2;
  if (key.code == KeyCode::kEscape || key.Is('q')) {
    return false;
  }
  if (key.code == KeyCode::kEnter) {
    std::vector<std::string> labels;
    for (const Entry& entry : m_entries) {
      if (entry.isChosen) {
        labels.push_back(entry.label);
      }
    }
    m_done(labels);
    return false;
  }
  if (key.Is('0')) {
    m_done({});
    return false;
  }
  if (key.Is(' ') && m_cursor < m_entries.size()) {
    m_entries[m_cursor].isChosen = !m_entries[m_cursor].isChosen;
    m_cursor = std::min(m_cursor + 1, last);
  } else if (key.Is('-') || key.Is('+')) {
    Shift(key.Is('-'));
  } else if (key.code == KeyCode::kUp) {
    m_cursor -= m_cursor > 0 ? 1 : 0;
  } else if (key.code == KeyCode::kDown) {
    m_cursor = std::min(m_cursor + 1, last);
  } else if (key.code == KeyCode::kPageUp) {
    m_cursor -= std::min(m_cursor, page);
  } else if (key.code == KeyCode::kPageDown) {
    m_cursor = std::min(m_cursor + page, last);
  } else if (key.code == KeyCode::kHome) {
    m_cursor = 0;
  } else if (key.code == KeyCode::kEnd) {
    m_cursor = last;
  }
  return true;
}

void ColumnChooser::Draw(Canvas& canvas, const Area& area) {
  if (area.height == 0) {
    return;
  }
  const std::size_t height = area.height - 1;
  m_top = std::min(m_top, m_cursor);
  if (height > 0 && m_cursor >= m_top + height) {
    m_top = m_cursor - height + 1;
  }
  canvas.Put(area.line, 0,
             "Columns: blank chooses, - and + move, Enter takes them, 0 those of the beginning, "
             "Esc none",
             Tone::kTitle);
  for (std::size_t i = 0; i < height && m_top + i < m_entries.size(); ++i) {
    const Entry& entry = m_entries[m_top + i];
    const std::size_t line = area.line + 1 + i;
    canvas.Put(line, 0, entry.isChosen ? "[x] " : "[ ] ");
    canvas.Put(line, 4, SafeText(entry.label), Tone::kBold, kLabelRoom);
    canvas.Put(line, 5 + kLabelRoom, SafeText(entry.help), Tone::kDim);
    if (m_top + i == m_cursor) {
      canvas.Paint(line, 0, canvas.Width(), Tone::kSelected);
    }
  }
}
