#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// What the files of users and tokens have in common for who writes and who reads them.

/// How the hash of a token's secret begins. The secret is random, so that the rounds need not be
/// many.
inline constexpr std::string_view kTokenHashStart = "$5$rounds=1000$";

/// Stands between the name and the secret of a token of a file; a console token has none.
inline constexpr char kTokenDot = '.';

/// Whether a user or a token may have this name: 1 to 64 of A-Z a-z 0-9 - _ . @ +
[[nodiscard]] constexpr bool IsAccountName(std::string_view name) {
  constexpr std::size_t kMaxName = 64;
  constexpr std::string_view kMarks = "-_.@+";
  return !name.empty() && name.size() <= kMaxName &&
         std::all_of(name.begin(), name.end(), [&](char letter) {
           return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                  (letter >= '0' && letter <= '9') || kMarks.find(letter) != kMarks.npos;
         });
}
