#pragma once

#include <spdlog/sinks/rotating_file_sink.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

/// A rotating file: qmtdmon.log, and its predecessors qmtdmon.1.log (the youngest) and so on. It is
/// opened at the first write. After a failure nothing is tried for kRetryPause.
class LogFile {
 public:
  static constexpr std::chrono::seconds kRetryPause{30};

  /// Rotates before the file exceeds `maxBytes`; keeps `oldFiles` predecessors.
  LogFile(std::string path, std::size_t maxBytes, std::size_t oldFiles);
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Writes the text as it is, through to the system. Never throws. The reason goes into `problem`
  /// once for each run of failures.
  [[nodiscard]] bool Write(std::string_view text, std::string& problem) noexcept;

 private:
  void Open();

  std::string m_path;
  std::size_t m_maxBytes;
  std::size_t m_oldFiles;
  std::unique_ptr<spdlog::sinks::rotating_file_sink_st> m_sink;
  std::chrono::steady_clock::time_point m_retryAt;
  bool m_failing = false;
};
