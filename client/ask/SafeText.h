#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// `text` with everything that could steer a terminal written out: control characters, marks that
/// turn the direction of writing, and bytes that are not UTF-8, as \xNN or \u{NNNN}.
[[nodiscard]] std::string SafeText(std::string_view text);

/// What one character takes.
struct TextStep {
  std::size_t bytes;
  std::size_t columns;
};

/// The first character of a text from SafeText that is not empty.
[[nodiscard]] TextStep FirstCharacter(std::string_view text);

/// Columns that a text from SafeText takes on a terminal.
[[nodiscard]] std::size_t TextWidth(std::string_view text);
