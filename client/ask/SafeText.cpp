#include "client/ask/SafeText.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

#include "json/TerminalText.h"

namespace {

/// Columns of one character, -1 for one that is not to be shown.
int CharacterWidth(char32_t code) {
  if (SteersTerminal(code)) {
    return -1;
  }
  if (code < 0x7F) {
    return 1;
  }
  static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  return utf8 ? ::wcwidth(static_cast<wchar_t>(code)) : 1;
}

}  // namespace

std::string SafeText(std::string_view text) {
  return EscapedText(text, [](char32_t code) { return CharacterWidth(code) < 0; });
}

TextStep FirstCharacter(std::string_view text) {
  const Character character = DecodeFirst(text);
  return {character.bytes, static_cast<std::size_t>(std::max(CharacterWidth(character.code), 0))};
}

std::size_t TextWidth(std::string_view text) {
  std::size_t width = 0;
  for (;;) {
    const std::size_t plain = CountPlain(text);
    width += plain;
    text.remove_prefix(plain);
    if (text.empty()) {
      return width;
    }
    const TextStep step = FirstCharacter(text);
    width += step.columns;
    text.remove_prefix(step.bytes);
  }
}
