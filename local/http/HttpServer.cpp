#include "local/http/HttpServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 128;

struct FreeAddresses {
  void operator()(::addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<::addrinfo, FreeAddresses>;

bool IsWhole(const std::from_chars_result& result, const char* end) {
  return result.ec == std::errc{} && result.ptr == end;
}

/// "127.0.0.1:9964" or "[::1]:9964" as the system takes it; null if it is neither.
Addresses ParseAddress(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  // The system takes numbers beyond the last port for others.
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size() ||
      !IsWhole(std::from_chars(text.data() + colon + 1, end, port), end)) {
    return nullptr;
  }
  std::string host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    return nullptr;
  }
  ::addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  ::addrinfo* list = nullptr;
  return ::getaddrinfo(host.c_str(), text.c_str() + colon + 1, &hints, &list) == 0 ? Addresses(list)
                                                                                   : nullptr;
}

/// The address that a socket is bound to.
std::string BoundAddress(int socket) {
  ::sockaddr_storage storage{};
  ::socklen_t size = sizeof storage;
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  auto* address = reinterpret_cast<::sockaddr*>(&storage);
  if (::getsockname(socket, address, &size) != 0 ||
      ::getnameinfo(address, size, host.data(), host.size(), port.data(), port.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "";
  }
  const std::string name = storage.ss_family == AF_INET6 ? '[' + std::string(host.data()) + ']'
                                                         : std::string(host.data());
  return name + ':' + port.data();
}

/// Not open, with the reason in errno, if that can't be.
Descriptor Listen(const ::addrinfo& address) {
  Descriptor socket(::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket.IsOpen() ||
      ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.Get(), address.ai_addr, address.ai_addrlen) != 0 ||
      ::listen(socket.Get(), kBacklog) != 0) {
    const int code = errno;
    socket.Close();
    errno = code;
  }
  return socket;
}

std::string HeaderOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? "" : value;
}

MHD_Result Send(MHD_Connection* connection, const HttpAnswer& answer) {
  MHD_Response* response = MHD_create_response_from_buffer(
      answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) {
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.contentType.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  const MHD_Result result = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace

/// The functions that the library calls; `server` is the HttpServer. The library is C: what is
/// thrown ends the connection and goes no further.
class HttpServer::Library {
 public:
  static MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* url,
                              const char* method, const char*, const char*, std::size_t* bodySize,
                              void** state) noexcept {
    try {
      return Serve(*static_cast<HttpServer*>(server), connection, url, method, bodySize, state);
    } catch (...) {
      return MHD_NO;
    }
  }

  static void OnCompleted(void* server, MHD_Connection*, void** state,
                          MHD_RequestTerminationCode) noexcept {
    static_cast<HttpServer*>(server)->m_exchanges.erase(static_cast<HttpExchange*>(*state));
    *state = nullptr;
  }

  static void OnConnection(void* server, MHD_Connection* connection, void**,
                           MHD_ConnectionNotificationCode code) noexcept {
    auto& self = *static_cast<HttpServer*>(server);
    if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
      self.m_connections.erase(connection);
      return;
    }
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const int descriptor = info == nullptr ? -1 : info->connect_fd;
    try {
      self.m_connections[connection] = {Clock::now() + self.m_settings.deadline, descriptor, false};
    } catch (...) {
      // Without its deadline it may not stay.
      ::shutdown(descriptor, SHUT_RDWR);
    }
  }

  static MHD_Result OnArgument(void* exchange, MHD_ValueKind, const char* name,
                               const char* value) noexcept {
    try {
      static_cast<HttpExchange*>(exchange)->arguments.emplace_back(name,
                                                                   value == nullptr ? "" : value);
      return MHD_YES;
    } catch (...) {
      return MHD_NO;
    }
  }

 private:
  static MHD_Result Serve(HttpServer& self, MHD_Connection* connection, const char* url,
                          const char* method, std::size_t* bodySize, void** state) {
    if (*state == nullptr) {
      return Begin(self, connection, url, method, state);
    }
    if (*bodySize != 0) {
      *bodySize = 0;
      return MHD_YES;
    }
    auto* exchange = static_cast<HttpExchange*>(*state);
    if (exchange->IsAnswered()) {
      return Send(connection, exchange->TheAnswer());
    }
    self.m_handler(self.m_exchanges.at(exchange));
    if (exchange->IsAnswered()) {
      return Send(connection, exchange->TheAnswer());
    }
    MHD_suspend_connection(connection);
    self.m_connections[connection].isSuspended = true;
    exchange->OnAnswer([&self, connection, exchange, isOpen = self.m_isOpen] {
      // The server, or the connection, may have gone meanwhile.
      if (*isOpen && self.m_exchanges.contains(exchange)) {
        self.m_connections[connection].isSuspended = false;
        MHD_resume_connection(connection);
        self.Work();
      }
    });
    return MHD_YES;
  }

  static MHD_Result Begin(HttpServer& self, MHD_Connection* connection, const char* url,
                          std::string_view method, void** state) {
    auto exchange = std::make_shared<HttpExchange>();
    exchange->path = url;
    exchange->accept = HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT);
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, OnArgument, exchange.get());
    *state = exchange.get();
    self.m_exchanges[exchange.get()] = exchange;
    if (method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD) {
      return MHD_YES;
    }
    return Send(connection,
                {MHD_HTTP_METHOD_NOT_ALLOWED, HttpAnswer{}.contentType, "only GET and HEAD\n"});
  }
};

