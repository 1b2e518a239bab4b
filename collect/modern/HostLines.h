#pragma once

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <system_error>

#include "support/TextFile.h"
#include "support/TrimmedText.h"

/// The lines of one file of the host, of any width within the file's limit, in one buffer.
class HostLines {
 public:
  /// `path` is the plain absolute one. A file that cannot be opened is told once and has no lines.
  explicit HostLines(const char* path);

  /// The next line without its end; valid until the next call. False at the end of the file.
  [[nodiscard]] bool Next(std::string_view& line);

 private:
  struct Free {
    void operator()(char* buffer) const { std::free(buffer); }
  };

  TextFilePtr m_file;
  std::unique_ptr<char, Free> m_buffer;
  std::size_t m_size = 0;
};

/// The text without the blanks at its ends.
[[nodiscard]] constexpr std::string_view WithoutEdgeBlanks(std::string_view text) {
  return Trimmed(text, " \t\r");
}

/// Takes an unsigned number, and blanks before it, from the front of `text`. False, with `value` as
/// it was, if there is none or it does not fit.
template <class Number>
[[nodiscard]] bool TakeCount(std::string_view& text, Number& value, int base = 10) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) {
    return false;
  }
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data() + start, end, value, base);
  if (code != std::errc{}) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return true;
}
