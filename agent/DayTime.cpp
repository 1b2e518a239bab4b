#include "agent/DayTime.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <locale>
#include <sstream>
#include <string_view>

#include "support/TraceLog.h"

namespace {

constexpr std::string_view kNever = "Never";
constexpr int kLastHour = 23;
constexpr int kLastMinute = 59;

bool Judge(char* text) {
  if (text == nullptr) {
    return false;
  }
  if (IsNever(text)) {
    std::copy(kNever.begin(), kNever.end(), text);
    return true;
  }
  return std::strchr(text, ':') != nullptr && std::strchr(text, '-') == nullptr &&
         ReadDayTime(text).has_value();
}

}  // namespace

std::optional<DayTime> ReadDayTime(const std::string& text) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  DayTime time;
  char separator = '\0';
  if (!(stream >> time.hour >> separator >> time.minute)) {
    return std::nullopt;
  }
  const bool isInRange =
      time.hour >= 0 && time.hour <= kLastHour && time.minute >= 0 && time.minute <= kLastMinute;
  return isInRange ? std::optional(time) : std::nullopt;
}

bool IsNever(const char* text) { return ::strcasecmp(text, kNever.data()) == 0; }

int isValidTime(char* text) {
  TraceEntry("UnixAgent::isValidTime", text);
  const int result = Judge(text) ? 1 : 0;
  TraceExit("UnixAgent::isValidTime", result);
  return result;
}
