#include "collect/modern/network/LinkSource.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstddef>
#include <map>
#include <utility>

#include "collect/TextScanner.h"
#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/ToldOnce.h"
#include "collect/modern/network/NetlinkAddresses.h"
#include "support/HostPaths.h"

namespace {

constexpr const char* kLinksFolder = "/sys/class/net";
constexpr const char* kInet6File = "/proc/net/if_inet6";
constexpr std::size_t kMostLinkFolders = 16384;

/// Flags of addresses that are not meant to be told first.
constexpr std::uint32_t kLesserInet6 =
    IFA_F_TEMPORARY | IFA_F_DEPRECATED | IFA_F_TENTATIVE | IFA_F_DADFAILED;

/// A counter, the file of its name and its place among the numbers of netlink.
struct LinkCounter {
  double LinkFigures::*value;
  const char* file;
  std::size_t place;
};
constexpr std::size_t LinkPlace(std::size_t offset) { return offset / sizeof(std::uint64_t); }
#define QMT_LINK_COUNTER(member, name) \
  LinkCounter { &LinkFigures::member, #name, LinkPlace(offsetof(::rtnl_link_stats64, name)) }
constexpr std::array kLinkCounters{QMT_LINK_COUNTER(bytesIn, rx_bytes),
                                   QMT_LINK_COUNTER(bytesOut, tx_bytes),
                                   QMT_LINK_COUNTER(packetsIn, rx_packets),
                                   QMT_LINK_COUNTER(packetsOut, tx_packets),
                                   QMT_LINK_COUNTER(errorsIn, rx_errors),
                                   QMT_LINK_COUNTER(errorsOut, tx_errors),
                                   QMT_LINK_COUNTER(dropsIn, rx_dropped),
                                   QMT_LINK_COUNTER(dropsOut, tx_dropped),
                                   QMT_LINK_COUNTER(missedIn, rx_missed_errors),
                                   QMT_LINK_COUNTER(overrunsIn, rx_over_errors),
                                   QMT_LINK_COUNTER(fifoErrorsIn, rx_fifo_errors),
                                   QMT_LINK_COUNTER(fifoErrorsOut, tx_fifo_errors),
                                   QMT_LINK_COUNTER(lengthErrorsIn, rx_length_errors),
                                   QMT_LINK_COUNTER(frameErrorsIn, rx_frame_errors),
                                   QMT_LINK_COUNTER(crcErrorsIn, rx_crc_errors),
                                   QMT_LINK_COUNTER(carrierErrorsOut, tx_carrier_errors),
                                   QMT_LINK_COUNTER(collisions, collisions),
                                   QMT_LINK_COUNTER(multicastIn, multicast)};
#undef QMT_LINK_COUNTER

/// By IF_OPER_UNKNOWN and kin, as the files have them.
constexpr std::array<const char*, 7> kLinkStates{"unknown", "notpresent", "down", "lowerlayerdown",
                                                 "testing", "dormant",    "up"};

double LinkNumberOf(double number) { return number >= 0 ? number : kNotTold; }

void PutSpeed(const HostFolder& folder, LinkFigures& link) {
  const double speed = folder.Number("speed");
  link.speed = speed > 0 ? speed : kNotTold;
  const std::string duplex = folder.Line("duplex");
  link.duplex = duplex == "full" || duplex == "half" ? duplex : "";
}

void PutCounterFiles(const HostFolder& folder, LinkFigures& link) {
  const HostFolder statistics = folder.Below("statistics");
  if (!statistics.IsOpen()) {
    return;
  }
  for (const LinkCounter& counter : kLinkCounters) {
    link.*counter.value = LinkNumberOf(statistics.Number(counter.file));
  }
}

void PutToldCounters(const NetlinkDetails& details, LinkFigures& link) {
  for (const LinkCounter& counter : kLinkCounters) {
    if (counter.place < details.toldStatistics) {
      link.*counter.value = static_cast<double>(details.statistics[counter.place]);
    }
  }
}

/// Others have none, and need not be asked.
bool MayHaveSpeed(std::uint32_t flags) {
  return (flags & IFF_UP) != 0 && (flags & IFF_LOOPBACK) == 0;
}

LinkFigures ToldLink(const NetlinkLink& told, const NetlinkDetails& details) {
  LinkFigures link;
  link.name = told.name.data();
  if (told.hasAddress) {
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &told.address, text.data(), text.size());
    link.ipv4 = text.data();
  }
  link.hardwareAddress = HardwareText(details.hardware.data(), details.hardwareBytes);
  if (details.hasState && details.state < kLinkStates.size()) {
    link.state = kLinkStates[details.state];
  }
  if (details.hasCarrierChanges) {
    link.carrierChanges = details.carrierChanges;
  }
  if (details.hasMtu) {
    link.mtu = told.mtu;
  }
  PutToldCounters(details, link);
  return link;
}

/// The name of the link of that number among links in the order of theirs; empty for none.
std::string LinkNameOf(const std::vector<NetlinkLink>& links, std::int32_t index) {
  const auto found = std::lower_bound(
      links.begin(), links.end(), index,
      [](const NetlinkLink& link, std::int32_t wanted) { return link.index < wanted; });
  return index != 0 && found != links.end() && found->index == index ? found->name.data() : "";
}

/// False, without rows, if the kernel does not answer whole.
bool AskForLinkRows(std::vector<LinkFigures>& rows) {
  NetlinkTables tables = AskForLinks(LinkDetails::kKept);
  if (tables.error != 0 || tables.mayLackLinks) {
    return false;
  }
  std::stable_sort(tables.links.begin(), tables.links.end(),
                   [](const NetlinkLink& a, const NetlinkLink& b) { return a.index < b.index; });
  const HostFolder folders(kLinksFolder);
  rows.reserve(tables.links.size());
  for (const NetlinkLink& told : tables.links) {
    const NetlinkDetails& details = tables.details[told.detailsPlace];
    LinkFigures& link = rows.emplace_back(ToldLink(told, details));
    link.master = LinkNameOf(tables.links, details.master);
    const bool lacksCounters = details.toldStatistics == 0;
    if (lacksCounters || MayHaveSpeed(told.flags)) {
      const HostFolder folder = folders.Below(link.name.c_str());
      if (folder.IsOpen() && MayHaveSpeed(told.flags)) {
        PutSpeed(folder, link);
      }
      if (lacksCounters && folder.IsOpen()) {
        PutCounterFiles(folder, link);
      }
    }
  }
  return true;
}

/// A line of the usual length; longer ones are no state and no address.
std::string LinkLine(const HostFolder& folder, const char* name) {
  constexpr std::size_t kLongestLinkLine = 95;
  std::string line = folder.Line(name);
  return line.size() <= kLongestLinkLine ? line : std::string();
}

/// The address without what a hostile file could have put there.
std::string AddressOfFile(const std::string& text) {
  const bool isAddress = text.find_first_not_of("0123456789abcdef:") == std::string::npos;
  return isAddress && text.find_first_not_of("0:") != std::string::npos ? text : "";
}

LinkFigures LinkOfFolder(const HostFolder& folder, const char* name) {
  LinkFigures link;
  link.name = name;
  link.hardwareAddress = AddressOfFile(LinkLine(folder, "address"));
  link.state = LinkLine(folder, "operstate");
  link.master = folder.LinkName("master");
  link.mtu = LinkNumberOf(folder.Number("mtu"));
  link.carrierChanges = LinkNumberOf(folder.Number("carrier_changes"));
  PutSpeed(folder, link);
  PutCounterFiles(folder, link);
  return link;
}

void ReadLinkFolders(std::vector<LinkFigures>& rows) {
  const HostFolder folders(kLinksFolder);
  if (!folders.IsOpen()) {
    MissingInHost(kLinksFolder);
    return;
  }
  FoundInHost(kLinksFolder);
  std::vector<std::pair<double, LinkFigures>> numbered;
  folders.ForEach([&](const char* name, bool) {
    // A file of bonds stands among the links.
    if (const HostFolder folder = folders.Below(name); folder.IsOpen()) {
      const double index = folder.Number("ifindex");
      numbered.emplace_back(IsTold(index) ? index : 0, LinkOfFolder(folder, name));
    }
    return numbered.size() < kMostLinkFolders;
  });
  std::stable_sort(numbered.begin(), numbered.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [index, link] : numbered) {
    rows.push_back(std::move(link));
  }
}

void PutInet6Addresses(std::vector<LinkFigures>& links) {
  struct Place {
    LinkFigures* link;
    int rank;
  };
  std::map<std::string_view, Place> places;
  for (LinkFigures& link : links) {
    places.emplace(link.name, Place{&link, INT_MAX});
  }
  HostLines lines(kInet6File);
  Inet6Address address;
  for (std::string_view line; lines.Next(line);) {
    if (!ParseInet6Line(line, address)) {
      continue;
    }
    const auto found = places.find(address.interface);
    if (found != places.end() && address.rank < found->second.rank) {
      found->second.rank = address.rank;
      found->second.link->ipv6 = address.address;
    }
  }
}

}  // namespace

