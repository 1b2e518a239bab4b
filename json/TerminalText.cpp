#include "json/TerminalText.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

bool TurnsDirection(char32_t code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
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

Character DecodeFirst(std::string_view text) {
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

bool SteersTerminal(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || TurnsDirection(code);
}

std::size_t CountPlain(std::string_view text) {
  const auto* const end =
      std::ranges::find_if_not(text, [](char letter) { return letter >= 0x20 && letter < 0x7F; });
  return static_cast<std::size_t>(end - text.begin());
}

std::string EscapedText(std::string_view text, const std::function<bool(char32_t)>& isEscaped) {
  std::string out;
  out.reserve(text.size());
  for (;;) {
    const std::size_t plain = CountPlain(text);
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) {
      return out;
    }
    const Character character = DecodeFirst(text);
    if (character.valid && !isEscaped(character.code)) {
      out += text.substr(0, character.bytes);
    } else {
      AppendEscaped(out, character);
    }
    text.remove_prefix(character.bytes);
  }
}

std::string WithoutSteering(std::string_view text) { return EscapedText(text, SteersTerminal); }

std::string ShownBegin(std::string_view text, std::size_t most) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t bytes = DecodeFirst(text).bytes;
    const std::string next = WithoutSteering(text.substr(0, bytes));
    if (shown.size() + next.size() > most) {
      break;
    }
    shown += next;
    text.remove_prefix(bytes);
  }
  return shown;
}

std::string JsonWithoutSteering(std::string_view json) {
  std::string out;
  out.reserve(json.size());
  while (!json.empty()) {
    const Character character = DecodeFirst(json);
    // A line end stands between values; JsonText escapes those within a text.
    if (character.code < 0x7F || !character.valid || !SteersTerminal(character.code)) {
      out += json.substr(0, character.bytes);
    } else {
      // All of them have four digits.
      std::array<char, 8> escape;
      std::snprintf(escape.data(), escape.size(), "\\u%04x",
                    static_cast<unsigned>(character.code) & 0xFFFFU);
      out += escape.data();
    }
    json.remove_prefix(character.bytes);
  }
  return out;
}
