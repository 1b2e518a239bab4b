#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/modern/HostText.h"
#include "collect/modern/network/InterfaceSource.h"
#include "collect/modern/network/LinkSource.h"
#include "collect/modern/network/NetDev.h"
#include "collect/modern/network/NetlinkAddresses.h"
#include "collect/modern/network/SocketFiles.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

void TakeNetDev(std::string_view text) {
  static_cast<void>(LinkFlagsOf({text, text, text, text}));
  for (std::string_view line; NextTextLine(text, line);) {
    NetDevRow row;
    Require(!ParseNetDevLine(line, row) || (!row.name.empty() && row.name.size() <= 39));
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
  Require(tables.details.size() == tables.links.size());
  for (const NetlinkDetails& details : tables.details) {
    static_cast<void>(HardwareText(details.hardware.data(), details.hardwareBytes));
    Require(details.toldStatistics <= details.statistics.size());
  }
  JoinAddresses(tables);
  for (const NetlinkLink& link : tables.links) {
    Require(FindLink(tables, link.name.data()) != nullptr ||
            std::memchr(link.name.data(), '\0', link.name.size()) == nullptr);
  }
}

void TakeSockDiag(std::string_view bytes) {
  SockDiagAnswer answer;
  VisitDatagrams(bytes, [&answer](const std::vector<unsigned char>& room) {
    static_cast<void>(ParseSockDiag(room, 1, answer));
  });
  Require(answer.states.brief <= answer.states.sockets[5]);
}

void TakeSocketFiles(std::string_view text) {
  SocketFigures figures;
  ParseSocketCounters(text, figures);
  AddUdp6Counters(text, figures);
  ParseSockstat(text, 4096, figures);
  Require(!(figures.tcp4InUse < 0 || figures.activeOpens < 0 || figures.datagramsIn < 0));
  TcpStates states;
  Inet6Address address;
  for (std::string_view line; NextTextLine(text, line);) {
    CountTcpLine(line, states);
    Require(!ParseInet6Line(line, address) ||
            !(address.address.empty() || address.interface.empty()));
  }
}

}  // namespace

/// The first byte chooses text of /proc/net/dev and of /sys/class/net, datagrams that tell links
/// and addresses, datagrams that tell sockets, or text of the other files of /proc/net.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kParsers[])(std::string_view) = {TakeNetDev, TakeNetlink, TakeSockDiag,
                                                    TakeSocketFiles};
  return TakeChosen(data, size, kParsers);
}
