#pragma once

#include <array>
#include <cstddef>

#include "collect/ProcLib.h"

/// Takes lines from a descriptor as fgets does, without a stream for each file: a small file costs
/// one read(2). Meant to be used for one file after the other.
class LineReader {
 public:
  LineReader() = default;
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Begins with another file, which stays the caller's.
  void Start(int descriptor);
  /// The next line with its end, or its next piece; false, and an empty line, at the end of the
  /// file, after 128 Kbytes (a captured tree may hold a file without end) and if it cannot be read.
  [[nodiscard]] bool Next(ProcLine& line);

 private:
  [[nodiscard]] bool Fill();

  int m_descriptor = -1;
  std::size_t m_taken = 0;
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
  std::array<char, 4096> m_buffer;
};
