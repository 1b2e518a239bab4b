#include "client/show/TimeText.h"

#include <array>
#include <charconv>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "client/ask/Errors.h"
#include "json/RowText.h"

namespace {

/// A length of more than this before now can't be meant.
constexpr std::int64_t kLongestSeconds = std::int64_t{100} * 366 * 86400;

std::optional<std::int64_t> ParseWhole(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? std::optional(value)
                                                                  : std::nullopt;
}

std::int64_t UnitSeconds(char unit) {
  switch (unit) {
    case 's':
      return 1;
    case 'm':
      return 60;
    case 'h':
      return 3600;
    case 'd':
      return 86400;
    case 'w':
      return 7 * 86400;
    default:
      return 0;
  }
}

/// Numbers with a unit each, the greatest unit first: "90s", "1h30m".
std::optional<std::int64_t> ParseLength(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789";
  std::int64_t length = 0;
  std::int64_t lastUnit = std::numeric_limits<std::int64_t>::max();
  do {
    const std::size_t end = text.find_first_not_of(kDigits);
    const std::int64_t unit = end == std::string_view::npos ? 0 : UnitSeconds(text[end]);
    const auto count = ParseWhole(text.substr(0, end));
    if (unit == 0 || unit >= lastUnit || !count || *count > (kLongestSeconds - length) / unit) {
      return std::nullopt;
    }
    length += *count * unit;
    lastUnit = unit;
    text.remove_prefix(end + 1);
  } while (!text.empty());
  return length;
}

/// The last time before `now` at which the local clock showed this: "18:30" or "18:30:15".
std::optional<std::int64_t> ParseClock(const std::string& text, std::int64_t now) {
  for (const char* format : {"%H:%M", "%H:%M:%S"}) {
    const std::time_t present = now;
    std::tm parts{};
    if (::localtime_r(&present, &parts) == nullptr) {
      return std::nullopt;
    }
    parts.tm_sec = 0;
    const char* end = ::strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') {
      continue;
    }
    parts.tm_isdst = -1;
    std::tm yesterday = parts;
    --yesterday.tm_mday;
    const std::time_t today = std::mktime(&parts);
    return today <= now ? today : std::mktime(&yesterday);
  }
  return std::nullopt;
}

/// Takes "Z" or an offset off the end: seconds east of universal time; nothing if there is none.
std::optional<std::int64_t> TakeZone(std::string& text) {
  if (text.ends_with('Z')) {
    text.pop_back();
    return 0;
  }
  constexpr std::size_t kOffsetSize = 6;
  // A date alone ends in something similar.
  if (text.size() < kOffsetSize || text.find(':') == text.rfind(':')) {
    return std::nullopt;
  }
  const std::string offset = text.substr(text.size() - kOffsetSize);
  std::tm parts{};
  const char* end = ::strptime(offset.c_str() + 1, "%H:%M", &parts);
  if ((offset[0] != '+' && offset[0] != '-') || end == nullptr || *end != '\0') {
    return std::nullopt;
  }
  text.resize(text.size() - kOffsetSize);
  const std::int64_t seconds = parts.tm_hour * 3600 + parts.tm_min * 60;
  return offset[0] == '+' ? seconds : -seconds;
}

}  // namespace

std::optional<std::int64_t> ParseDate(std::string text) {
  const std::optional<std::int64_t> zone = TakeZone(text);
  for (const char* format :
       {"%Y-%m-%d", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S"}) {
    std::tm parts{};
    const char* end = ::strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') {
      continue;
    }
    const auto time = SecondsOfDate(parts, zone.has_value());
    return time ? std::optional(*time - zone.value_or(0)) : std::nullopt;
  }
  return std::nullopt;
}

std::int64_t ParseTime(const std::string& text, std::int64_t now) {
  if (text.starts_with('@')) {
    if (const auto seconds = ParseWhole(std::string_view(text).substr(1))) {
      return *seconds;
    }
  } else if (text == "now") {
    return now;
  } else if (const auto length = ParseLength(text)) {
    return now - *length;
  } else if (const auto date = ParseDate(text)) {
    return *date;
  } else if (const auto clock = ParseClock(text, now)) {
    return *clock;
  }
  throw UsageError("\"" + text +
                   "\" is no time: write now, 90s, 1h30m, 2d, 1w, 18:30, 2026-11-25, "
                   "\"2026-11-25 07:30\" or @SECONDS");
}

void AddSpan(Json& request, const std::string& since, const std::string& until) {
  const std::int64_t now = std::time(nullptr);
  for (const auto& [member, text] : {std::pair("since", &since), std::pair("until", &until)}) {
    if (!text->empty()) {
      request[member] = ParseTime(*text, now);
    }
  }
  if (!since.empty() && !until.empty() && request["until"].Whole() < request["since"].Whole()) {
    throw UsageError("the end (--until " + until + ") lies before the beginning (--since " + since +
                     ")");
  }
}
