#include "collect/modern/network/SockDiag.h"

#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace {

/// Of one version of IP.
constexpr std::size_t kMostSockDiagBytes = std::size_t{128} << 20U;
/// What the timer of a socket is that the kernel has cut down to a remainder.
constexpr std::uint8_t kBriefTimer = 3;
constexpr std::uint32_t kAllTcpStates = (1U << (TCP_CLOSING + 1U)) - 2U;
constexpr std::uint32_t kAskedStates = kAllTcpStates & ~(1U << TCP_TIME_WAIT) & ~(1U << TCP_CLOSE);

struct SockDiagQuestion {
  ::nlmsghdr header;
  ::inet_diag_req_v2 request;
};

/// The older one, for both versions of IP.
struct TcpDiagQuestion {
  ::nlmsghdr header;
  ::inet_diag_req request;
};

/// The kernel answers with the type that it is asked by, and with the same structure.
bool IsSocketOfIp(std::uint16_t type, const ::inet_diag_msg& socket) {
  return (type == SOCK_DIAG_BY_FAMILY || type == TCPDIAG_GETSOCK) &&
         (socket.idiag_family == AF_INET || socket.idiag_family == AF_INET6);
}

void TakeSocket(std::uint16_t type, NetlinkBytes payload, TcpStates& states) {
  ::inet_diag_msg socket{};
  if (!LoadNetlink(payload, socket) || !IsSocketOfIp(type, socket) ||
      socket.idiag_state >= states.sockets.size()) {
    return;
  }
  ++states.sockets[socket.idiag_state];
  if (socket.idiag_state == TCP_FIN_WAIT2 && socket.idiag_timer == kBriefTimer) {
    ++states.brief;
  }
}

template <class Question>
void AddAnswer(NetlinkTalk& talk, const Question& question, SockDiagAnswer& answer) {
  TcpStates states;
  talk.AskWhole(
      question, [&states] { states = {}; },
      [&states](std::uint16_t type, NetlinkBytes payload) { TakeSocket(type, payload, states); });
  answer.states.Add(states);
}

/// `isRefused` tells whether the kernel was asked and had no good answer.
SockDiagAnswer AskForBothAtOnce(bool& isRefused) {
  SockDiagAnswer answer;
  NetlinkTalk talk(NETLINK_SOCK_DIAG, 2 * kMostSockDiagBytes, answer);
  const bool isOpen = answer.error == 0;
  TcpDiagQuestion question{.header = NetlinkQuestion(sizeof(TcpDiagQuestion), TCPDIAG_GETSOCK),
                           .request = {}};
  question.request.idiag_states = kAskedStates;
  AddAnswer(talk, question, answer);
  isRefused = isOpen && answer.error != 0 && !IsTooManySockets(answer.error);
  return answer;
}

SockDiagAnswer AskForEachVersion() {
  SockDiagAnswer answer;
  NetlinkTalk talk(NETLINK_SOCK_DIAG, kMostSockDiagBytes, answer);
  for (const int family : {AF_INET, AF_INET6}) {
    SockDiagQuestion question{
        .header = NetlinkQuestion(sizeof(SockDiagQuestion), SOCK_DIAG_BY_FAMILY), .request = {}};
    question.request.sdiag_family = static_cast<std::uint8_t>(family);
    question.request.sdiag_protocol = IPPROTO_TCP;
    question.request.idiag_states = kAskedStates;
    AddAnswer(talk, question, answer);
  }
  return answer;
}

}  // namespace

void TcpStates::Add(const TcpStates& other) {
  for (std::size_t state = 0; state < sockets.size(); ++state) {
    sockets[state] += other.sockets[state];
  }
  brief += other.brief;
}

bool ParseSockDiag(NetlinkBytes datagram, std::uint32_t sequence, SockDiagAnswer& answer) {
  return ParseNetlinkDatagram(datagram, sequence, answer,
                              [&answer](std::uint16_t type, NetlinkBytes payload) {
                                TakeSocket(type, payload, answer.states);
                              });
}

SockDiagAnswer AskForTcpStates(SockDiagMemory& memory) {
  if (!memory.isOneAnswerRefused) {
    bool isRefused = false;
    const SockDiagAnswer answer = AskForBothAtOnce(isRefused);
    if (!isRefused) {
      return answer;
    }
  }
  // By a talk of its own: captures have these questions under the first numbers.
  const SockDiagAnswer answer = AskForEachVersion();
  memory.isOneAnswerRefused |= answer.error == 0;
  return answer;
}

bool IsTooManySockets(int error) {
  return error == EMSGSIZE || error == ETIMEDOUT || error == EAGAIN;
}
