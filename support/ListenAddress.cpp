#include "support/ListenAddress.h"

#include <netdb.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

struct FreeListenAddresses {
  void operator()(::addrinfo* list) const { ::freeaddrinfo(list); }
};

/// The system takes numbers beyond the last port for others.
bool IsPort(const std::string& text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, port);
  return status == std::errc{} && stop == end;
}

}  // namespace

std::optional<ListenAddress> ParseListenAddress(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || !IsPort(text.substr(colon + 1))) {
    return std::nullopt;
  }
  std::string host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    return std::nullopt;
  }
  ::addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  ::addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), text.c_str() + colon + 1, &hints, &found) != 0) {
    return std::nullopt;
  }
  const std::unique_ptr<::addrinfo, FreeListenAddresses> owner(found);
  ListenAddress address;
  if (found->ai_addrlen > sizeof address.address) {
    return std::nullopt;
  }
  std::memcpy(&address.address, found->ai_addr, found->ai_addrlen);
  address.size = found->ai_addrlen;
  return address;
}

SchemedAddress SplitScheme(const std::string& text) {
  constexpr std::string_view kPlain = "http://";
  constexpr std::string_view kTls = "https://";
  if (text.starts_with(kTls)) {
    return {SchemedAddress::Scheme::kTls, text.substr(kTls.size())};
  }
  if (text.starts_with(kPlain)) {
    return {SchemedAddress::Scheme::kPlain, text.substr(kPlain.size())};
  }
  return {SchemedAddress::Scheme::kNone, text};
}
