#include "agent/ProductLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "support/HostPaths.h"
#include "support/Uninterrupted.h"

namespace {

// Who may open the file may lock it too, and so keep the service from starting.
constexpr mode_t kFileMode = 0600;

std::string HolderOf(int descriptor) {
  std::array<char, 20> buffer{};
  const ssize_t size =
      Uninterrupted([&] { return ::pread(descriptor, buffer.data(), buffer.size(), 0); });
  const std::string text(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  const std::string digits = text.substr(0, text.find_first_not_of("0123456789"));
  return digits.empty() ? "another process" : "process " + digits;
}

}  // namespace

ProductLock::~ProductLock() {
  if (m_descriptor >= 0) {
    // A child that was forked meanwhile shares the lock: closing alone would leave it held.
    ::flock(m_descriptor, LOCK_UN);
    ::close(m_descriptor);
  }
}

bool ProductLock::Take() {
  const std::string path = ProductPath("/opt/qmtrx/mond/qmtdmon.lock");
  // Without O_NONBLOCK the open of a pipe that stands there could wait for ever.
  m_descriptor =
      ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, kFileMode);
  if (m_descriptor < 0) {
    const int code = errno;
    m_reason = path + ": " + std::strerror(code);
    return code == ENOENT;
  }
  struct ::stat status {};
  if (::fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    m_reason = path + ": no regular file";
    return false;
  }
  if (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
    m_reason = path + ": locked by " + HolderOf(m_descriptor);
    return false;
  }
  // The number is a courtesy to whoever is refused: without it the lock holds all the same.
  const std::string text = std::to_string(::getpid()) + '\n';
  [[maybe_unused]] const bool isWritten =
      ::ftruncate(m_descriptor, 0) == 0 && ::pwrite(m_descriptor, text.data(), text.size(), 0) > 0;
  return true;
}
