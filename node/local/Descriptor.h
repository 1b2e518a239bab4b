#pragma once

#include <unistd.h>

#include <utility>

/// Owns one open file descriptor and closes it.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : m_fd(fd) {}
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
  }
  ~Descriptor() { Close(); }

  [[nodiscard]] bool IsOpen() const { return m_fd >= 0; }
  /// -1 if none is held.
  [[nodiscard]] int Get() const { return m_fd; }
  /// Gives the ownership away.
  [[nodiscard]] int Release() { return std::exchange(m_fd, -1); }
  void Close() {
    if (IsOpen()) {
      ::close(std::exchange(m_fd, -1));
    }
  }

 private:
  int m_fd = -1;
};
