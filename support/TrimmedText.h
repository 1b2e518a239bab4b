#pragma once

#include <algorithm>
#include <string_view>

/// What isspace(3) takes for white space where no locale is set.
inline constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

/// `text` without the characters of `blanks` at its ends: a part of it, the empty one at its end if
/// it is blank throughout.
[[nodiscard]] constexpr std::string_view Trimmed(std::string_view text, std::string_view blanks) {
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}
