#include "helpers/hostutil/Resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <memory>

namespace {

void PutAddress(HostNameWire& request, const ::in_addr& address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  if (::inet_ntop(AF_INET, &address, text.data(), text.size()) != nullptr) {
    HostNameWire::SetText(request.resultAddress, text.data());
  }
}

void ResolveAddress(HostNameWire& request, const ::in_addr& address) {
  PutAddress(request, address);
  ::sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr = address;
  HostNameWire::Field name{};
  if (::getnameinfo(reinterpret_cast<const ::sockaddr*>(&place), sizeof place, name.data(),
                    name.size(), nullptr, 0, NI_NAMEREQD) == 0) {
    request.resultName = name;
  }
}

void ResolveName(HostNameWire& request) {
  ::addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_CANONNAME;
  ::addrinfo* list = nullptr;
  if (::getaddrinfo(request.query.data(), nullptr, &wanted, &list) != 0) {
    return;
  }
  const std::unique_ptr<::addrinfo, void (*)(::addrinfo*)> found(list, ::freeaddrinfo);
  if (found == nullptr || found->ai_family != AF_INET) {
    return;
  }
  PutAddress(request, reinterpret_cast<const ::sockaddr_in*>(found->ai_addr)->sin_addr);
  HostNameWire::SetText(request.resultName, found->ai_canonname == nullptr ? request.query.data()
                                                                           : found->ai_canonname);
}

}  // namespace

void Resolve(HostNameWire& request) {
  request.resultName.fill('\0');
  request.resultAddress.fill('\0');
  ::in_addr address{};
  if (::inet_pton(AF_INET, request.query.data(), &address) == 1) {
    ResolveAddress(request, address);
  } else if (request.query[0] != '\0') {
    ResolveName(request);
  }
}
