#include "gate/http/HttpServer.h"

#include <microhttpd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "gate/http/HeaderWeight.h"
#include "gate/http/ListenSocket.h"
#include "gate/http/TlsCertificate.h"
#include "support/ListenAddress.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Null if the library can't tell it.
const ::sockaddr* PeerOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  return info == nullptr ? nullptr : info->client_addr;
}

std::string HeaderOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? "" : value;
}

/// What the head of a request must not bring; behind TLS nobody has counted them before.
HeadVerdict JudgeArguments(const HttpExchange::Arguments& arguments) {
  if (arguments.size() > HeadRule::kMaxArguments) {
    return {MHD_HTTP_URI_TOO_LONG, "the request has more than 100 arguments"};
  }
  const bool hasZero = std::ranges::any_of(arguments, [](const auto& argument) {
    return argument.first.find('\0') != std::string::npos ||
           argument.second.find('\0') != std::string::npos;
  });
  return hasZero ? HeadVerdict{MHD_HTTP_BAD_REQUEST, "the request has a zero byte"} : HeadVerdict{};
}

void AddHeaders(MHD_Response* response, const HttpAnswer& answer) {
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.contentType.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  if (answer.isGzip) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_ENCODING, "gzip");
    MHD_add_response_header(response, MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT_ENCODING);
  }
  // No page of another site shows it, guesses at its type, or learns where its readers come from.
  MHD_add_response_header(response, "Content-Security-Policy",
                          "default-src 'self'; base-uri 'none'; form-action 'none'; "
                          "frame-ancestors 'none'");
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  MHD_add_response_header(response, "Referrer-Policy", "no-referrer");
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
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
    auto& exchanges = static_cast<HttpServer*>(server)->m_exchanges;
    const auto found = exchanges.find(static_cast<HttpExchange*>(*state));
    *state = nullptr;
    if (found == exchanges.end()) {
      return;
    }
    const std::shared_ptr<HttpExchange> exchange = found->second;
    exchanges.erase(found);
    try {
      exchange->Leave();
    } catch (...) {
      // Who waits for that hears nothing more of the exchange in any case.
    }
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
      const Clock::time_point now = Clock::now();
      const ::sockaddr* peer = PeerOf(connection);
      self.m_connections[connection] = {now, now + self.m_settings.deadline, descriptor,
                                        peer == nullptr ? "" : self.m_settings.shareKey(*peer)};
    } catch (...) {
      // Without its deadline it may not stay.
      ::shutdown(descriptor, SHUT_RDWR);
    }
  }

  /// Called before the head is read any further; what it gives is the request's state.
  static void* OnTarget(void* server, const char* target, MHD_Connection* connection) noexcept {
    auto& connections = static_cast<HttpServer*>(server)->m_connections;
    if (const auto found = connections.find(connection); found != connections.end()) {
      found->second.targetSize = std::strlen(target);
    }
    return nullptr;
  }

  static MHD_Result OnArgument(void* exchange, MHD_ValueKind, const char* name,
                               std::size_t nameSize, const char* value,
                               std::size_t valueSize) noexcept {
    try {
      const auto text = [](const char* bytes, std::size_t size) {
        return bytes == nullptr ? std::string() : std::string(bytes, size);
      };
      static_cast<HttpExchange*>(exchange)->arguments.emplace_back(text(name, nameSize),
                                                                   text(value, valueSize));
      return MHD_YES;
    } catch (...) {
      return MHD_NO;
    }
  }

 private:
  /// What a body that comes by and by is read from.
  struct Reader {
    HttpServer& server;
    MHD_Connection* connection;
    std::shared_ptr<HttpStream> stream;
  };

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
    if (!exchange->IsAnswered()) {
      self.m_handler(self.m_exchanges.at(exchange));
    }
    if (exchange->IsAnswered()) {
      return Send(self, connection, *exchange);
    }
    MHD_suspend_connection(connection);
    Connection& facts = self.m_connections[connection];
    facts.isSuspended = true;
    facts.end = Clock::now() + self.m_settings.patience;
    exchange->OnAnswer([&self, connection] { Resume(self, connection); });
    return MHD_YES;
  }

  static void Resume(HttpServer& self, MHD_Connection* connection) {
    const auto found = self.m_connections.find(connection);
    if (found != self.m_connections.end() && std::exchange(found->second.isSuspended, false)) {
      MHD_resume_connection(connection);
      self.WorkSoon();
    }
  }

  static MHD_Result Begin(HttpServer& self, MHD_Connection* connection, const char* url,
                          std::string_view method, void** state) {
    auto exchange = std::make_shared<HttpExchange>();
    exchange->path = url;
    exchange->accept = HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT);
    exchange->authorization = HeaderOf(connection, MHD_HTTP_HEADER_AUTHORIZATION);
    exchange->lastEventId = HeaderOf(connection, "Last-Event-ID");
    exchange->ifNoneMatch = HeaderOf(connection, MHD_HTTP_HEADER_IF_NONE_MATCH);
    exchange->requestedWith = HeaderOf(connection, "X-Requested-With");
    exchange->takesGzip =
        WeightOf(HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT_ENCODING), "gzip") > 0;
    exchange->isTls = self.m_settings.isTls;
    exchange->isLoopback = self.m_isLoopback;
    if (const ::sockaddr* peer = PeerOf(connection); peer != nullptr) {
      exchange->peer = AddressText(*peer);
    }
    MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, OnArgument, exchange.get());
    *state = exchange.get();
    self.m_exchanges[exchange.get()] = exchange;
    self.m_connections[connection].hasRequest = true;
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
      exchange->Answer(
          {MHD_HTTP_METHOD_NOT_ALLOWED, HttpAnswer{}.contentType, "only GET and HEAD\n"});
      return Send(self, connection, *exchange);
    }
    HeadVerdict verdict = JudgeArguments(exchange->arguments);
    if (verdict.status == 0 && self.m_settings.isTls) {
      verdict = JudgeUnseen(self, connection, method);
    }
    if (verdict.status != 0) {
      Refusal refusal = RefusalOf(verdict, std::string(method) + ' ' + url);
      exchange->Answer({refusal.status, refusal.contentType, std::move(refusal.body)});
      return Send(self, connection, *exchange);
    }
    return MHD_YES;
  }

  /// Behind TLS nobody has looked at the head before.
  static HeadVerdict JudgeUnseen(HttpServer& self, MHD_Connection* connection,
                                 std::string_view method) {
    constexpr std::string_view kRest = "  HTTP/1.1";
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    const int headers = MHD_get_connection_values(connection, MHD_HEADER_KIND, nullptr, nullptr);
    const HeadVerdict verdict = JudgeSizes(
        method.size() + self.m_connections[connection].targetSize + kRest.size(),
        info == nullptr ? 0 : info->header_size, static_cast<std::size_t>(headers), self.m_head);
    // Without a Host it is one of HTTP/1.0.
    const char* host =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
    return verdict.status == 0 && host != nullptr ? JudgeHost(host, self.m_head) : verdict;
  }

  static ssize_t Read(void* state, std::uint64_t, char* target, std::size_t size) noexcept {
    auto& reader = *static_cast<Reader*>(state);
    Clock::time_point& deadline = reader.server.m_connections[reader.connection].end;
    if (reader.stream->IsEnded() && deadline == Clock::time_point::max()) {
      deadline = Clock::now() + reader.server.m_settings.answerTime;
    }
    const std::size_t count = reader.stream->Take(target, size);
    if (count != 0) {
      return static_cast<ssize_t>(count);
    }
    if (reader.stream->IsEnded()) {
      return MHD_CONTENT_READER_END_OF_STREAM;
    }
    MHD_suspend_connection(reader.connection);
    reader.server.m_connections[reader.connection].isSuspended = true;
    return 0;
  }

  static void FreeReader(void* state) noexcept { delete static_cast<Reader*>(state); }

  static MHD_Response* Respond(HttpServer& self, MHD_Connection* connection,
                               const HttpExchange& exchange) {
    constexpr std::size_t kAnswerBlock = 16384;
    if (exchange.Stream() == nullptr) {
      // The exchange outlives its answer.
      const std::string& body = exchange.TheAnswer().body;
      return MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()),
                                             MHD_RESPMEM_PERSISTENT);
    }
    auto reader = std::make_unique<Reader>(Reader{self, connection, exchange.Stream()});
    MHD_Response* response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kAnswerBlock, Read,
                                                               reader.get(), FreeReader);
    if (response != nullptr) {
      static_cast<void>(reader.release());
    }
    return response;
  }

  static MHD_Result Send(HttpServer& self, MHD_Connection* connection, HttpExchange& exchange) {
    MHD_Response* response = Respond(self, connection, exchange);
    if (response == nullptr) {
      return MHD_NO;
    }
    const HttpAnswer& answer = exchange.TheAnswer();
    AddHeaders(response, answer);
    Connection& facts = self.m_connections[connection];
    facts.end = Clock::now() + self.m_settings.answerTime;
    if (exchange.Stream() != nullptr) {
      facts.end = Clock::time_point::max();
      exchange.Stream()->OnMore([&self, connection] { Resume(self, connection); });
      exchange.Stream()->AskPeerBy([&self, connection] {
        const auto found = self.m_connections.find(connection);
        return found != self.m_connections.end() && HasPeerEnded(found->second.descriptor);
      });
    }
    const MHD_Result result = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return result;
  }
};

