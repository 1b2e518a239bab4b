#include "utility/HostAddress.h"

#include <arpa/inet.h>

#include <array>
#include <utility>

#include "utility/HostNameRequestManager.h"

HostAddress::HostAddress(HostNameRequestManager* manager, std::string address)
    : m_manager(manager), m_address(std::move(address)) {}

HostAddress HostAddress::OfName(HostNameRequestManager* manager, std::string name) {
  HostAddress host(manager, "");
  host.m_name = std::move(name);
  host.m_isAddressKnown = false;
  host.m_isNameKnown = true;
  return host;
}

bool HostAddress::ResolveName() {
  if (!m_isAddressKnown || m_manager == nullptr) {
    return false;
  }
  HostNameRequest request;
  request.kind = HostNameWire::kAddressKind;
  HostNameWire::SetText(request.query, m_address);
  if (m_manager->handle_request(request) != 1) {
    return false;
  }
  m_name = request.resultName.data();
  m_isNameKnown = true;
  return true;
}

bool HostAddress::ResolveAddress() {
  if (!m_isNameKnown || m_manager == nullptr) {
    return false;
  }
  HostNameRequest request;
  request.kind = HostNameWire::kNameKind;
  HostNameWire::SetText(request.query, m_name);
  if (m_manager->handle_request(request) != 1) {
    return false;
  }
  m_address = request.resultAddress.data();
  m_isAddressKnown = !m_address.empty();
  return m_isAddressKnown && ResolveName();
}

std::string DottedText(std::uint32_t address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  const ::in_addr binary{address};
  return address == 0 || ::inet_ntop(AF_INET, &binary, text.data(), text.size()) == nullptr
             ? std::string()
             : text.data();
}
