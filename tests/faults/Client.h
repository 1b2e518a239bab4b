#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "support/Descriptor.h"

namespace faults {

/// The answer of a daemon that leaves its client waiting.
inline constexpr const char* kLeftWaiting = "(left waiting)";

/// A client of run/control.sock that takes a lost connection for an answer of none.
class Client {
 public:
  /// Waits for the socket until it is there or `isOver`.
  explicit Client(std::function<bool()> isOver) : m_isOver(std::move(isOver)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "run/control.sock");
    const timeval limit{1, 0};
    while (!m_isOver()) {
      m_socket = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
      if (::connect(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  /// The answer's line, and what stands behind it of one that tells "bytes"; what has come of it
  /// where the connection ends.
  std::string Ask(const std::string& line) {
    const std::string text = line + "\n";
    if (m_isOver() || ::send(m_socket.Get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) {
      return "";
    }
    ReceiveUntil([this] { return m_input.find('\n') != std::string::npos; });
    const std::size_t end = m_input.find('\n');
    const std::size_t bytes = m_input.find("\"bytes\":");
    if (end != std::string::npos && bytes < end) {
      const std::size_t size = end + 1 + std::stoul(m_input.substr(bytes + 8));
      ReceiveUntil([&] { return m_input.size() >= size; });
    }
    return m_input;
  }

  /// Hands each line that comes on, until that says no or the connection or the service ends.
  void Follow(const std::string& line, const std::function<bool(const std::string&)>& take) {
    const std::string text = line + "\n";
    bool isOpen = !m_isOver() && ::send(m_socket.Get(), text.data(), text.size(), MSG_NOSIGNAL) > 0;
    char chunk[65536];
    while (isOpen) {
      const ssize_t count = ::recv(m_socket.Get(), chunk, sizeof chunk, 0);
      isOpen = count > 0 || (count < 0 && errno == EAGAIN && !m_isOver());
      m_input.append(chunk, count > 0 ? static_cast<std::size_t>(count) : 0);
      for (std::size_t end = 0; (end = m_input.find('\n')) != std::string::npos;) {
        isOpen = take(m_input.substr(0, end)) && isOpen;
        m_input.erase(0, end + 1);
      }
    }
  }

 private:
  void ReceiveUntil(const std::function<bool()>& isDone) {
    constexpr int kMostSeconds = 20;
    char chunk[65536];
    int seconds = 0;
    while (!isDone()) {
      const ssize_t count = ::recv(m_socket.Get(), chunk, sizeof chunk, 0);
      if (count > 0) {
        m_input.append(chunk, static_cast<std::size_t>(count));
      } else if (count == 0 || errno != EAGAIN || m_isOver()) {
        // A service that is over would end its connections with its process.
        return;
      } else if (++seconds == kMostSeconds) {
        m_input = kLeftWaiting;
        return;
      }
    }
  }

  std::function<bool()> m_isOver;
  Descriptor m_socket;
  std::string m_input;
};

}  // namespace faults
