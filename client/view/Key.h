#pragma once

#include <cstddef>
#include <string>

/// What was pressed.
enum class KeyCode {
  kCharacter,
  kUp,
  kDown,
  kLeft,
  kRight,
  kPageUp,
  kPageDown,
  kHome,
  kEnd,
  kEnter,
  kEscape,
  kTab,
  kBackTab,
  kBackspace,
  kResize,
  kClick,
  kWheelUp,
  kWheelDown,
  kOther
};

struct Key {
  KeyCode code = KeyCode::kOther;
  std::string text;      ///< the character as UTF-8, of kCharacter
  std::size_t line = 0;  ///< where a mouse was pressed, from 0
  std::size_t column = 0;

  /// Whether it is that character of ASCII.
  [[nodiscard]] bool Is(char character) const {
    return code == KeyCode::kCharacter && text.size() == 1 && text.front() == character;
  }
};