HttpServer::HttpServer(IoLoop& loop, Handler handler, HttpSettings settings)
    : m_handler(std::move(handler)),
      m_settings(std::move(settings)),
      m_head(m_settings.head),
      m_ready(loop),
      m_timer(loop),
      m_door(
          loop,
          HttpDoorSettings{.head = m_settings.head,
                           .looks = !m_settings.isTls,
                           .maxVisitors = m_settings.maxConnections,
                           .deadline = m_settings.deadline,
                           .shareKey = m_settings.shareKey},
          [this](const ::sockaddr_storage& peer) { return HasRoom(peer); },
          [this](Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t size) {
            Enter(std::move(socket), peer, size);
          }) {}

HttpServer::~HttpServer() { Close(); }

void HttpServer::SetHostNames(std::vector<std::string> names) {
  m_head.hostNames = names;
  m_door.SetHostNames(std::move(names));
}

bool HttpServer::HasRoom(const ::sockaddr_storage& peer) {
  if (m_connections.size() < m_settings.maxConnections) {
    const std::string key = m_settings.shareKey(reinterpret_cast<const ::sockaddr&>(peer));
    return key.empty() || std::ranges::count_if(m_connections, [&](const auto& entry) {
                            return entry.second.peer == key;
                          }) < static_cast<std::ptrdiff_t>(m_settings.maxConnections / kShares);
  }
  if (m_settings.isTls) {
    EndSilentConnection();
  }
  return false;
}

