#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "node/IniListing.h"

/// One `keyword = value` line of an alarm.
struct AlarmLine {
  std::size_t line = 0;  ///< counted from 1, where it begins
  std::string keyword;   ///< in small letters
  std::string value;
};

/// What the file says of one alarm.
struct AlarmEntry {
  std::size_t line = 0;  ///< of its keyword `alarm`
  std::string name;
  std::vector<AlarmLine> lines;    ///< the others, in order
  std::vector<IniProblem> faults;  ///< lines that can't be read; the alarm is no use then
};

/// A definition file of alarms as it is read, before anything is looked up.
struct AlarmFileText {
  std::string error;       ///< path and reason of a file that can't be read; empty if it can
  bool isMissing = false;  ///< there is no such file, which is an error too
  std::vector<AlarmEntry> entries;
  std::vector<IniProblem> faults;  ///< of lines that belong to no alarm
};

/// Bounds of a file; what is beyond them is a fault.
inline constexpr std::size_t kMostAlarmFileBytes = std::size_t{1} << 20;
inline constexpr std::size_t kMostAlarmLineBytes = 2048;  ///< of a line with those it goes on in
inline constexpr std::size_t kMostAlarms = 500;
inline constexpr std::size_t kMostAlarmFaults = 1000;

/// Reads the file: `keyword = value` lines; '#' begins a comment line, a line that ends in ',' goes
/// on in the next one, `alarm` opens an alarm. Keywords may be written in any case.
[[nodiscard]] AlarmFileText ReadAlarmFile(const std::string& path);
/// The same of a file's content.
[[nodiscard]] AlarmFileText ParseAlarmFile(std::string_view text);

/// A length of time: a whole number of seconds, or with s, m, h or d behind it; 31 days at most.
[[nodiscard]] std::optional<std::chrono::seconds> ParseAlarmTime(std::string_view text);
/// "90s", "5m", "6h" or "2d": the largest unit that the time is a whole number of.
[[nodiscard]] std::string AlarmTimeText(std::chrono::seconds time);
/// Whether the text is 1 to 64 letters, digits and - _ . : a name or a severity.
[[nodiscard]] bool IsAlarmWord(std::string_view text);
