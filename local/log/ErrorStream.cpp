#include "local/log/ErrorStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace {

bool IsSocket(int descriptor) {
  struct ::stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

bool HasRoom(int descriptor) {
  ::pollfd state{descriptor, POLLOUT, 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & POLLOUT) != 0;
}

}  // namespace

ErrorStream::ErrorStream(int descriptor)
    : m_descriptor(descriptor), m_isSocket(IsSocket(descriptor)) {}

void ErrorStream::Write(std::string_view line) noexcept {
  const int savedErrno = errno;
  if (m_lostLines != 0) {
    std::array<char, 96> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%s%llu lines are lost here.\n",
                      m_isCut ? "\n" : "", static_cast<unsigned long long>(m_lostLines));
    if (!Put({text.data(), static_cast<std::size_t>(length)})) {
      ++m_lostLines;
      errno = savedErrno;
      return;
    }
    m_lostLines = 0;
    m_isCut = false;
  }
  m_lostLines += Put(line) ? 0 : 1;
  errno = savedErrno;
}

bool ErrorStream::Put(std::string_view text) noexcept {
  const std::size_t whole = text.size();
  while (!text.empty()) {
    // A pipe that has room takes this much without blocking; so does a terminal.
    const std::string_view piece = text.substr(0, PIPE_BUF);
    ssize_t written = -1;
    if (m_isSocket) {
      written = ::send(m_descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } else if (HasRoom(m_descriptor)) {
      written = ::write(m_descriptor, piece.data(), piece.size());
    } else {
      errno = EAGAIN;
    }
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      m_isCut = m_isCut || text.size() != whole;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}