void HttpServer::EndSilentConnection() {
  constexpr std::chrono::milliseconds kPatience{1000};
  const Clock::time_point latest = Clock::now() - kPatience;
  for (auto& [connection, facts] : m_connections) {
    if (!facts.hasRequest && facts.since <= latest) {
      ::shutdown(facts.descriptor, SHUT_RDWR);
      facts.hasRequest = true;
      return;
    }
  }
}

bool HttpServer::Open(const std::string& address, std::string& error) {
  Close();
  const std::optional<ListenAddress> parsed = ParseListenAddress(address);
  if (!parsed) {
    error = "\"" + address + "\" is no " + kListenAddressForm;
    return false;
  }
  Descriptor socket = Listen(*parsed);
  if (!socket.IsOpen()) {
    error = address + ": can't listen: " + std::strerror(errno);
    return false;
  }
  m_address = BoundAddress(socket.Get());
  if (m_address.empty()) {
    error = address + ": can't listen: its port can't be told";
    return false;
  }
  m_isLoopback = IsLoopbackAddress(*parsed->Get());
  m_daemon = Start();
  const MHD_DaemonInfo* info =
      m_daemon == nullptr ? nullptr : MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
  if (info == nullptr) {
    error = address + ": the HTTP server can't start";
    Close();
    return false;
  }
  m_ready.Borrow(info->epoll_fd);
  m_door.Open(std::move(socket));
  WaitForWork();
  Work();
  return true;
}

