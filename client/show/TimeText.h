#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "json/Json.h"

/// Seconds since the epoch for a date with or without a time of day, as below; a time may end in
/// "Z" or in an offset such as "+01:30". Nothing if it is none.
[[nodiscard]] std::optional<std::int64_t> ParseDate(std::string text);

/// Seconds since the epoch for a time as an operator writes it: "now", a length before `now`
/// ("90s", "1h30m", "2d", "1w"), the last time that the local clock showed ("18:30"), a local date
/// with or without a time ("2026-11-25", "2026-11-25 07:30", "2026-11-25T07:30:15", also with "Z"
/// for universal time), or whole seconds since the epoch
/// ("@1700000000"). Throws UsageError.
[[nodiscard]] std::int64_t ParseTime(const std::string& text, std::int64_t now);

/// Sets the members "since" and "until" of a request to the times that were typed; an empty text
/// sets none. Throws UsageError, for an end before the beginning too.
void AddSpan(Json& request, const std::string& since, const std::string& until);
