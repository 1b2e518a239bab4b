#include "gate/http/ListenSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>

namespace {

constexpr int kBacklog = 128;

/// The address of IPv4, also where it comes by a socket of IPv6; nothing for another one.
std::optional<::in_addr> Inet4Of(const ::sockaddr& address) {
  ::in_addr inet{};
  if (address.sa_family == AF_INET) {
    return reinterpret_cast<const ::sockaddr_in&>(address).sin_addr;
  }
  const auto& inet6 = reinterpret_cast<const ::sockaddr_in6&>(address).sin6_addr;
  if (address.sa_family != AF_INET6 || IN6_IS_ADDR_V4MAPPED(&inet6) == 0) {
    return std::nullopt;
  }
  constexpr std::size_t kMappedAt = 12;
  std::memcpy(&inet, &inet6.s6_addr[kMappedAt], sizeof inet);
  return inet;
}

}  // namespace

Descriptor Listen(const ListenAddress& address) {
  Descriptor socket(
      ::socket(address.Get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket.IsOpen() ||
      ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.Get(), address.Get(), address.size) != 0 ||
      ::listen(socket.Get(), kBacklog) != 0) {
    const int code = errno;
    socket.Close();
    errno = code;
  }
  return socket;
}

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

bool HasPeerEnded(int socket) {
  ::pollfd wait{socket, POLLRDHUP, 0};
  return ::poll(&wait, 1, 0) > 0;
}

bool IsLoopbackAddress(const ::sockaddr& address) {
  if (const std::optional<::in_addr> inet = Inet4Of(address)) {
    return (ntohl(inet->s_addr) >> 24) == IN_LOOPBACKNET;
  }
  const auto& inet6 = reinterpret_cast<const ::sockaddr_in6&>(address);
  return address.sa_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&inet6.sin6_addr) != 0;
}

std::string PeerKey(const ::sockaddr& address) {
  if (const std::optional<::in_addr> inet = Inet4Of(address)) {
    return {reinterpret_cast<const char*>(&inet->s_addr), sizeof inet->s_addr};
  }
  constexpr std::size_t kNetworkBytes = 8;
  const auto& inet6 = reinterpret_cast<const ::sockaddr_in6&>(address);
  return {reinterpret_cast<const char*>(&inet6.sin6_addr), kNetworkBytes};
}

std::string ShareKey(const ::sockaddr& address) {
  return IsLoopbackAddress(address) ? "" : PeerKey(address);
}

std::string AddressText(const ::sockaddr& address) {
  std::array<char, NI_MAXHOST> host{};
  const ::socklen_t size =
      address.sa_family == AF_INET6 ? sizeof(::sockaddr_in6) : sizeof(::sockaddr_in);
  return ::getnameinfo(&address, size, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) == 0
             ? host.data()
             : "";
}
