#pragma once

#include <string_view>

#include "collect/TextScanner.h"

/// The key of a process's user ids: real, effective, saved and that of the file system.
inline constexpr std::string_view kStatusUid = "Uid:";

/// Whether a line of /proc/PID/status has that key, which ends with a colon. A key counts at the
/// start of a line only: a process may have one in its name.
[[nodiscard]] inline bool HasStatusKey(std::string_view line, std::string_view key) {
  return line.starts_with(key);
}

/// A scanner of the values of a line that has the key. A value without a blank before it belongs to
/// the key.
[[nodiscard]] inline TextScanner StatusValues(std::string_view line, std::string_view key) {
  // The colon is all of the key's word that is left to be skipped.
  TextScanner scanner(line.substr(key.size() - 1));
  scanner.SkipWord();
  return scanner;
}
