#include "gate/http/HttpCallbacks.h"

#include <microhttpd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "gate/http/HeaderWeight.h"
#include "gate/http/ListenSocket.h"

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

MHD_Result HttpServer::Callbacks::OnRequest(void* server, MHD_Connection* connection,
                                            const char* url, const char* method, const char*,
                                            const char*, std::size_t* bodySize,
                                            void** state) noexcept {
  try {
    return Serve(*static_cast<HttpServer*>(server), connection, url, method, bodySize, state);
  } catch (...) {
    return MHD_NO;
  }
}

void HttpServer::Callbacks::OnCompleted(void* server, MHD_Connection*, void** state,
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

void HttpServer::Callbacks::OnConnection(void* server, MHD_Connection* connection, void**,
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

void* HttpServer::Callbacks::OnTarget(void* server, const char* target,
                                      MHD_Connection* connection) noexcept {
  auto& connections = static_cast<HttpServer*>(server)->m_connections;
  if (const auto found = connections.find(connection); found != connections.end()) {
    found->second.targetSize = std::strlen(target);
  }
  return nullptr;
}

MHD_Result HttpServer::Callbacks::OnArgument(void* exchange, MHD_ValueKind, const char* name,
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

MHD_Result HttpServer::Callbacks::Serve(HttpServer& self, MHD_Connection* connection,
                                        const char* url, const char* method, std::size_t* bodySize,
                                        void** state) {
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

void HttpServer::Callbacks::Resume(HttpServer& self, MHD_Connection* connection) {
  const auto found = self.m_connections.find(connection);
  if (found != self.m_connections.end() && std::exchange(found->second.isSuspended, false)) {
    MHD_resume_connection(connection);
    self.WorkSoon();
  }
}

MHD_Result HttpServer::Callbacks::Begin(HttpServer& self, MHD_Connection* connection,
                                        const char* url, std::string_view method, void** state) {
  auto exchange = std::make_shared<HttpExchange>();
  exchange->path = url;
  exchange->accept = HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT);
  exchange->authorization = HeaderOf(connection, MHD_HTTP_HEADER_AUTHORIZATION);
  exchange->lastEventId = HeaderOf(connection, "Last-Event-ID");
  exchange->ifNoneMatch = HeaderOf(connection, MHD_HTTP_HEADER_IF_NONE_MATCH);
  exchange->requestedWith = HeaderOf(connection, "X-Requested-With");
  exchange->takesGzip = WeightOf(HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT_ENCODING), "gzip") > 0;
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

HeadVerdict HttpServer::Callbacks::JudgeUnseen(HttpServer& self, MHD_Connection* connection,
                                               std::string_view method) {
  constexpr std::string_view kRest = "  HTTP/1.1";
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
  const int headers = MHD_get_connection_values(connection, MHD_HEADER_KIND, nullptr, nullptr);
  const HeadVerdict verdict = JudgeSizes(
      method.size() + self.m_connections[connection].targetSize + kRest.size(),
      info == nullptr ? 0 : info->header_size, static_cast<std::size_t>(headers), self.m_head);
  // Without a Host it is one of HTTP/1.0.
  const char* host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
  return verdict.status == 0 && host != nullptr ? JudgeHost(host, self.m_head) : verdict;
}

ssize_t HttpServer::Callbacks::Read(void* state, std::uint64_t, char* target,
                                    std::size_t size) noexcept {
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

void HttpServer::Callbacks::FreeReader(void* state) noexcept { delete static_cast<Reader*>(state); }

MHD_Response* HttpServer::Callbacks::Respond(HttpServer& self, MHD_Connection* connection,
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

MHD_Result HttpServer::Callbacks::Send(HttpServer& self, MHD_Connection* connection,
                                       HttpExchange& exchange) {
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
