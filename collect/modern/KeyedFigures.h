#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "support/NotTold.h"

/// A line's first word, with the colon that may end it, and where the number behind it goes.
template <class Figures>
struct KeyedFigure {
  std::string_view key;
  double Figures::*figure;
};

/// The rows in the order of their keys, as TakeKeyedFigures() wants them. Two rows of one key don't
/// compile; two keys of one figure are meant to be summed.
template <class Figures, std::size_t N>
consteval std::array<KeyedFigure<Figures>, N> SortedByKey(
    std::array<KeyedFigure<Figures>, N> rows) {
  std::ranges::sort(rows, {}, &KeyedFigure<Figures>::key);
  if (std::ranges::adjacent_find(rows, {}, &KeyedFigure<Figures>::key) != rows.end()) {
    throw "a key stands in two rows";
  }
  return rows;
}

/// Adds a number to a figure, which may not be told yet.
inline void AddFigure(double& figure, double number) {
  figure = IsTold(figure) ? figure + number : number;
}

/// Takes the numbers of all lines whose keys the rows have; what is missing or no number leaves its
/// figure as it was. A number with "kB" behind it becomes one of bytes. A line without its end
/// counts as missing, since its number may have been cut. Meant for long tables: what a line costs
/// grows with their logarithm.
template <class Figures, std::size_t N>
void TakeKeyedFigures(std::string_view text, const std::array<KeyedFigure<Figures>, N>& sorted,
                      Figures& figures) {
  text = text.substr(0, text.rfind('\n') + 1);
  for (std::string_view line; NextTextLine(text, line);) {
    const std::string_view key = line.substr(0, line.find_first_of(" \t"));
    const auto row = std::ranges::lower_bound(sorted, key, {}, &KeyedFigure<Figures>::key);
    if (row == sorted.end() || row->key != key) {
      continue;
    }
    line.remove_prefix(key.size());
    if (std::uint64_t number = 0; TakeCount(line, number)) {
      AddFigure(figures.*row->figure,
                static_cast<double>(number) * (WithoutEdgeBlanks(line) == "kB" ? 1024.0 : 1.0));
    }
  }
}
