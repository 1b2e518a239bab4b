#include "collect/modern/network/NetlinkAddresses.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kMostAnswerBytes = std::size_t{16} << 20U;

/// Copies what there is of a value that kernels of other times have shorter or longer; how many
/// bytes that was.
template <class Room>
std::size_t LoadLinkPart(NetlinkBytes bytes, Room& room) {
  const std::size_t count = std::min(bytes.size(), sizeof(room));
  if (count > 0) {
    std::memcpy(room.data(), bytes.data(), count);
  }
  return count;
}

void TakeLinkDetail(int type, NetlinkBytes value, NetlinkDetails& details) {
  switch (type) {
    case IFLA_OPERSTATE:
      details.hasState = LoadNetlink(value, details.state);
      break;
    case IFLA_CARRIER_CHANGES:
      details.hasCarrierChanges = LoadNetlink(value, details.carrierChanges);
      break;
    case IFLA_ADDRESS:
      details.hardwareBytes = LoadLinkPart(value, details.hardware);
      break;
    case IFLA_MASTER:
      static_cast<void>(LoadNetlink(value, details.master));
      break;
    case IFLA_MTU:
      details.hasMtu = value.size() >= sizeof(NetlinkLink::mtu);
      break;
    case IFLA_STATS64:
      details.toldStatistics = LoadLinkPart(value, details.statistics) / sizeof(std::uint64_t);
      break;
    default:
      break;
  }
}

void TakeLink(NetlinkBytes payload, NetlinkTables& tables) {
  ::ifinfomsg header{};
  if (!LoadNetlink(payload, header)) {
    return;
  }
  NetlinkLink link{.index = header.ifi_index, .flags = header.ifi_flags};
  NetlinkDetails details;
  VisitNetlinkAttributes(NetlinkBehind(payload, sizeof(header)), [&](int type, NetlinkBytes value) {
    if (type == IFLA_MTU) {
      static_cast<void>(LoadNetlink(value, link.mtu));
    } else if (type == IFLA_IFNAME) {
      std::copy_n(value.begin(), std::min(value.size(), link.name.size() - 1), link.name.begin());
    }
    if (tables.keepsDetails) {
      TakeLinkDetail(type, value, details);
    }
  });
  if (tables.keepsDetails) {
    link.detailsPlace = tables.details.size();
    tables.details.push_back(details);
  }
  tables.links.push_back(link);
}

void TakeAddress(NetlinkBytes payload, NetlinkTables& tables) {
  ::ifaddrmsg header{};
  if (!LoadNetlink(payload, header) || header.ifa_family != AF_INET || header.ifa_prefixlen > 32) {
    return;
  }
  NetlinkAddress address{.index = static_cast<std::int32_t>(header.ifa_index),
                         .prefix = header.ifa_prefixlen,
                         .scope = header.ifa_scope,
                         .isSecondary = (header.ifa_flags & IFA_F_SECONDARY) != 0};
  bool hasOwn = false;
  bool hasOther = false;
  VisitNetlinkAttributes(NetlinkBehind(payload, sizeof(header)), [&](int type, NetlinkBytes value) {
    if (type == IFA_LOCAL) {
      hasOwn = LoadNetlink(value, address.address) || hasOwn;
    } else if (type == IFA_ADDRESS && !hasOwn) {
      // The other end's on a line between two, where the own one is told too.
      hasOther = LoadNetlink(value, address.address) || hasOther;
    } else if (type == IFA_BROADCAST) {
      static_cast<void>(LoadNetlink(value, address.broadcast));
    }
  });
  if (hasOwn || hasOther) {
    tables.addresses.push_back(address);
  }
}

void TakeTableRow(std::uint16_t type, NetlinkBytes payload, NetlinkTables& tables) {
  if (type == RTM_NEWLINK) {
    TakeLink(payload, tables);
  } else if (type == RTM_NEWADDR) {
    TakeAddress(payload, tables);
  }
}

std::uint32_t MaskOf(std::uint8_t prefix) {
  return prefix == 0 ? 0 : htonl(UINT32_MAX << (32U - prefix));
}

/// Lower ones stand before higher ones.
int RankOf(const NetlinkAddress& address) {
  return (address.scope == RT_SCOPE_UNIVERSE ? 0 : 2) + (address.isSecondary ? 1 : 0);
}

struct LinkQuestion {
  ::nlmsghdr header;
  ::ifinfomsg link;
  ::rtattr attribute;
  std::uint32_t mask;
};
struct AddressQuestion {
  ::nlmsghdr header;
  ::ifaddrmsg address;
};

}  // namespace

bool ParseNetlinkAnswer(std::span<const unsigned char> datagram, std::uint32_t sequence,
                        NetlinkTables& tables) {
  return ParseNetlinkDatagram(
      datagram, sequence, tables,
      [&tables](std::uint16_t type, NetlinkBytes payload) { TakeTableRow(type, payload, tables); });
}

void JoinAddresses(NetlinkTables& tables) {
  std::stable_sort(tables.addresses.begin(), tables.addresses.end(),
                   [](const NetlinkAddress& a, const NetlinkAddress& b) {
                     return a.index != b.index ? a.index < b.index : RankOf(a) < RankOf(b);
                   });
  for (NetlinkLink& link : tables.links) {
    const auto first = std::lower_bound(
        tables.addresses.begin(), tables.addresses.end(), link.index,
        [](const NetlinkAddress& address, std::int32_t index) { return address.index < index; });
    if (first != tables.addresses.end() && first->index == link.index) {
      link.address = first->address;
      link.broadcast = first->broadcast;
      link.netmask = MaskOf(first->prefix);
      link.hasAddress = true;
    }
  }
  std::sort(tables.links.begin(), tables.links.end(),
            [](const NetlinkLink& a, const NetlinkLink& b) {
              return std::strcmp(a.name.data(), b.name.data()) < 0;
            });
}

const NetlinkLink* FindLink(const NetlinkTables& tables, std::string_view name) {
  const auto found = std::lower_bound(
      tables.links.begin(), tables.links.end(), name,
      [](const NetlinkLink& link, std::string_view text) { return link.name.data() < text; });
  return found != tables.links.end() && found->name.data() == name ? &*found : nullptr;
}

NetlinkTables AskForLinks(LinkDetails wanted) {
  NetlinkTables tables;
  tables.keepsDetails = wanted == LinkDetails::kKept;
  NetlinkTalk talk(NETLINK_ROUTE, kMostAnswerBytes, tables);
  // The answer comes without the statistics that the kernel can leave out: those of protocols,
  // which are sums over all processors. An interface's own come all the same.
  const LinkQuestion links{
      .header = NetlinkQuestion(sizeof(LinkQuestion), RTM_GETLINK),
      .link = {},
      .attribute = {.rta_len = sizeof(::rtattr) + sizeof(std::uint32_t), .rta_type = IFLA_EXT_MASK},
      .mask = RTEXT_FILTER_SKIP_STATS};
  AddressQuestion addresses{.header = NetlinkQuestion(sizeof(AddressQuestion), RTM_GETADDR),
                            .address = {}};
  addresses.address.ifa_family = AF_INET;
  const TakeNetlinkMessage take = [&tables](std::uint16_t type, NetlinkBytes payload) {
    TakeTableRow(type, payload, tables);
  };
  talk.AskWhole(
      links,
      [&tables] {
        tables.links.clear();
        tables.details.clear();
      },
      take);
  tables.mayLackLinks = tables.isInterrupted;
  talk.AskWhole(
      addresses, [&tables] { tables.addresses.clear(); }, take);
  JoinAddresses(tables);
  return tables;
}
