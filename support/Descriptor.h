#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

/// Owns one file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  /// Takes `fd`, which may be -1. One that fell onto a closed standard stream is moved above them,
  /// so that no word for the operator ever travels into a socket or file.
  explicit Descriptor(int fd) : m_fd(fd) {
    if (fd >= 0 && fd <= STDERR_FILENO) {
      m_fd = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
      ::close(fd);
    }
  }
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  [[nodiscard]] int Get() const { return m_fd; }
  [[nodiscard]] bool IsOpen() const { return m_fd >= 0; }
  /// Gives the ownership away.
  [[nodiscard]] int Release() { return std::exchange(m_fd, -1); }
  /// Keeps errno, so that a failure can still be told.
  void Close() {
    if (m_fd >= 0) {
      const int savedErrno = errno;
      ::close(std::exchange(m_fd, -1));
      errno = savedErrno;
    }
  }

 private:
  int m_fd = -1;
};
