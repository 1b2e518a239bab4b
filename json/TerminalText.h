#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// What keeps a text of anybody's from steering the terminal that shows it.

struct Character {
  char32_t code = 0;
  std::size_t bytes = 1;
  bool valid = false;
};

/// The first character of a text that is not empty; one byte, not valid, if it is no UTF-8.
[[nodiscard]] Character DecodeFirst(std::string_view text);

/// Whether it is a control character or a mark that turns the direction of writing.
[[nodiscard]] bool SteersTerminal(char32_t code);

/// How many characters the text begins with that are printable ASCII, as nearly all are.
[[nodiscard]] std::size_t CountPlain(std::string_view text);

/// `text` with the characters for which `isEscaped` holds, and the bytes that are not UTF-8,
/// written out as \xNN or \u{NNNN}. Printable ASCII is not asked for.
[[nodiscard]] std::string EscapedText(std::string_view text,
                                      const std::function<bool(char32_t)>& isEscaped);

/// The same of what steers a terminal.
[[nodiscard]] std::string WithoutSteering(std::string_view text);

/// The begin of that, of at most so many bytes: neither a character nor what is written for one is
/// parted.
[[nodiscard]] std::string ShownBegin(std::string_view text, std::size_t most);

/// `json`, a text of JsonText, with what steers a terminal as \uNNNN: JSON of the same value.
[[nodiscard]] std::string JsonWithoutSteering(std::string_view json);
