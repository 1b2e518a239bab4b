#pragma once

#include <string>

/// What a terminal takes to show a text in bold and so on; empty for what its kind can't do.
struct TerminalCodes {
  std::string bold;
  std::string dim;
  std::string plain;  ///< ends the two
  std::string clear;  ///< the cursor to the upper left corner, and nothing on the screen
};

/// The sequences of a terminal of that kind, of the system's data base terminfo; of an unknown or
/// empty one those that nearly all understand.
[[nodiscard]] TerminalCodes CodesOfTerminal(const char* kind);

/// Whether the data base knows that kind.
[[nodiscard]] bool IsKnownTerminal(const char* kind);

/// Those of $TERM, read once.
[[nodiscard]] const TerminalCodes& OutputCodes();
