#include "client/ask/SafeText.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cwchar>

namespace {

struct Character {
  char32_t code = 0;
  std::size_t bytes = 1;
  bool valid = false;
};

/// The first character of a text that is not empty; one byte, not valid, if it is no UTF-8.
Character Decode(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return {first, 1, true};
  }
  const std::size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < bytes) {
    return {first, 1, false};
  }
  char32_t code = first & (0x7Fu >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0u) != 0x80u) {
      return {first, 1, false};
    }
    code = (code << 6) | (byte(i) & 0x3Fu);
  }
  constexpr std::array<char32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < kLeast.at(bytes) || code > 0x10FFFF || surrogate ? Character{first, 1, false}
                                                                 : Character{code, bytes, true};
}

bool TurnsDirection(char32_t code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

/// Columns of one character, -1 for one that is not to be shown.
int CharacterWidth(char32_t code) {
  if (code < 0x20 || (code >= 0x7F && code < 0xA0) || TurnsDirection(code)) {
    return -1;
  }
  if (code < 0x7F) {
    return 1;
  }
  static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  return utf8 ? ::wcwidth(static_cast<wchar_t>(code)) : 1;
}

/// How many characters the text begins with that are a byte and a column each and shown as they
/// are, as nearly all are.
std::size_t CountPlain(std::string_view text) {
  const auto* const end =
      std::ranges::find_if_not(text, [](char letter) { return letter >= 0x20 && letter < 0x7F; });
  return static_cast<std::size_t>(end - text.begin());
}

void AppendEscaped(std::string& out, const Character& character) {
  std::array<char, 16> text;
  const auto code = static_cast<unsigned>(character.code);
  const int length = code < 0x80 || !character.valid
                         ? std::snprintf(text.data(), text.size(), "\\x%02X", code)
                         : std::snprintf(text.data(), text.size(), "\\u{%04X}", code);
  out.append(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

std::string SafeText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (;;) {
    const std::size_t plain = CountPlain(text);
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) {
      return out;
    }
    const Character character = Decode(text);
    if (character.valid && CharacterWidth(character.code) >= 0) {
      out += text.substr(0, character.bytes);
    } else {
      AppendEscaped(out, character);
    }
    text.remove_prefix(character.bytes);
  }
}

TextStep FirstCharacter(std::string_view text) {
  const Character character = Decode(text);
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
