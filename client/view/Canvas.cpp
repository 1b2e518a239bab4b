#include "client/view/Canvas.h"

#include <algorithm>

#include "client/ask/SafeText.h"

Canvas::Canvas(std::size_t width, std::size_t height)
    : m_width(width), m_height(height), m_cells(width * height) {}

std::size_t Canvas::Put(std::size_t line, std::size_t column, std::string_view text, Tone tone,
                        std::size_t width) {
  const std::size_t end = width > m_width - std::min(column, m_width) ? m_width : column + width;
  Cell* last = nullptr;
  while (line < m_height && !text.empty()) {
    const TextStep step = FirstCharacter(text);
    const std::string_view character = text.substr(0, step.bytes);
    text.remove_prefix(step.bytes);
    if (step.columns == 0) {
      if (last != nullptr) {
        last->text += character;
      }
      continue;
    }
    if (column + step.columns > end) {
      break;
    }
    last = &m_cells[line * m_width + column];
    *last = {std::string(character), tone};
    for (std::size_t i = 1; i < step.columns; ++i) {
      m_cells[line * m_width + column + i] = {"", tone};
    }
    column += step.columns;
  }
  return column;
}

void Canvas::Paint(std::size_t line, std::size_t column, std::size_t width, Tone tone) {
  for (std::size_t i = column; line < m_height && i < m_width && i - column < width; ++i) {
    m_cells[line * m_width + i].tone = tone;
  }
}

std::string Canvas::LineText(std::size_t line) const {
  std::string text;
  for (std::size_t column = 0; column < m_width; ++column) {
    text += At(line, column).text;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}
