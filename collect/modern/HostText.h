#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "collect/TextScanner.h"

/// Reads a file of the host, named by its plain absolute path, whole into `text`, whose room serves
/// again. False, with an empty text, for a file that is not there or can't be read to its end,
/// which is told once, and for one beyond its limit, which fails the source's run (see
/// OpenHostFile).
[[nodiscard]] bool ReadHostText(const char* path, std::string& text);

/// Takes the first line, without its end, from `text`. False if there is none left.
[[nodiscard]] inline bool NextTextLine(std::string_view& text, std::string_view& line) {
  if (text.empty()) {
    return false;
  }
  line = text.substr(0, text.find('\n'));
  text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
  return true;
}

/// A line's first word and where the number behind it goes.
template <class Figures>
struct KeyedNumber {
  std::string_view key;
  std::uint64_t Figures::*value;
};

/// Takes the number of the line's key; whether that is one of the rows'. Bit i of `found` is set
/// for row i.
template <class Figures, std::size_t N>
bool TakeKeyedNumber(std::string_view line, const std::array<KeyedNumber<Figures>, N>& rows,
                     Figures& figures, std::uint32_t& found) {
  static_assert(N <= 32);
  const std::string_view key = line.substr(0, line.find_first_of(" \t"));
  for (std::size_t row = 0; row < rows.size(); ++row) {
    if (rows[row].key == key) {
      TextScanner scanner(line.substr(key.size()));
      if (std::uint64_t number = 0; scanner.Unsigned(number)) {
        figures.*rows[row].value = number;
        found |= 1U << row;
      }
      return true;
    }
  }
  return false;
}

/// The figures of the rows whose keys the text has; the others are 0, and their bits in the
/// figures' `found` too.
template <class Figures, std::size_t N>
[[nodiscard]] Figures ParseKeyedNumbers(std::string_view text,
                                        const std::array<KeyedNumber<Figures>, N>& rows) {
  Figures figures;
  for (std::string_view line; NextTextLine(text, line);) {
    TakeKeyedNumber(line, rows, figures, figures.found);
  }
  return figures;
}

/// Tells once that the file at `path` lacks an entry of that name, or that it has it.
void TellFound(const char* path, std::string_view name, bool isFound);

/// The same for the rows' keys; `found` has a bit for each that is there.
template <class Figures, std::size_t N>
void TellFound(const char* path, const std::array<KeyedNumber<Figures>, N>& rows,
               std::uint32_t found) {
  for (std::size_t row = 0; row < rows.size(); ++row) {
    TellFound(path, rows[row].key, (found >> row & 1U) != 0);
  }
}
