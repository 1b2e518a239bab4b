#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "collect/modern/network/NetlinkTalk.h"

/// What the kernel tells of one interface by netlink.
struct NetlinkLink {
  std::int32_t index = 0;
  std::array<char, 16> name{};
  std::uint32_t flags = 0;  ///< IFF_UP and kin, 32 bits
  std::uint32_t mtu = 0;

  /// Set by JoinAddresses(): the address that stands for the interface, in network order, as the
  /// next two; 0 without one.
  std::uint32_t address = 0;
  std::uint32_t broadcast = 0;
  std::uint32_t netmask = 0;
  bool hasAddress = false;

  std::size_t detailsPlace = 0;  ///< in the tables' `details`, if these are kept
};

/// What the kernel tells of one interface besides, for who asks for it.
struct NetlinkDetails {
  std::array<unsigned char, 32> hardware{};  ///< the address
  std::size_t hardwareBytes = 0;
  std::int32_t master = 0;  ///< index of the bond, bridge or team that it belongs to; 0 for none
  std::uint32_t carrierChanges = 0;
  std::uint8_t state = 0;  ///< IF_OPER_UP and kin
  bool hasState = false;
  bool hasCarrierChanges = false;
  bool hasMtu = false;
  /// The numbers of rtnl_link_stats64 in their order; kernels before 4.6 have fewer.
  std::array<std::uint64_t, 24> statistics{};
  std::size_t toldStatistics = 0;  ///< how many of them there are
};

/// One IPv4 address of one interface.
struct NetlinkAddress {
  std::int32_t index = 0;     ///< the interface's
  std::uint32_t address = 0;  ///< network order, as the next
  std::uint32_t broadcast = 0;
  std::uint8_t prefix = 0;  ///< bits of the mask, 0 to 32
  std::uint8_t scope = 0;   ///< RT_SCOPE_UNIVERSE and kin
  bool isSecondary = false;
};

struct NetlinkTables : NetlinkOutcome {
  std::vector<NetlinkLink> links;
  std::vector<NetlinkAddress> addresses;
  bool mayLackLinks = false;            ///< each answer was interrupted
  bool keepsDetails = false;            ///< set before an answer is taken
  std::vector<NetlinkDetails> details;  ///< one a link, if they are kept
};

/// Takes one datagram of an answer to RTM_GETLINK or RTM_GETADDR; its messages of other sequence
/// numbers and kinds are passed over, and so is an address of another family. True if more of the
/// answer is to come; it has come to its end otherwise, with `error` set if that was no good one.
[[nodiscard]] bool ParseNetlinkAnswer(std::span<const unsigned char> datagram,
                                      std::uint32_t sequence, NetlinkTables& tables);

/// Sorts the links by their names and gives each the first of its addresses of global scope, else
/// its first address. A secondary address stands behind the others of its kind.
void JoinAddresses(NetlinkTables& tables);

/// The link of that name in joined tables; null for none.
[[nodiscard]] const NetlinkLink* FindLink(const NetlinkTables& tables, std::string_view name);

enum class LinkDetails { kLeftOut, kKept };

/// Asks the kernel for the interfaces of this network namespace and their IPv4 addresses; joined.
/// It waits for a second at a time and for two in all, but for the kernel's lock of interfaces as
/// long as somebody holds that, and takes 16 Mbytes at most; an answer that
/// was interrupted is asked for anew, three times at most within these. Where that
/// fails the tables hold what was told until then and the error's number.
[[nodiscard]] NetlinkTables AskForLinks(LinkDetails wanted = LinkDetails::kLeftOut);
