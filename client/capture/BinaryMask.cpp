#include "client/capture/BinaryMask.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <netinet/in.h>
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::size_t kAddress4 = 4;
constexpr std::size_t kAddress6 = 16;

template <class T>
bool ReadAt(const std::string& bytes, std::size_t place, T& value) {
  if (place > bytes.size() || bytes.size() - place < sizeof(value)) {
    return false;
  }
  std::memcpy(&value, bytes.data() + place, sizeof(value));
  return true;
}

void MaskPart(std::string& bytes, std::size_t place, std::size_t size, StandIns& standIns) {
  if (size > 0 && place <= bytes.size() && bytes.size() - place >= size) {
    bytes.replace(place, size, standIns.Address(bytes.substr(place, size)));
  }
}

bool IsLinkAddress(int type) {
  return type == IFLA_ADDRESS || type == IFLA_BROADCAST || type == IFLA_PERM_ADDRESS;
}
bool IsInterfaceAddress(int type) {
  return type == IFA_ADDRESS || type == IFA_LOCAL || type == IFA_BROADCAST || type == IFA_ANYCAST;
}

/// The attributes from `place` up to `end`.
void MaskAttributes(std::string& bytes, std::size_t place, std::size_t end, bool (*isAddress)(int),
                    StandIns& standIns) {
  ::rtattr attribute{};
  while (place < end && ReadAt(bytes, place, attribute) && attribute.rta_len >= sizeof(attribute) &&
         attribute.rta_len <= end - place) {
    if (isAddress(attribute.rta_type & NLA_TYPE_MASK)) {
      MaskPart(bytes, place + RTA_LENGTH(0), attribute.rta_len - RTA_LENGTH(0), standIns);
    }
    place += RTA_ALIGN(attribute.rta_len);
  }
}

void MaskSocket(std::string& bytes, std::size_t place, StandIns& standIns) {
  ::inet_diag_msg socket{};
  if (!ReadAt(bytes, place, socket) ||
      (socket.idiag_family != AF_INET && socket.idiag_family != AF_INET6)) {
    return;
  }
  const std::size_t size = socket.idiag_family == AF_INET ? kAddress4 : kAddress6;
  const std::size_t addresses = place + offsetof(::inet_diag_msg, id);
  MaskPart(bytes, addresses + offsetof(::inet_diag_sockid, idiag_src), size, standIns);
  MaskPart(bytes, addresses + offsetof(::inet_diag_sockid, idiag_dst), size, standIns);
}

void MaskMessage(int protocol, int type, std::string& bytes, std::size_t place, std::size_t end,
                 StandIns& standIns) {
  if (protocol == NETLINK_SOCK_DIAG && (type == SOCK_DIAG_BY_FAMILY || type == TCPDIAG_GETSOCK)) {
    MaskSocket(bytes, place, standIns);
  } else if (protocol == NETLINK_ROUTE && type == RTM_NEWLINK) {
    MaskAttributes(bytes, place + NLMSG_ALIGN(sizeof(::ifinfomsg)), end, IsLinkAddress, standIns);
  } else if (protocol == NETLINK_ROUTE && type == RTM_NEWADDR) {
    MaskAttributes(bytes, place + NLMSG_ALIGN(sizeof(::ifaddrmsg)), end, IsInterfaceAddress,
                   standIns);
  }
}

/// The address in hexadecimal digits; each group of four bytes turned around with `isSwapped`.
std::string TurnGroups(std::string bytes, bool isSwapped) {
  for (std::size_t place = 0; isSwapped && place < bytes.size(); place += kAddress4) {
    std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(place),
                 bytes.begin() + static_cast<std::ptrdiff_t>(place + kAddress4));
  }
  return bytes;
}

bool IsUpper(std::string_view digits) {
  return std::any_of(digits.begin(), digits.end(),
                     [](char digit) { return digit >= 'A' && digit <= 'F'; });
}

}  // namespace

std::string BytesOfHex(std::string_view text) {
  std::string bytes;
  for (std::size_t place = 0; place < text.size(); ++place) {
    const char lower = text[place] >= 'A' && text[place] <= 'F'
                           ? static_cast<char>(text[place] | 0x20)
                           : text[place];
    const std::size_t value = kHexDigits.find(lower);
    if (value == kHexDigits.npos || text.size() % 2 != 0) {
      return {};
    }
    if (place % 2 == 0) {
      bytes += static_cast<char>(value * 16);
    } else {
      bytes.back() = static_cast<char>(static_cast<unsigned char>(bytes.back()) + value);
    }
  }
  return bytes;
}

std::string HexOfBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kHexDigits[value / 16];
    text += kHexDigits[value % 16];
  }
  return text;
}

std::string TextOfPairs(std::string_view bytes) {
  std::string text;
  for (const char& byte : bytes) {
    text.append(text.empty() ? "" : ":").append(HexOfBytes({&byte, 1}));
  }
  return text;
}

void MaskNetlink(int protocol, std::string& datagram, StandIns& standIns) {
  ::nlmsghdr head{};
  for (std::size_t place = 0; ReadAt(datagram, place, head);) {
    if (head.nlmsg_len < sizeof(head) || head.nlmsg_len > datagram.size() - place) {
      return;
    }
    MaskMessage(protocol, head.nlmsg_type, datagram, place + NLMSG_HDRLEN, place + head.nlmsg_len,
                standIns);
    place += NLMSG_ALIGN(head.nlmsg_len);
  }
}

void MaskInterfaceAnswer(unsigned long request, std::string& answer, StandIns& standIns) {
  constexpr std::size_t kSocketAddress = offsetof(::ifreq, ifr_addr);
  switch (request) {
    case SIOCGIFADDR:
    case SIOCGIFBRDADDR:
    case SIOCGIFDSTADDR:
      MaskPart(answer, kSocketAddress + offsetof(::sockaddr_in, sin_addr), kAddress4, standIns);
      break;
    case SIOCGIFHWADDR:
      MaskPart(answer, kSocketAddress + offsetof(::sockaddr, sa_data), 6, standIns);
      break;
    default:
      break;
  }
}

std::string MaskHexColumns(std::string_view text, bool isSwapped, StandIns& standIns) {
  std::string masked(text);
  const auto isDigit = [](char letter) {
    return kHexDigits.find(letter) != kHexDigits.npos || (letter >= 'A' && letter <= 'F');
  };
  for (std::size_t place = 0; place < masked.size();) {
    std::size_t end = place;
    while (end < masked.size() && isDigit(masked[end])) {
      ++end;
    }
    const bool beginsLine = place == 0 || masked[place - 1] == '\n';
    const bool hasPort = end < masked.size() && masked[end] == ':';
    const std::size_t size = end - place;
    if ((size == 2 * kAddress4 && hasPort) || (size == 2 * kAddress6 && (hasPort || beginsLine))) {
      const std::string digits = masked.substr(place, size);
      std::string standIn = HexOfBytes(
          TurnGroups(standIns.Address(TurnGroups(BytesOfHex(digits), isSwapped)), isSwapped));
      if (IsUpper(digits) || isSwapped) {
        std::transform(standIn.begin(), standIn.end(), standIn.begin(), [](char digit) {
          return digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
        });
      }
      masked.replace(place, size, standIn);
    }
    place = std::max(end, place + 1);
  }
  return masked;
}
