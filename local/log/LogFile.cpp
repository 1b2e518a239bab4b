#include "local/log/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

#include "support/RegularFile.h"

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

std::string ReasonOf(int code) {
  return code == ELOOP || code == ENXIO ? "it is a link or no regular file"
                                        : std::generic_category().message(code);
}

}  // namespace

LogFile::LogFile(std::string path, std::size_t maxBytes, std::size_t oldFiles,
                 std::chrono::seconds lookPause)
    : m_path(std::move(path)), m_maxBytes(maxBytes), m_oldFiles(oldFiles), m_lookPause(lookPause) {
  MakeFolder();
}

void LogFile::MakeFolder() const {
  // If this fails, so does the next open, which says why.
  ::mkdir(m_path.substr(0, m_path.rfind('/')).c_str(), kFolderMode);
}

int LogFile::Open() {
  MakeFolder();
  m_file = Descriptor(OpenRegularFile(m_path, O_WRONLY | O_APPEND | O_CREAT, kFileMode));
  struct ::stat status {};
  if (!m_file.IsOpen() || ::fstat(m_file.Get(), &status) != 0) {
    return errno;
  }
  m_size = static_cast<std::size_t>(status.st_size);
  return 0;
}

void LogFile::CloseIfGone(std::chrono::steady_clock::time_point now) {
  if (!m_file.IsOpen() || now < m_lookAt) {
    return;
  }
  m_lookAt = now + m_lookPause;
  struct ::stat named {};
  struct ::stat own {};
  if (::lstat(m_path.c_str(), &named) != 0 || ::fstat(m_file.Get(), &own) != 0 ||
      named.st_dev != own.st_dev || named.st_ino != own.st_ino) {
    m_file.Close();
  }
}

std::string LogFile::PathOf(std::size_t number) const {
  if (number == 0) {
    return m_path;
  }
  const std::size_t dot = m_path.rfind('.');
  return m_path.substr(0, dot) + '.' + std::to_string(number) + m_path.substr(dot);
}

int LogFile::Rotate() {
  m_file.Close();
  for (std::size_t number = m_oldFiles; number > 0; --number) {
    if (std::rename(PathOf(number - 1).c_str(), PathOf(number).c_str()) != 0 && errno != ENOENT) {
      return errno;
    }
  }
  if (m_oldFiles == 0 && ::unlink(m_path.c_str()) != 0) {
    return errno;
  }
  return Open();
}

int LogFile::Append(std::string_view text) {
  if (!m_file.IsOpen()) {
    if (const int code = Open(); code != 0) {
      return code;
    }
  }
  if (m_size != 0 && m_size + text.size() > m_maxBytes) {
    if (const int code = Rotate(); code != 0) {
      return code;
    }
  }
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(m_file.Get(), text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      const int code = written == 0 ? EIO : errno;
      // Half a line would run into the next one.
      [[maybe_unused]] const int cut = ::ftruncate(m_file.Get(), static_cast<off_t>(m_size));
      return code;
    }
    done += static_cast<std::size_t>(written);
  }
  m_size += text.size();
  return 0;
}

bool LogFile::Write(std::string_view text, std::string& problem) noexcept {
  const auto now = std::chrono::steady_clock::now();
  if (m_failing && now < m_retryAt) {
    return false;
  }
  try {
    CloseIfGone(now);
    const int code = Append(text);
    if (code == 0) {
      m_failing = false;
      return true;
    }
    m_file.Close();
    m_retryAt = now + kRetryPause;
    if (!std::exchange(m_failing, true)) {
      problem = m_path + ": " + ReasonOf(code);
    }
  } catch (const std::bad_alloc&) {
    // Without memory for a path the line is lost, and the next one tries anew.
  }
  return false;
}
