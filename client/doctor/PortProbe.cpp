#include "client/doctor/PortProbe.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>

#include "support/Descriptor.h"
#include "support/ListenAddress.h"

namespace {

using Clock = std::chrono::steady_clock;
using Kind = PortFacts::Kind;

constexpr std::string_view kHttpStart = "HTTP/";

/// What listens at all addresses listens at the loopback.
void TurnToLoopback(ListenAddress& address) {
  if (address.address.ss_family == AF_INET) {
    auto& four = reinterpret_cast<::sockaddr_in&>(address.address);
    if (four.sin_addr.s_addr == INADDR_ANY) {
      four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
  } else if (auto& six = reinterpret_cast<::sockaddr_in6&>(address.address);
             IN6_IS_ADDR_UNSPECIFIED(&six.sin6_addr)) {
    six.sin6_addr = in6addr_loopback;
  }
}

bool Await(int socket, short events, Clock::time_point deadline) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd wanted{socket, events, 0};
    const int ready = left.count() <= 0 ? 0 : ::poll(&wanted, 1, static_cast<int>(left.count()));
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

/// An errno, or 0; nothing if the time is over.
std::optional<int> Connect(int socket, const ListenAddress& address, Clock::time_point deadline) {
  if (::connect(socket, address.Get(), address.size) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  if (!Await(socket, POLLOUT, deadline)) {
    return std::nullopt;
  }
  int error = 0;
  ::socklen_t size = sizeof error;
  return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

/// What the server says first.
Kind AskHttp(int socket, const std::string& host, Clock::time_point deadline) {
  const std::string request = "GET / HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n";
  if (::send(socket, request.data(), request.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(request.size())) {
    return Kind::kNoHttp;
  }
  std::string answer;
  std::array<char, 16> chunk;
  while (answer.size() < kHttpStart.size()) {
    if (!Await(socket, POLLIN, deadline)) {
      return Kind::kSilent;
    }
    const ssize_t count = ::recv(socket, chunk.data(), chunk.size(), 0);
    if (count <= 0) {
      return Kind::kNoHttp;
    }
    answer.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return answer.starts_with(kHttpStart) ? Kind::kAnswers : Kind::kNoHttp;
}

}  // namespace

PortFacts ProbePort(const std::string& address, std::chrono::milliseconds limit) {
  PortFacts facts;
  facts.address = address;
  const SchemedAddress schemed = SplitScheme(address);
  std::optional<ListenAddress> place = ParseListenAddress(schemed.address);
  if (!place) {
    facts.fault = "no address";
    return facts;
  }
  TurnToLoopback(*place);
  const Descriptor socket(
      ::socket(place->address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const Clock::time_point deadline = Clock::now() + limit;
  const std::optional<int> error =
      socket.IsOpen() ? Connect(socket.Get(), *place, deadline) : std::optional(errno);
  if (!error) {
    facts.kind = Kind::kSilent;
  } else if (*error != 0) {
    facts.kind = *error == ECONNREFUSED ? Kind::kRefused : Kind::kError;
    facts.fault = std::generic_category().message(*error);
  } else {
    facts.kind = schemed.scheme == SchemedAddress::Scheme::kTls
                     ? Kind::kAnswers
                     : AskHttp(socket.Get(), schemed.address, deadline);
  }
  return facts;
}