HttpServer::HttpServer(EventLoop& loop, Handler handler, HttpSettings settings)
    : m_loop(loop),
      m_handler(std::move(handler)),
      m_settings(std::move(settings)),
      m_ready(loop),
      m_timer(loop),
      m_door(
          loop,
          HttpDoorSettings{.head = m_settings.head,
                           .maxVisitors = m_settings.maxConnections,
                           .deadline = m_settings.deadline},
          [this] { return HasRoom(); },
          [this](Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t size) {
            Enter(std::move(socket), peer, size);
          }) {}

HttpServer::~HttpServer() { Close(); }

bool HttpServer::IsAddress(const std::string& text) { return ParseAddress(text) != nullptr; }

bool HttpServer::Open(const std::string& address, std::string& error) {
  Close();
  const Addresses parsed = ParseAddress(address);
  if (parsed == nullptr) {
    error = "\"" + address + "\" is no ADDRESS:PORT such as 127.0.0.1:9964 or [::1]:9964";
    return false;
  }
  Descriptor socket = Listen(*parsed);
  if (!socket.IsOpen()) {
    error = address + ": can't listen: " + std::strerror(errno);
    return false;
  }
  m_address = BoundAddress(socket.Get());
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(m_settings.deadline).count();
  m_daemon = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr,
      Library::OnRequest, this, MHD_OPTION_CONNECTION_LIMIT, m_settings.maxConnections,
      MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_settings.memory, MHD_OPTION_CONNECTION_TIMEOUT,
      static_cast<unsigned>(seconds), MHD_OPTION_NOTIFY_COMPLETED, Library::OnCompleted, this,
      MHD_OPTION_NOTIFY_CONNECTION, Library::OnConnection, this, MHD_OPTION_END);
  const MHD_DaemonInfo* info =
      m_daemon == nullptr ? nullptr : MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
  if (info == nullptr) {
    error = address + ": the HTTP server can't start";
    Close();
    return false;
  }
  *m_isOpen = true;
  m_ready.Borrow(info->epoll_fd);
  m_door.Open(std::move(socket));
  WaitForWork();
  Work();
  return true;
}

void HttpServer::Close() {
  m_door.Close();
  if (std::exchange(*m_isOpen, false)) {
    static_cast<void>(m_ready.Release());
    m_timer.Cancel();
    for (const auto& [exchange, owner] : m_exchanges) {
      exchange->OnAnswer({});
    }
  }
  if (m_daemon != nullptr) {
    for (const auto& [connection, facts] : m_connections) {
      if (facts.isSuspended) {
        MHD_resume_connection(static_cast<MHD_Connection*>(connection));
      }
    }
    MHD_stop_daemon(std::exchange(m_daemon, nullptr));
  }
  m_connections.clear();
  m_exchanges.clear();
  m_address.clear();
}

void HttpServer::WaitForWork() {
  m_ready.OnReadable([this] {
    Work();
    WaitForWork();
  });
}

void HttpServer::Enter(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize) {
  // The library closes it, also if it does not take it.
  MHD_add_connection(m_daemon, socket.Release(), reinterpret_cast<const ::sockaddr*>(&peer),
                     peerSize);
  m_hasNew = true;
  if (!m_isWorking) {
    Work();
  }
}

void HttpServer::Work() {
  m_isWorking = true;
  std::size_t before = 0;
  do {
    m_hasNew = false;
    before = m_connections.size();
    MHD_run(m_daemon);
    m_door.OnRoom();
    // The library finds out in the turn behind that one of its connections has ended.
  } while (m_hasNew || m_connections.size() < before);
  m_isWorking = false;
  EndLateConnections();
  WatchTime();
}

void HttpServer::WatchTime() {
  MHD_UNSIGNED_LONG_LONG milliseconds = 0;
  Clock::time_point next = Clock::time_point::max();
  if (MHD_get_timeout(m_daemon, &milliseconds) == MHD_YES) {
    next = Clock::now() + std::chrono::milliseconds(milliseconds);
  }
  for (const auto& [connection, facts] : m_connections) {
    next = std::min(next, facts.end);
  }
  if (next == Clock::time_point::max()) {
    m_timer.Cancel();
    return;
  }
  m_timer.At(next, [this] { Work(); });
}

void HttpServer::EndLateConnections() {
  const Clock::time_point now = Clock::now();
  for (auto& [connection, facts] : m_connections) {
    if (facts.end <= now) {
      // The library sees the end and cleans up; one that waits for its answer gets another chance.
      ::shutdown(facts.descriptor, SHUT_RDWR);
      facts.end = now + m_settings.deadline;
    }
  }
}
