#include "node/local/LogFile.h"

#include <fcntl.h>
#include <spdlog/pattern_formatter.h>

#include <cstdio>
#include <exception>
#include <utility>

namespace {

/// Keeps the file out of the programs that this one starts.
void CloseOnExec(const spdlog::filename_t&, std::FILE* file) {
  const int fd = ::fileno(file);
  ::fcntl(fd, F_SETFD, ::fcntl(fd, F_GETFD) | FD_CLOEXEC);
}

}  // namespace

LogFile::LogFile(std::string path, std::size_t maxBytes, std::size_t oldFiles)
    : m_path(std::move(path)), m_maxBytes(maxBytes), m_oldFiles(oldFiles) {}

LogFile::~LogFile() = default;

void LogFile::Open() {
  spdlog::file_event_handlers handlers;
  handlers.after_open = CloseOnExec;
  m_sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(m_path, m_maxBytes, m_oldFiles,
                                                                  false, handlers);
  m_sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
      "%v", spdlog::pattern_time_type::local, std::string{}));
}

bool LogFile::Write(std::string_view text, std::string& problem) noexcept {
  const auto now = std::chrono::steady_clock::now();
  if (m_failing && now < m_retryAt) {
    return false;
  }
  try {
    if (m_sink == nullptr) {
      Open();
    }
    m_sink->log({spdlog::source_loc{}, spdlog::string_view_t{}, spdlog::level::info,
                 spdlog::string_view_t{text.data(), text.size()}});
    m_sink->flush();
    m_failing = false;
    return true;
  } catch (const std::exception& failure) {
    // A sink that failed may have lost its file and must not be used again.
    m_sink.reset();
    m_retryAt = now + kRetryPause;
    if (!std::exchange(m_failing, true)) {
      try {
        problem = failure.what();
      } catch (...) {
      }
    }
    return false;
  }
}
