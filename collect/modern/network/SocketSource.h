#pragma once

#include "support/NotTold.h"

/// The sockets of the host and what TCP and UDP have counted since its start. The network
/// namespace of the reader is told, but orphaned and allocated sockets and memory are those of all.
/// kNotTold stands for what the kernel does not tell.
struct SocketFigures {
  // Sockets of TCP by state, over both versions of IP: asked of the kernel by sock_diag(7), for
  // both at once or for each, else from /proc/net/tcp and /proc/net/tcp6.
  double established = kNotTold;
  double synSent = kNotTold;
  double synReceived = kNotTold;
  double finWait1 = kNotTold;
  double finWait2 = kNotTold;
  double timeWait = kNotTold;  ///< with sock_diag(7): what is left of `tw` without FIN_WAIT2
  double closeWait = kNotTold;
  double lastAck = kNotTold;
  double closing = kNotTold;
  double listening = kNotTold;

  // Tcp of /proc/net/snmp, over both versions of IP.
  double activeOpens = kNotTold;
  double passiveOpens = kNotTold;
  double failedAttempts = kNotTold;     ///< AttemptFails
  double establishedResets = kNotTold;  ///< EstabResets
  double resetsSent = kNotTold;         ///< OutRsts
  double segmentsIn = kNotTold;
  double segmentsOut = kNotTold;  ///< without those sent again
  double segmentsSentAgain = kNotTold;
  double segmentErrorsIn = kNotTold;  ///< InErrs

  // TcpExt of /proc/net/netstat, over both versions of IP.
  double listenOverflows = kNotTold;  ///< queues of connections to accept that were full
  double listenDrops = kNotTold;      ///< connections not taken, for that and other reasons
  double synCookiesSent = kNotTold;
  double synCookiesReceived = kNotTold;
  double synCookiesFailed = kNotTold;
  double abortsForMemory = kNotTold;   ///< TCPAbortOnMemory
  double memoryPressures = kNotTold;   ///< TCPMemoryPressures: how often it began
  double timeouts = kNotTold;          ///< TCPTimeouts
  double synSentAgain = kNotTold;      ///< TCPSynRetrans
  double sentAgainAndLost = kNotTold;  ///< TCPLostRetransmit

  // /proc/net/sockstat, and /proc/net/sockstat6 for those of IPv6 alone.
  double socketsUsed = kNotTold;  ///< of all families
  double tcp4InUse = kNotTold;    ///< in all states but TIME_WAIT and SYN_RECV
  double tcp6InUse = kNotTold;
  double tcpOrphans = kNotTold;  ///< that no process has
  double tcpBrief = kNotTold;    ///< `tw`: kept in short for a while, TIME_WAIT and some FIN_WAIT2
  double tcpAllocated = kNotTold;
  double tcpMemory = kNotTold;  ///< bytes
  double udp4InUse = kNotTold;
  double udp6InUse = kNotTold;
  double udpMemory = kNotTold;  ///< bytes
  double udpLite4InUse = kNotTold;
  double raw4InUse = kNotTold;
  double raw6InUse = kNotTold;
  double fragments4InUse = kNotTold;   ///< queues of packets to put together
  double fragments4Memory = kNotTold;  ///< bytes

  // Udp of /proc/net/snmp; where /proc/net/snmp6 has them, Udp6 is added.
  double datagramsIn = kNotTold;
  double datagramsOut = kNotTold;
  double noPorts = kNotTold;
  double datagramErrorsIn = kNotTold;     ///< InErrors, with those of the next and of checksums
  double receiveBufferErrors = kNotTold;  ///< RcvbufErrors
  double sendBufferErrors = kNotTold;     ///< SndbufErrors
  double checksumErrorsIn = kNotTold;     ///< InCsumErrors

  // /proc/sys/net/netfilter; not told without the module.
  double trackedConnections = kNotTold;      ///< nf_conntrack_count
  double mostTrackedConnections = kNotTold;  ///< nf_conntrack_max
};

/// Reads them all. The states are asked of the own kernel only, and not told if there are so many
/// sockets that the limits of AskForTcpStates() or of the files' sizes don't do.
void ReadSockets(SocketFigures& figures);
