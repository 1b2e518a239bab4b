#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <mutex>

#include "gate/Gate.h"
#include "json/JsonText.h"
#include "support/Descriptor.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

/// A connection to that address's port on the loopback, which waits ten seconds at most; closed
/// where there is none. `from`: the address that it comes from, another one of the loopback's.
inline Descriptor ConnectLoopback(const std::string& address, ::in_addr_t from = INADDR_LOOPBACK) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ::sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(from);
  if (from != INADDR_LOOPBACK) {
    EXPECT_EQ(::bind(socket.Get(), reinterpret_cast<::sockaddr*>(&own), sizeof own), 0);
  }
  ::sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  peer.sin_port =
      htons(static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1))));
  const ::timeval limit{10, 0};
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (::connect(socket.Get(), reinterpret_cast<::sockaddr*>(&peer), sizeof peer) != 0) {
    socket.Close();
  }
  return socket;
}

/// A client's connection.
class HttpClient {
 public:
  explicit HttpClient(const std::string& address, ::in_addr_t from = INADDR_LOOPBACK)
      : m_socket(ConnectLoopback(address, from)) {
    EXPECT_TRUE(m_socket.IsOpen()) << address;
  }
  bool Send(const std::string& text) {
    return ::send(m_socket.Get(), text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }
  bool Ask(const std::string& path, const std::string& headers = "",
           const std::string& method = "GET") {
    return Send(method + ' ' + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n");
  }
  /// Nothing more is sent; an answer can still be received.
  void EndSending() { ::shutdown(m_socket.Get(), SHUT_WR); }
  /// All up to the end of the connection, or up to `mark`.
  std::string Receive(const std::string& mark = "") {
    char piece[65536];
    while (mark.empty() || m_text.find(mark) == std::string::npos) {
      const ssize_t count = ::recv(m_socket.Get(), piece, sizeof piece, 0);
      if (count <= 0) {
        break;
      }
      m_text.append(piece, static_cast<std::size_t>(count));
    }
    return m_text;
  }

 private:
  Descriptor m_socket;
  std::string m_text;
};

/// A daemon that answers each line of its clients by a function: what that gives is sent as it is,
/// and the connection is kept. Nothing ends it.
class FakeDaemon {
 public:
  using Answer = std::function<std::string(const Json& request)>;

  FakeDaemon(std::string path, Answer answer)
      : m_path(std::move(path)), m_answer(std::move(answer)) {
    Start();
  }
  ~FakeDaemon() { Stop(); }
  FakeDaemon(const FakeDaemon&) = delete;
  FakeDaemon& operator=(const FakeDaemon&) = delete;

  void Start() {
    m_listener = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    ::unlink(m_path.c_str());
    ASSERT_EQ(::bind(m_listener.Get(), reinterpret_cast<::sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(m_listener.Get(), 64), 0);
    m_acceptor = std::thread([this, listener = m_listener.Get()] { Accept(listener); });
  }
  /// As if it had ended.
  void Stop() {
    ::shutdown(m_listener.Get(), SHUT_RDWR);
    if (m_acceptor.joinable()) {
      m_acceptor.join();
    }
    m_listener.Close();
    {
      const std::lock_guard lock(m_mutex);
      for (const Descriptor& client : m_clients) {
        ::shutdown(client.Get(), SHUT_RDWR);
      }
    }
    for (std::thread& server : m_servers) {
      server.join();
    }
    m_servers.clear();
    m_clients.clear();
    m_followers.clear();
  }
  /// Sends a line to all who follow by the operation.
  void Tell(const std::string& line, const std::string& operation = "follow") {
    const std::lock_guard lock(m_mutex);
    for (const auto& [follower, followed] : m_followers) {
      if (followed == operation) {
        ::send(follower, (line + '\n').data(), line.size() + 1, MSG_NOSIGNAL);
      }
    }
  }
  /// Bytes that were taken as answers.
  [[nodiscard]] std::size_t Sent() const { return m_sent; }
  [[nodiscard]] std::size_t Followers(const std::string& operation = "follow") {
    const std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_followers.begin(), m_followers.end(),
                      [&](const auto& follower) { return follower.second == operation; }));
  }

 private:
  void Accept(int listener) {
    for (int socket = 0; (socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      const std::lock_guard lock(m_mutex);
      m_clients.emplace_back(socket);
      m_servers.emplace_back([this, socket] { Serve(socket); });
    }
  }
  void Serve(int socket) {
    std::string bytes;
    char piece[65536];
    for (ssize_t count = 0; (count = ::recv(socket, piece, sizeof piece, 0)) > 0;) {
      bytes.append(piece, static_cast<std::size_t>(count));
      for (std::size_t end = 0; (end = bytes.find('\n')) != std::string::npos;) {
        const Json request = ParseJson(bytes.substr(0, end)).value;
        bytes.erase(0, end + 1);
        const std::string text = m_answer(request);
        const ssize_t sent = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
        m_sent += sent < 0 ? 0 : static_cast<std::size_t>(sent);
        if (const std::string& op = request["op"].Text(); op.ends_with("follow")) {
          const std::lock_guard lock(m_mutex);
          m_followers.emplace_back(socket, op);
        }
      }
    }
    ::shutdown(socket, SHUT_RDWR);
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_followers, [&](const auto& follower) { return follower.first == socket; });
  }

  std::string m_path;
  Answer m_answer;
  std::atomic<std::size_t> m_sent = 0;
  Descriptor m_listener;
  std::thread m_acceptor;
  std::mutex m_mutex;
  std::vector<Descriptor> m_clients;
  std::vector<std::thread> m_servers;
  std::vector<std::pair<int, std::string>> m_followers;  ///< sockets, and by which operation
};

/// A gate on a thread of its own with a daemon whose answers a test gives.
class GateFixture : public ::testing::Test {
 protected:
  void TearDown() override {
    gate.Stop();
    if (runner.joinable()) {
      runner.join();
    }
    // What a test answers with is gone before this object is.
    daemon.reset();
  }
  /// `answer` is not asked about the settings and the tokens, of which those that begin
  /// with "good" are some.
  void Begin(FakeDaemon::Answer answer, const Json& settings = Json::Object()) {
    daemon = std::make_unique<FakeDaemon>(
        Path(), [this, answer = std::move(answer), settings](const Json& request) {
          const std::string& op = request["op"].Text();
          if (op == "gate") {
            return AnswerSettings(request, settings);
          }
          if (op == "token_check") {
            return std::string("{\"ok\":true,\"valid\":") +
                   (request["token"].Text().starts_with("good") && tokenEnd > std::time(nullptr)
                        ? "true"
                        : "false") +
                   ",\"expires\":" + std::to_string(tokenEnd) + "}\n";
          }
          return answer(request);
        });
    runner = std::thread([this] { EXPECT_EQ(gate.Run(), 0); });
    EXPECT_TRUE(WaitUntil([this] { return !Address().empty(); }));
  }
  std::string Ask(const std::string& path, const std::string& headers = kToken,
                  const std::string& method = "GET") {
    HttpClient client(Address());
    client.Ask(path, headers, method);
    return client.Receive();
  }
  [[nodiscard]] std::string Address() {
    const std::lock_guard lock(mutex);
    return address;
  }
  /// What the gate has told last in a member of the operation `gate`.
  [[nodiscard]] std::string Told(const std::string& member) {
    const std::lock_guard lock(mutex);
    return told.find(member) == told.end() ? "" : JsonText(told.find(member)->second);
  }
  [[nodiscard]] std::string Path() const { return (folder.Path() / "control.sock").string(); }

  static constexpr const char* kToken = "Authorization: Bearer good\r\n";

  TempFolder folder;
  std::mutex mutex;
  std::string flood;  ///< the first answer about the settings, if there is one
  std::atomic<std::int64_t> tokenEnd = 9999999999;
  std::string address;
  std::map<std::string, Json> told;
  std::unique_ptr<FakeDaemon> daemon;
  Gate gate{Path(), false};
  std::thread runner;

 private:
  std::string AnswerSettings(const Json& request, const Json& settings) {
    {
      const std::lock_guard lock(mutex);
      for (const auto& [name, value] : request.Members()) {
        told[name] = value;
      }
      if (!flood.empty()) {
        return std::exchange(flood, {});
      }
    }
    if (const Json* addresses = request.Find("addresses");
        addresses != nullptr && addresses->Size() != 0) {
      const std::lock_guard lock(mutex);
      address = (*addresses)[0].Text();
    }
    Json answer{
        {"mode", "unit"}, {"listen", Json::Array({"127.0.0.1:0"})}, {"host", "own.example"}};
    for (const auto& [name, value] : settings.Members()) {
      answer[name] = value;
    }
    return JsonText(Json{{"ok", true}, {"gate", answer}}) + '\n';
  }
};
