#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Cuts a stream of bytes into lines. A line that is too long is told once and skipped to its end.
class LineBuffer {
 public:
  enum class Found { kNothing, kLine, kTooLong };

  /// `limit`: the most bytes of a line, its newline included.
  explicit LineBuffer(std::size_t limit) : m_limit(limit) {}

  void Append(std::string_view bytes);
  /// Takes the next line, without its newline, into `line`.
  [[nodiscard]] Found Next(std::string& line);

 private:
  std::size_t m_limit;
  std::string m_bytes;
  std::size_t m_start = 0;    ///< of the next line
  std::size_t m_scanned = 0;  ///< no newline from m_start up to here
  bool m_isSkipping = false;
};
