#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/modern/HostText.h"
#include "collect/modern/network/InterfaceSource.h"
#include "collect/modern/network/LinkSource.h"
#include "collect/modern/network/NetDev.h"
#include "collect/modern/network/NetlinkAddresses.h"
#include "collect/modern/network/SocketFiles.h"

namespace {

void TakeNetDev(std::string_view text) {
  static_cast<void>(LinkFlagsOf({text, text, text, text}));
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    NetDevRow row;
    if (ParseNetDevLine(line, row) && (row.name.empty() || row.name.size() > 39)) {
      std::abort();
    }
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
  }
}

/// Shows the bytes as datagrams of 4096 bytes, aligned as a buffer for messages is.
template <class Visit>
void VisitDatagrams(std::string_view bytes, const Visit& visit) {
  constexpr std::size_t kDatagram = 4096;
  while (!bytes.empty()) {
    const std::string_view datagram = bytes.substr(0, kDatagram);
    const std::vector<unsigned char> room(datagram.begin(), datagram.end());
    visit(room);
    bytes.remove_prefix(datagram.size());
  }
}

void TakeNetlink(std::string_view bytes) {
  NetlinkTables tables;
  tables.keepsDetails = true;
  VisitDatagrams(bytes, [&tables](const std::vector<unsigned char>& room) {
    static_cast<void>(ParseNetlinkAnswer(room, 1, tables));
  });
  if (tables.details.size() != tables.links.size()) {
    std::abort();
  }
  for (const NetlinkDetails& details : tables.details) {
    static_cast<void>(HardwareText(details.hardware.data(), details.hardwareBytes));
    if (details.toldStatistics > details.statistics.size()) {
      std::abort();
    }
  }
  JoinAddresses(tables);
  for (const NetlinkLink& link : tables.links) {
    if (FindLink(tables, link.name.data()) == nullptr &&
        std::memchr(link.name.data(), '\0', link.name.size()) != nullptr) {
      std::abort();
    }
  }
}

void TakeSockDiag(std::string_view bytes) {
  SockDiagAnswer answer;
  VisitDatagrams(bytes, [&answer](const std::vector<unsigned char>& room) {
    static_cast<void>(ParseSockDiag(room, 1, answer));
  });
  if (answer.states.brief > answer.states.sockets[5]) {
    std::abort();
  }
}

void TakeSocketFiles(std::string_view text) {
  SocketFigures figures;
  ParseSocketCounters(text, figures);
  AddUdp6Counters(text, figures);
  ParseSockstat(text, 4096, figures);
  if (figures.tcp4InUse < 0 || figures.activeOpens < 0 || figures.datagramsIn < 0) {
    std::abort();
  }
  TcpStates states;
  Inet6Address address;
  for (std::string_view line; NextTextLine(text, line);) {
    CountTcpLine(line, states);
    if (ParseInet6Line(line, address) && (address.address.empty() || address.interface.empty())) {
      std::abort();
    }
  }
}

}  // namespace

/// The first byte chooses text of /proc/net/dev and of /sys/class/net, datagrams that tell links
/// and addresses, datagrams that tell sockets, or text of the other files of /proc/net.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      TakeNetDev(rest);
      break;
    case 1:
      TakeNetlink(rest);
      break;
    case 2:
      TakeSockDiag(rest);
      break;
    default:
      TakeSocketFiles(rest);
      break;
  }
  return 0;
}
