#include "json/RowText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string LowerCase(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return out;
}

std::optional<std::size_t> FindLabel(std::string_view label, std::size_t count,
                                     const std::function<std::string_view(std::size_t)>& labelAt) {
  const std::string sought = LowerCase(label);
  std::optional<std::size_t> found;
  bool isOnlyOne = true;
  for (std::size_t place = 0; place < count; ++place) {
    const std::string_view other = labelAt(place);
    if (other == label) {
      return place;
    }
    if (other.size() == sought.size() && LowerCase(other) == sought) {
      isOnlyOne = isOnlyOne && !found;
      found = place;
    }
  }
  return isOnlyOne ? found : std::nullopt;
}

bool IsTimeField(std::string_view meaning, std::string_view type, std::string_view label) {
  return meaning == "time" || (meaning == "key" && type == "long" && label.ends_with(" Time"));
}

std::string FixedText(double value, int decimals) {
  std::array<char, 64> text;
  const auto form =
      std::fabs(value) < kLargeFloat ? std::chars_format::fixed : std::chars_format::scientific;
  const auto end = std::to_chars(text.begin(), text.end(), value, form, decimals).ptr;
  return {text.data(), end};
}

int DecimalsOf(double value) {
  if (!(std::fabs(value) < kLargeFloat)) {
    return 0;
  }
  const std::string text = FixedText(value, kDecimals);
  const std::size_t last = text.find_last_not_of('0');
  return static_cast<int>(last - text.find('.'));
}

std::optional<std::int64_t> SecondsOfDate(std::tm date, bool isUniversal) {
  date.tm_isdst = -1;
  const int day = date.tm_mday;
  const std::time_t seconds = isUniversal ? ::timegm(&date) : std::mktime(&date);
  // Such a day would be taken for one of the next month.
  return date.tm_mday == day ? std::optional<std::int64_t>(seconds) : std::nullopt;
}

std::string DateText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  std::array<char, 64> text;
  if (seconds == 0) {
    return "-";
  }
  if (::localtime_r(&time, &parts) == nullptr) {
    return std::to_string(seconds);
  }
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}
