#pragma once

#include <cstdint>
#include <string_view>

/// Standard error for a program that must never wait for whoever reads it. A line for which there
/// is no room is lost; once there is room again, a line tells how many are.
class ErrorStream {
 public:
  /// The descriptor stays the caller's, flags included: others may share them.
  explicit ErrorStream(int descriptor);

  /// Writes a line, given with its end. errno is kept.
  void Write(std::string_view line) noexcept;

 private:
  [[nodiscard]] bool Put(std::string_view text) noexcept;

  int m_descriptor;
  bool m_isSocket;
  bool m_isCut = false;  ///< the last line went out in part
  std::uint64_t m_lostLines = 0;
};
