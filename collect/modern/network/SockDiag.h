#pragma once

#include <array>
#include <cstdint>

#include "collect/modern/network/NetlinkTalk.h"

/// Sockets of TCP by their states, numbered as TCP_ESTABLISHED (1) to TCP_CLOSING (11) are.
struct TcpStates {
  std::array<std::uint64_t, 12> sockets{};
  /// Those of FIN_WAIT2 that the kernel keeps, and counts in /proc/net/sockstat, as it does those
  /// of TIME_WAIT.
  std::uint64_t brief = 0;

  void Add(const TcpStates& other);
};

struct SockDiagAnswer : NetlinkOutcome {
  TcpStates states;
};

/// Counts the sockets of one datagram of an answer to either question of sock_diag(7). True if more
/// of the answer is to come; it has come to its end otherwise, with `error` set if that was no good
/// one.
[[nodiscard]] bool ParseSockDiag(NetlinkBytes datagram, std::uint32_t sequence,
                                 SockDiagAnswer& answer);

/// What the kernel has been found not to answer, from one call to the next.
struct SockDiagMemory {
  bool isOneAnswerRefused = false;
};

/// Asks the kernel for the sockets of TCP of this network namespace in all states but TIME_WAIT,
/// over both versions of IP: by one question (TCPDIAG_GETSOCK), for which the kernel walks its
/// tables once; where it refuses that and answers them, by one for each version, and by these alone
/// from then on. Nothing is kept of the sockets; either way takes two seconds and 256 Mbytes, which
/// are about two million sockets, at most. With an error what is counted is a part.
[[nodiscard]] SockDiagAnswer AskForTcpStates(SockDiagMemory& memory);

/// Whether it is the error of more sockets than the kernel can tell within these limits.
[[nodiscard]] bool IsTooManySockets(int error);
