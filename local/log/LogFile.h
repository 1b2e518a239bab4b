#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/Descriptor.h"

/// A rotating file: qmtdmon.log, and its predecessors qmtdmon.1.log (the youngest) and so on. It is
/// opened at the first write, and only as a regular file that is no link. After a failure nothing
/// is tried for kRetryPause.
class LogFile {
 public:
  static constexpr std::chrono::seconds kRetryPause{30};

  /// Rotates before the file exceeds `maxBytes`; keeps `oldFiles` predecessors.
  LogFile(std::string path, std::size_t maxBytes, std::size_t oldFiles);

  /// Appends the text as it is, whole or not at all. Never throws. The reason goes into `problem`
  /// once for each run of failures.
  [[nodiscard]] bool Write(std::string_view text, std::string& problem) noexcept;

 private:
  /// These give what went wrong, an error of the system or 0.
  [[nodiscard]] int Open();
  [[nodiscard]] int Append(std::string_view text);
  [[nodiscard]] int Rotate();
  [[nodiscard]] std::string PathOf(std::size_t number) const;

  std::string m_path;
  std::size_t m_maxBytes;
  std::size_t m_oldFiles;
  Descriptor m_file;
  std::size_t m_size = 0;
  std::chrono::steady_clock::time_point m_retryAt;
  bool m_failing = false;
};
