#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "support/Descriptor.h"

/// A server of HTTP on the loopback, well-behaved or not: each request is served by a function of
/// the test's, on a thread of its connection.
class FakeServer {
 public:
  /// One request and the connection that it came by.
  struct Request {
    std::string head;
    std::string body;
    int connection = 0;  ///< the first is 1
    int socket = -1;
    const std::atomic<bool>* isOver = nullptr;

    [[nodiscard]] std::string Header(std::string_view name) const {
      for (std::size_t line = 0; (line = head.find("\r\n", line)) != std::string::npos;) {
        line += 2;
        if (::strncasecmp(head.data() + line, name.data(), name.size()) == 0 &&
            head[line + name.size()] == ':') {
          const std::size_t value = line + name.size() + 2;
          return head.substr(value, head.find("\r\n", value) - value);
        }
      }
      return "";
    }
    bool Say(std::string_view text) const {
      return ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) ==
             static_cast<ssize_t>(text.size());
    }
    /// Answers as servers do; the connection may bring more.
    bool Answer(const std::string& status, const std::string& text = "",
                const std::string& headers = "") const {
      return Say("HTTP/1.1 " + status + "\r\n" + headers +
                 "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text);
    }
    /// Waits until the client has gone or the server ends.
    bool StaySilent() const {
      char byte = 0;
      while (!*isOver && ::recv(socket, &byte, 1, MSG_DONTWAIT) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      return false;
    }
  };
  /// False: the connection is closed.
  using Serve = std::function<bool(const Request& request)>;

  explicit FakeServer(Serve serve, std::uint16_t port = 0)
      : m_serve(std::move(serve)), m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int yes = 1;
    ::setsockopt(m_listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    ::socklen_t size = sizeof address;
    if (::bind(m_listener.Get(), reinterpret_cast<::sockaddr*>(&address), size) == 0 &&
        ::listen(m_listener.Get(), 64) == 0) {
      ::getsockname(m_listener.Get(), reinterpret_cast<::sockaddr*>(&address), &size);
      m_port = ntohs(address.sin_port);
    }
    m_acceptor = std::thread([this] { Accept(); });
  }
  ~FakeServer() {
    m_isOver = true;
    ::shutdown(m_listener.Get(), SHUT_RDWR);
    m_acceptor.join();
    for (Connection& connection : m_connections) {
      ::shutdown(connection.socket.Get(), SHUT_RDWR);
      connection.thread.join();
    }
  }
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

  [[nodiscard]] std::uint16_t Port() const { return m_port; }
  [[nodiscard]] std::string Url(const std::string& path = "/") const {
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
  }
  /// Requests that have come whole.
  [[nodiscard]] int Requests() const { return m_requests; }

 private:
  struct Connection {
    Descriptor socket;
    std::thread thread;
  };

  void Accept() {
    for (int socket = 0;
         (socket = ::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      m_connections.push_back({.socket = Descriptor(socket), .thread = {}});
      m_connections.back().thread =
          std::thread([this, socket, number = static_cast<int>(m_connections.size())] {
            ServeConnection(socket, number);
          });
    }
  }
  void ServeConnection(int socket, int number) {
    std::string bytes;
    for (Request request; ReadRequest(socket, bytes, request);) {
      ++m_requests;
      request.connection = number;
      request.socket = socket;
      request.isOver = &m_isOver;
      if (!m_serve(request)) {
        break;
      }
    }
    ::shutdown(socket, SHUT_RDWR);
  }
  static bool Fill(int socket, std::string& bytes) {
    char piece[65536];
    const ssize_t count = ::recv(socket, piece, sizeof piece, 0);
    bytes.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
  }
  static bool ReadRequest(int socket, std::string& bytes, Request& request) {
    std::size_t end = 0;
    while ((end = bytes.find("\r\n\r\n")) == std::string::npos) {
      if (!Fill(socket, bytes)) {
        return false;
      }
    }
    request.head = bytes.substr(0, end + 2);
    bytes.erase(0, end + 4);
    const std::string length = request.Header("Content-Length");
    const std::size_t size = length.empty() ? 0 : std::stoul(length);
    while (bytes.size() < size) {
      if (!Fill(socket, bytes)) {
        return false;
      }
    }
    request.body = bytes.substr(0, size);
    bytes.erase(0, size);
    return true;
  }

  Serve m_serve;
  Descriptor m_listener;
  std::uint16_t m_port = 0;
  std::atomic<bool> m_isOver = false;
  std::atomic<int> m_requests = 0;
  std::list<Connection> m_connections;
  std::thread m_acceptor;
};
