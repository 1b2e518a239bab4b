#include "collect/modern/network/SocketSource.h"

#include <netinet/tcp.h>

#include <array>
#include <cerrno>
#include <string>

#include "collect/HostFile.h"
#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "collect/modern/network/SocketFiles.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/UtlError.h"

namespace {

constexpr const char* kSocketSnmpFile = "/proc/net/snmp";
constexpr const char* kSocketSnmp6File = "/proc/net/snmp6";
constexpr const char* kNetstatFile = "/proc/net/netstat";
constexpr const char* kSockstatFile = "/proc/net/sockstat";
constexpr const char* kSockstat6File = "/proc/net/sockstat6";
constexpr const char* kTcpFile = "/proc/net/tcp";
constexpr const char* kTcp6File = "/proc/net/tcp6";
constexpr const char* kNetfilterFolder = "/proc/sys/net/netfilter";

struct TcpStateField {
  std::size_t state;
  double SocketFigures::*value;
};
constexpr std::array kTcpStateFields{TcpStateField{TCP_ESTABLISHED, &SocketFigures::established},
                                     TcpStateField{TCP_SYN_SENT, &SocketFigures::synSent},
                                     TcpStateField{TCP_SYN_RECV, &SocketFigures::synReceived},
                                     TcpStateField{TCP_FIN_WAIT1, &SocketFigures::finWait1},
                                     TcpStateField{TCP_FIN_WAIT2, &SocketFigures::finWait2},
                                     TcpStateField{TCP_TIME_WAIT, &SocketFigures::timeWait},
                                     TcpStateField{TCP_CLOSE_WAIT, &SocketFigures::closeWait},
                                     TcpStateField{TCP_LAST_ACK, &SocketFigures::lastAck},
                                     TcpStateField{TCP_CLOSING, &SocketFigures::closing},
                                     TcpStateField{TCP_LISTEN, &SocketFigures::listening}};

void PutTcpStates(const TcpStates& states, SocketFigures& figures) {
  for (const TcpStateField& field : kTcpStateFields) {
    figures.*field.value = static_cast<double>(states.sockets[field.state]);
  }
}

/// True if the file was there.
bool CountTcpFile(const char* path, TcpStates& states) {
  HostLines lines(path);
  bool hasHead = false;
  for (std::string_view line; lines.Next(line); hasHead = true) {
    CountTcpLine(line, states);
  }
  return hasHead;
}

void ReadTcpFiles(SocketFigures& figures) {
  static_cast<void>(TakeHostFileError());
  TcpStates states;
  const bool isThere = CountTcpFile(kTcpFile, states);
  // A host without IPv6 has no second one.
  static_cast<void>(CountTcpFile(kTcp6File, states));
  const bool isWhole = TakeHostFileError() == nullptr;
  if (isThere && isWhole) {
    PutTcpStates(states, figures);
  }
}

SockDiagMemory g_sockDiagMemory;

/// The states, but for that of TIME_WAIT if the kernel has been asked; what it answered is `asked`.
void ReadTcpStates(SockDiagAnswer& asked, SocketFigures& figures) {
  asked.error = ENOTCONN;
  if (IsRunningHost()) {
    asked = AskForTcpStates(g_sockDiagMemory);
  }
  if (asked.error == 0) {
    PutTcpStates(asked.states, figures);
    figures.timeWait = kNotTold;
  } else if (!IsTooManySockets(asked.error)) {
    // What is too much for the kernel to tell in time would take still longer from its files.
    ReadTcpFiles(figures);
  }
}

void ReadSocketTexts(SocketFigures& figures) {
  std::string text;
  for (const char* const path : {kSocketSnmpFile, kNetstatFile}) {
    if (ReadHostText(path, text)) {
      ParseSocketCounters(text, figures);
    }
  }
  if (ReadHostText(kSocketSnmp6File, text)) {
    AddUdp6Counters(text, figures);
  }
  const double pageBytes = Os().getpagesize();
  for (const char* const path : {kSockstatFile, kSockstat6File}) {
    if (ReadHostText(path, text)) {
      ParseSockstat(text, pageBytes, figures);
    }
  }
}

void ReadTrackedConnections(SocketFigures& figures) {
  const HostFolder folder(kNetfilterFolder);
  const auto put = [&folder](const char* name, double& figure) {
    const double number = folder.IsOpen() ? folder.Number(name) : kNotTold;
    figure = number >= 0 ? number : kNotTold;
  };
  put("nf_conntrack_count", figures.trackedConnections);
  put("nf_conntrack_max", figures.mostTrackedConnections);
}

}  // namespace

void ReadSockets(SocketFigures& figures) {
  figures = {};
  SockDiagAnswer asked;
  ReadTcpStates(asked, figures);
  ReadSocketTexts(figures);
  if (asked.error == 0) {
    // Those of TIME_WAIT can be many, and the kernel has counted them.
    figures.timeWait = TimeWaitOf(figures.tcpBrief, asked.states);
  }
  ReadTrackedConnections(figures);
}
