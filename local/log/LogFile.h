#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/Descriptor.h"

/// A rotating file: qmtdmon.log, and its predecessors qmtdmon.1.log (the youngest) and so on. It is
/// opened at the first write, and only as a regular file that is no link; its folder is made at
/// once, and anew where it is missing. A file that another program has removed or renamed is made
/// anew, kLookPause later at the latest. After a failure nothing is tried for kRetryPause.
class LogFile {
 public:
  static constexpr std::chrono::seconds kRetryPause{30};
  static constexpr std::chrono::seconds kLookPause{5};

  /// Rotates before the file exceeds `maxBytes`; keeps `oldFiles` predecessors. `lookPause`:
  /// between two looks at whether the file still stands under its name.
  LogFile(std::string path, std::size_t maxBytes, std::size_t oldFiles,
          std::chrono::seconds lookPause = kLookPause);

  /// Appends the text as it is, whole or not at all. Never throws. The reason goes into `problem`
  /// once for each run of failures.
  [[nodiscard]] bool Write(std::string_view text, std::string& problem) noexcept;

 private:
  void MakeFolder() const;
  /// These give what went wrong, an error of the system or 0.
  [[nodiscard]] int Open();
  /// Closes the file where another one, or none, stands under its name.
  void CloseIfGone(std::chrono::steady_clock::time_point now);
  [[nodiscard]] int Append(std::string_view text);
  [[nodiscard]] int Rotate();
  [[nodiscard]] std::string PathOf(std::size_t number) const;

  std::string m_path;
  std::size_t m_maxBytes;
  std::size_t m_oldFiles;
  std::chrono::seconds m_lookPause;
  std::chrono::steady_clock::time_point m_lookAt;
  Descriptor m_file;
  std::size_t m_size = 0;
  std::chrono::steady_clock::time_point m_retryAt;
  bool m_failing = false;
};
