#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <string_view>

#include "support/Descriptor.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

/// A client of the control socket that blocks, for at most ten seconds a call.
class TestClient {
 public:
  explicit TestClient(const std::string& path = "run/control.sock")
      : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const timeval limit{10, 0};
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  }

  /// Whether all of the line could be sent.
  bool Send(std::string_view line) {
    const std::string text = std::string(line) + "\n";
    std::size_t sent = 0;
    while (sent < text.size()) {
      const ssize_t count =
          ::send(m_socket.Get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) {
        return false;
      }
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

  /// Whether all of the line went into the socket at once.
  bool SendAtOnce(std::string_view line) {
    const std::string text = std::string(line) + "\n";
    return ::send(m_socket.Get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
  }

  /// The text of the next answer, which is long where there are many rows; empty at the end of the
  /// connection.
  std::string ReceiveText() {
    std::size_t seen = 0;
    std::size_t end = 0;
    while ((end = m_input.find('\n', seen)) == std::string::npos) {
      seen = m_input.size();
      char chunk[65536];
      const ssize_t count = ::recv(m_socket.Get(), chunk, sizeof chunk, 0);
      if (count <= 0) {
        return {};
      }
      m_input.append(chunk, static_cast<std::size_t>(count));
    }
    std::string line = m_input.substr(0, end);
    m_input.erase(0, end + 1);
    return line;
  }
  /// The next answer; null at the end of the connection.
  Json Receive() {
    const std::string line = ReceiveText();
    return line.empty() ? Json(nullptr) : JsonOf(line);
  }

  /// So many bytes as they come; fewer at the end of the connection.
  std::string ReceiveBytes(std::size_t size) {
    while (m_input.size() < size) {
      char chunk[65536];
      const ssize_t count = ::recv(m_socket.Get(), chunk, sizeof chunk, 0);
      if (count <= 0) {
        break;
      }
      m_input.append(chunk, static_cast<std::size_t>(count));
    }
    const std::string bytes = m_input.substr(0, size);
    m_input.erase(0, size);
    return bytes;
  }

  Json Ask(std::string_view line) {
    EXPECT_TRUE(Send(line));
    return Receive();
  }

  std::string AskForText(std::string_view line) {
    EXPECT_TRUE(Send(line));
    return ReceiveText();
  }

  void Hangup() { m_socket.Close(); }
  void EndRequests() { ::shutdown(m_socket.Get(), SHUT_WR); }

 private:
  Descriptor m_socket;
  std::string m_input;
};