MHD_Daemon* HttpServer::Start() {
  const auto seconds =
      static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(m_settings.deadline).count());
  unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_NO_LISTEN_SOCKET;
  std::vector<MHD_OptionItem> options;
  if (m_settings.isTls) {
    flags |= MHD_USE_TLS;
    options.push_back(
        {MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(TlsCertificate::kPriorities)});
    options.push_back({MHD_OPTION_HTTPS_CERT_CALLBACK, 0, TlsCertificate::Callback()});
    options.push_back(
        {MHD_OPTION_URI_LOG_CALLBACK, reinterpret_cast<std::intptr_t>(&Library::OnTarget), this});
  }
  options.push_back({MHD_OPTION_END, 0, nullptr});
  return MHD_start_daemon(
      flags, 0, nullptr, nullptr, Library::OnRequest, this, MHD_OPTION_CONNECTION_LIMIT,
      m_settings.maxConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_settings.memory,
      MHD_OPTION_CONNECTION_TIMEOUT, seconds, MHD_OPTION_NOTIFY_COMPLETED, Library::OnCompleted,
      this, MHD_OPTION_NOTIFY_CONNECTION, Library::OnConnection, this, MHD_OPTION_ARRAY,
      options.data(), MHD_OPTION_END);
}

void HttpServer::Close() {
  m_door.Close();
  static_cast<void>(m_ready.Release());
  for (const auto& [exchange, owner] : m_exchanges) {
    exchange->OnAnswer({});
    if (exchange->Stream() != nullptr) {
      exchange->Stream()->End();
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
  m_timer.Cancel();
  m_connections.clear();
  m_exchanges.clear();
  m_address.clear();
}

void HttpServer::WaitForWork() {
  m_ready.OnReadable([this] {
    try {
      Work();
    } catch (const std::exception&) {
      WaitForWork();
      throw;
    }
    WaitForWork();
  });
}

void HttpServer::Enter(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize) {
  if (m_settings.onConnection) {
    m_settings.onConnection();
  }
  // The library closes it, also if it does not take it.
  MHD_add_connection(m_daemon, socket.Release(), reinterpret_cast<const ::sockaddr*>(&peer),
                     peerSize);
  m_hasNew = true;
  if (!m_isWorking) {
    Work();
  }
}

void HttpServer::WorkSoon() {
  if (m_isWorking) {
    m_hasNew = true;
  } else {
    m_timer.At(Clock::now(), [this] { Work(); });
  }
}

void HttpServer::Work() {
  if (m_daemon == nullptr) {
    return;
  }
  m_isWorking = true;
  try {
    RunLibrary();
  } catch (const std::exception&) {
    m_isWorking = false;
    WorkSoon();
    throw;
  }
  m_isWorking = false;
  EndLateConnections();
  WatchTime();
}

void HttpServer::RunLibrary() {
  std::size_t before = 0;
  do {
    m_hasNew = false;
    before = m_connections.size();
    MHD_run(m_daemon);
    m_door.OnRoom();
    // The library finds out in the turn behind that one of its connections has ended.
  } while (m_hasNew || m_connections.size() < before);
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
