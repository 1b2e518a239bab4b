#pragma once

#include <optional>
#include <string>

/// A time of day in minutes' precision.
struct DayTime {
  int hour = 0;    ///< 0 to 23
  int minute = 0;  ///< 0 to 59
};

/// Reads hour, one character and minute; what follows is passed over. None where the numbers can't
/// be read or are out of range.
[[nodiscard]] std::optional<DayTime> ReadDayTime(const std::string& text);

/// Whether a text says "never", in any case.
[[nodiscard]] bool IsNever(const char* text);

/// 1 if the text is a time for a daily job: "Never" in any case, which is rewritten in place to
/// just that, or a time of day with a ':' and no '-' in it. Else 0.
[[nodiscard]] int isValidTime(char* text);
