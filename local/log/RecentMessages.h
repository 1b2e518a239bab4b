#pragma once

#include <cstddef>
#include <ctime>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

/// A message as it is remembered.
struct RecentMessage {
  std::time_t time = 0;  ///< seconds since the epoch
  int kind = 0;          ///< kError, kWarning or kInformation
  std::string text;      ///< harmless, one line
};

/// The last messages, within bounds of number and size.
class RecentMessages {
 public:
  static constexpr std::size_t kMost = 200;
  static constexpr std::size_t kMostText = 2048;  ///< bytes of one text; the rest is cut
  static constexpr std::size_t kMostBytes = std::size_t{128} << 10;

  /// Throws std::bad_alloc; what is remembered stays right then.
  void Add(std::time_t time, int kind, std::string_view text);
  /// At most so many of the last ones, newest last.
  [[nodiscard]] std::vector<RecentMessage> Last(std::size_t count) const;

 private:
  std::deque<RecentMessage> m_messages;
  std::size_t m_bytes = 0;  ///< of all texts
};
