#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// How a piece of the view stands out. Which colour, if any, that is, the terminal decides.
enum class Tone { kPlain, kBold, kDim, kTitle, kSelected, kGood, kWarning, kBad, kMark };

/// A frame of the view in memory: a grid of characters, each with its tone. What lies beyond its
/// edges is cut.
class Canvas {
 public:
  /// One place of the grid. A character that is two columns wide leaves the place behind it empty.
  struct Cell {
    std::string text = " ";  ///< UTF-8, with marks that combine
    Tone tone = Tone::kPlain;

    friend bool operator==(const Cell&, const Cell&) = default;
  };

  /// All blanks. A width or height of 0 is fine.
  Canvas(std::size_t width, std::size_t height);

  [[nodiscard]] std::size_t Width() const { return m_width; }
  [[nodiscard]] std::size_t Height() const { return m_height; }
  [[nodiscard]] const Cell& At(std::size_t line, std::size_t column) const {
    return m_cells[line * m_width + column];
  }

  /// Puts safe text (client/ask/SafeText.h) of one line there, up to `width` columns; the column
  /// behind it.
  std::size_t Put(std::size_t line, std::size_t column, std::string_view text,
                  Tone tone = Tone::kPlain, std::size_t width = std::string::npos);

  /// Gives a stretch of a line that tone, whatever stands there.
  void Paint(std::size_t line, std::size_t column, std::size_t width, Tone tone);

  /// The line as text without the blanks at its end.
  [[nodiscard]] std::string LineText(std::size_t line) const;

 private:
  std::size_t m_width;
  std::size_t m_height;
  std::vector<Cell> m_cells;
};
