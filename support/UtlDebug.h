#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/TimeValues.h"

/// Writes record dumps to the data trace: values of one row parted by commas, a row ended by a
/// newline. A line of more than 4096 bytes is dropped with a warning.
class UtlDebug {
 public:
  /// Whether dumps are on: `g_msgDataLevel` above 39.
  [[nodiscard]] static bool IsDumpEnabled();

  void Append(std::string_view text);
  void Append(std::int32_t value);
  void Append(std::uint32_t value);
  void Append(std::uint16_t value);
  void Append(float value);
  void Append(double value);
  void Append(const tagUTIME& value);
  /// Sends what was collected as one line, and clears it.
  void Flush();
  /// Sends `length` bytes; a piece that the trace did not take is sent again.
  static void PrintData(const char* text, std::size_t length);

 private:
  std::string m_line;
  bool m_empty = true;
};
