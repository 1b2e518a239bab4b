#include "gate/http/ListenSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace {

constexpr int kBacklog = 128;

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

bool IsLoopbackAddress(const ::sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& inet = reinterpret_cast<const ::sockaddr_in&>(address);
    return (ntohl(inet.sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
  }
  const auto& inet6 = reinterpret_cast<const ::sockaddr_in6&>(address);
  return address.sa_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&inet6.sin6_addr) != 0;
}

std::string PeerKey(const ::sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& inet = reinterpret_cast<const ::sockaddr_in&>(address);
    return {reinterpret_cast<const char*>(&inet.sin_addr), sizeof inet.sin_addr};
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
