#include "collect/modern/network/NetlinkAddresses.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "support/Descriptor.h"
#include "support/OsCalls.h"

namespace {

using AnswerBytes = std::span<const unsigned char>;

constexpr std::size_t kMostAnswerBytes = std::size_t{16} << 20U;
constexpr std::chrono::seconds kLongestAnswer{2};
/// A kernel never makes a longer datagram of a dump than half of this.
constexpr std::size_t kDatagramBytes = std::size_t{64} << 10U;
constexpr int kMostTries = 3;

constexpr std::size_t NetlinkAligned(std::size_t size) { return (size + 3) / 4 * 4; }

template <class T>
bool LoadFrom(AnswerBytes bytes, T& value) {
  if (bytes.size() < sizeof(T)) {
    return false;
  }
  std::memcpy(&value, bytes.data(), sizeof(T));
  return true;
}

AnswerBytes AnswerBehind(AnswerBytes bytes, std::size_t size) {
  return bytes.subspan(std::min(bytes.size(), NetlinkAligned(size)));
}

/// Shows each attribute's type and value, up to the first whose length is a lie.
template <class Visit>
void VisitAttributes(AnswerBytes bytes, const Visit& visit) {
  ::rtattr header{};
  while (LoadFrom(bytes, header) && header.rta_len >= sizeof(header) &&
         header.rta_len <= bytes.size()) {
    visit(header.rta_type & NLA_TYPE_MASK,
          bytes.subspan(sizeof(header), header.rta_len - sizeof(header)));
    bytes = AnswerBehind(bytes, header.rta_len);
  }
}

void TakeLink(AnswerBytes payload, NetlinkTables& tables) {
  ::ifinfomsg header{};
  if (!LoadFrom(payload, header)) {
    return;
  }
  NetlinkLink link{.index = header.ifi_index, .flags = header.ifi_flags};
  VisitAttributes(AnswerBehind(payload, sizeof(header)), [&link](int type, AnswerBytes value) {
    if (type == IFLA_MTU) {
      static_cast<void>(LoadFrom(value, link.mtu));
    } else if (type == IFLA_IFNAME) {
      std::copy_n(value.begin(), std::min(value.size(), link.name.size() - 1), link.name.begin());
    }
  });
  tables.links.push_back(link);
}

void TakeAddress(AnswerBytes payload, NetlinkTables& tables) {
  ::ifaddrmsg header{};
  if (!LoadFrom(payload, header) || header.ifa_family != AF_INET || header.ifa_prefixlen > 32) {
    return;
  }
  NetlinkAddress address{.index = static_cast<std::int32_t>(header.ifa_index),
                         .prefix = header.ifa_prefixlen,
                         .scope = header.ifa_scope,
                         .isSecondary = (header.ifa_flags & IFA_F_SECONDARY) != 0};
  bool hasOwn = false;
  bool hasOther = false;
  VisitAttributes(AnswerBehind(payload, sizeof(header)), [&](int type, AnswerBytes value) {
    if (type == IFA_LOCAL) {
      hasOwn = LoadFrom(value, address.address) || hasOwn;
    } else if (type == IFA_ADDRESS && !hasOwn) {
      // The other end's on a line between two, where the own one is told too.
      hasOther = LoadFrom(value, address.address) || hasOther;
    } else if (type == IFA_BROADCAST) {
      static_cast<void>(LoadFrom(value, address.broadcast));
    }
  });
  if (hasOwn || hasOther) {
    tables.addresses.push_back(address);
  }
}

/// Ends an answer with the number that the kernel gives for it, a negative error.
void TakeEnd(AnswerBytes payload, NetlinkTables& tables) {
  std::int32_t result = 0;
  if (LoadFrom(payload, result) && result < 0) {
    tables.error = result == INT32_MIN ? EPROTO : -result;
  }
}

/// False if the answer ends with this message.
bool TakeMessage(const ::nlmsghdr& header, AnswerBytes payload, NetlinkTables& tables) {
  switch (header.nlmsg_type) {
    case RTM_NEWLINK:
      TakeLink(payload, tables);
      return true;
    case RTM_NEWADDR:
      TakeAddress(payload, tables);
      return true;
    case NLMSG_DONE:
    case NLMSG_ERROR:
      TakeEnd(payload, tables);
      return false;
    default:
      return true;
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

::nlmsghdr QuestionHeader(std::size_t size, std::uint16_t type) {
  return {.nlmsg_len = static_cast<std::uint32_t>(size),
          .nlmsg_type = type,
          .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP,
          .nlmsg_seq = 0,
          .nlmsg_pid = 0};
}

/// One conversation with the kernel.
class NetlinkTalk {
 public:
  explicit NetlinkTalk(NetlinkTables& tables)
      : m_tables(tables),
        m_socket(Os().socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)),
        m_buffer(kDatagramBytes) {
    const ::timeval patience{1, 0};
    if (!m_socket.IsOpen() ||
        ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
      m_tables.error = errno;
    }
  }

  /// Has a question answered without interruption, if that can be had; `rows` is the table that the
  /// answer fills.
  template <class Question, class Rows>
  void AskWhole(Question question, Rows& rows) {
    for (int tries = 0; tries < kMostTries && m_tables.error == 0; ++tries) {
      rows.clear();
      m_tables.isInterrupted = false;
      question.header.nlmsg_seq = ++m_sequence;
      Ask(question);
      if (!m_tables.isInterrupted) {
        return;
      }
    }
  }

 private:
  /// Sends a question and takes all of its answer.
  template <class Question>
  void Ask(const Question& question) {
    if (::send(m_socket.Get(), &question, sizeof(question), MSG_NOSIGNAL) < 0) {
      m_tables.error = errno;
      return;
    }
    while (TakeDatagram(question.header.nlmsg_seq)) {
    }
  }

  /// False at the answer's end.
  bool TakeDatagram(std::uint32_t sequence) {
    ::sockaddr_nl sender{};
    ::iovec part{m_buffer.data(), m_buffer.size()};
    ::msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t count = ::recvmsg(m_socket.Get(), &message, 0);
    if (count < 0 && errno == EINTR && IsInTime()) {
      return true;
    }
    if (count <= 0) {
      m_tables.error = count == 0 ? EPROTO : errno;
      return false;
    }
    m_taken += static_cast<std::size_t>(count);
    if ((message.msg_flags & MSG_TRUNC) != 0 || m_taken > kMostAnswerBytes) {
      m_tables.error = EMSGSIZE;
      return false;
    }
    if (!IsInTime()) {
      m_tables.error = ETIMEDOUT;
      return false;
    }
    // A process of root may write to the socket too; the kernel is number 0.
    return sender.nl_pid != 0 ||
           ParseNetlinkAnswer(AnswerBytes(m_buffer).first(static_cast<std::size_t>(count)),
                              sequence, m_tables);
  }

  [[nodiscard]] bool IsInTime() const {
    return std::chrono::steady_clock::now() - m_begin < kLongestAnswer;
  }

  NetlinkTables& m_tables;
  Descriptor m_socket;
  std::vector<unsigned char> m_buffer;
  std::size_t m_taken = 0;
  std::uint32_t m_sequence = 0;
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace

bool ParseNetlinkAnswer(std::span<const unsigned char> datagram, std::uint32_t sequence,
                        NetlinkTables& tables) {
  while (!datagram.empty()) {
    ::nlmsghdr header{};
    if (!LoadFrom(datagram, header) || header.nlmsg_len < sizeof(header) ||
        header.nlmsg_len > datagram.size()) {
      tables.error = EPROTO;
      return false;
    }
    const AnswerBytes payload = datagram.subspan(sizeof(header), header.nlmsg_len - sizeof(header));
    if (header.nlmsg_seq == sequence) {
      tables.isInterrupted |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
      if (!TakeMessage(header, payload, tables)) {
        return false;
      }
    }
    datagram = AnswerBehind(datagram, header.nlmsg_len);
  }
  return true;
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

NetlinkTables AskForLinks() {
  NetlinkTables tables;
  NetlinkTalk talk(tables);
  // Statistics are read elsewhere: the answer comes without those that the kernel can leave out.
  LinkQuestion links{
      .header = QuestionHeader(sizeof(LinkQuestion), RTM_GETLINK),
      .link = {},
      .attribute = {.rta_len = sizeof(::rtattr) + sizeof(std::uint32_t), .rta_type = IFLA_EXT_MASK},
      .mask = RTEXT_FILTER_SKIP_STATS};
  AddressQuestion addresses{.header = QuestionHeader(sizeof(AddressQuestion), RTM_GETADDR),
                            .address = {}};
  addresses.address.ifa_family = AF_INET;
  talk.AskWhole(links, tables.links);
  talk.AskWhole(addresses, tables.addresses);
  JoinAddresses(tables);
  return tables;
}
