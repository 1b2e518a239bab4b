#include "collect/modern/network/NetlinkTalk.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "support/OsCalls.h"

namespace {

constexpr std::chrono::seconds kLongestAnswer{2};
/// A kernel never makes a longer datagram of a dump than half of this.
constexpr std::size_t kDatagramBytes = std::size_t{64} << 10U;

/// Ends an answer with the number that the kernel gives for it, a negative error.
void TakeNetlinkEnd(NetlinkBytes payload, NetlinkOutcome& outcome) {
  std::int32_t result = 0;
  if (LoadNetlink(payload, result) && result < 0) {
    outcome.error = result == INT32_MIN ? EPROTO : -result;
  }
}

}  // namespace

bool ParseNetlinkDatagram(NetlinkBytes datagram, std::uint32_t sequence, NetlinkOutcome& outcome,
                          const TakeNetlinkMessage& take) {
  while (!datagram.empty()) {
    ::nlmsghdr header{};
    if (!LoadNetlink(datagram, header) || header.nlmsg_len < sizeof(header) ||
        header.nlmsg_len > datagram.size()) {
      outcome.error = EPROTO;
      return false;
    }
    const NetlinkBytes payload =
        datagram.subspan(sizeof(header), header.nlmsg_len - sizeof(header));
    if (header.nlmsg_seq == sequence) {
      outcome.isInterrupted |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
      if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) {
        TakeNetlinkEnd(payload, outcome);
        return false;
      }
      take(header.nlmsg_type, payload);
    }
    datagram = NetlinkBehind(datagram, header.nlmsg_len);
  }
  return true;
}

::nlmsghdr NetlinkQuestion(std::size_t size, std::uint16_t type) {
  return {.nlmsg_len = static_cast<std::uint32_t>(size),
          .nlmsg_type = type,
          .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP,
          .nlmsg_seq = 0,
          .nlmsg_pid = 0};
}

NetlinkTalk::NetlinkTalk(int protocol, std::size_t mostBytes, NetlinkOutcome& outcome)
    : m_outcome(outcome),
      m_protocol(protocol),
      m_socket(Os().socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol)),
      m_buffer(kDatagramBytes),
      m_mostBytes(mostBytes) {
  const ::timeval patience{1, 0};
  if (!m_socket.IsOpen() ||
      ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
    m_outcome.error = errno;
  }
}

void NetlinkTalk::Ask(const void* question, std::size_t size, const TakeNetlinkMessage& take) {
  if (g_hostReads == nullptr) {
    AskKernel(question, size, take, nullptr);
    return;
  }
  const std::string_view text(static_cast<const char*>(question), size);
  HeardTalk heard;
  if (g_hostReads->FindTalk(m_protocol, text, heard)) {
    TakeHeard(heard, take);
    return;
  }
  AskKernel(question, size, take, &heard);
  heard.error = m_outcome.error;
  g_hostReads->KeepTalk(m_protocol, text, heard);
}

void NetlinkTalk::TakeHeard(const HeardTalk& heard, const TakeNetlinkMessage& take) {
  for (const std::string& datagram : heard.datagrams) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(datagram.data());
    if (!ParseNetlinkDatagram({bytes, datagram.size()}, m_sequence, m_outcome, take)) {
      break;
    }
  }
  m_outcome.error = heard.error;
}

void NetlinkTalk::AskKernel(const void* question, std::size_t size, const TakeNetlinkMessage& take,
                            HeardTalk* heard) {
  if (::send(m_socket.Get(), question, size, MSG_NOSIGNAL) < 0) {
    m_outcome.error = errno;
    return;
  }
  m_taken = 0;
  while (TakeDatagram(take, heard)) {
  }
}

bool NetlinkTalk::TakeDatagram(const TakeNetlinkMessage& take, HeardTalk* heard) {
  ::sockaddr_nl sender{};
  ::iovec part{m_buffer.data(), m_buffer.size()};
  ::msghdr message{};
  message.msg_name = &sender;
  message.msg_namelen = sizeof(sender);
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  const ssize_t count = ::recvmsg(m_socket.Get(), &message, 0);
  if (count < 0 && errno == EINTR) {
    m_outcome.error = IsInTime() ? m_outcome.error : ETIMEDOUT;
    return m_outcome.error == 0;
  }
  if (count <= 0) {
    m_outcome.error = count == 0 ? EPROTO : errno;
    return false;
  }
  m_taken += static_cast<std::size_t>(count);
  if ((message.msg_flags & MSG_TRUNC) != 0 || m_taken > m_mostBytes) {
    m_outcome.error = EMSGSIZE;
    return false;
  }
  if (!IsInTime()) {
    m_outcome.error = ETIMEDOUT;
    return false;
  }
  if (heard != nullptr && sender.nl_pid == 0) {
    heard->datagrams.emplace_back(reinterpret_cast<const char*>(m_buffer.data()),
                                  static_cast<std::size_t>(count));
  }
  // A process of root may write to the socket too; the kernel is number 0.
  return sender.nl_pid != 0 ||
         ParseNetlinkDatagram(NetlinkBytes(m_buffer).first(static_cast<std::size_t>(count)),
                              m_sequence, m_outcome, take);
}

bool NetlinkTalk::IsInTime() const {
  return std::chrono::steady_clock::now() - m_begin < kLongestAnswer;
}