bool ParseInet6Line(std::string_view line, Inet6Address& address) {
  TextScanner words(line);
  std::array<std::string_view, 6> fields;  // address, index, prefix, scope, flags, name
  for (std::string_view& field : fields) {
    if (!words.Word(field)) {
      return false;
    }
  }
  std::array<unsigned char, 16> bytes{};
  if (fields[0].size() != 2 * bytes.size()) {
    return false;
  }
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const digits = fields[0].data() + 2 * i;
    const auto [stop, code] = std::from_chars(digits, digits + 2, bytes[i], 16);
    if (code != std::errc{} || stop != digits + 2) {
      return false;
    }
  }
  std::uint32_t scope = 0;
  std::uint32_t flags = 0;
  if (!TakeCount(fields[3], scope, 16) || !TakeCount(fields[4], flags, 16)) {
    return false;
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  ::inet_ntop(AF_INET6, bytes.data(), text.data(), text.size());
  address.interface = fields[5];
  address.address = text.data();
  address.rank = (scope == 0 ? 0 : 2) + ((flags & kLesserInet6) != 0 ? 1 : 0);
  return true;
}

std::string HardwareText(const unsigned char* bytes, std::size_t count) {
  constexpr const char* kDigits = "0123456789abcdef";
  if (std::all_of(bytes, bytes + count, [](unsigned char byte) { return byte == 0; })) {
    return {};
  }
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += i == 0 ? "" : ":";
    text += kDigits[bytes[i] >> 4U];
    text += kDigits[bytes[i] & 15U];
  }
  return text;
}

void ReadLinks(std::vector<LinkFigures>& links) {
  links.clear();
  const bool isAsked = IsRunningHost() && AskForLinkRows(links);
  if (!isAsked) {
    ReadLinkFolders(links);
  }
  PutInet6Addresses(links);
}
