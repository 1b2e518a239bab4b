#pragma once

#include <string_view>

#include "collect/modern/network/SockDiag.h"
#include "collect/modern/network/SocketSource.h"

/// Take what the text has of the figures and leave the others as they were. A figure that is no
/// number from 0 on is not told.

/// Of Tcp and Udp in /proc/net/snmp and of TcpExt in /proc/net/netstat.
void ParseSocketCounters(std::string_view text, SocketFigures& figures);
/// Of Udp6 in /proc/net/snmp6: adds to what is there.
void AddUdp6Counters(std::string_view text, SocketFigures& figures);
/// Of /proc/net/sockstat and /proc/net/sockstat6; memory is told in pages there.
void ParseSockstat(std::string_view text, double pageBytes, SocketFigures& figures);

/// Counts the socket of a line of /proc/net/tcp or /proc/net/tcp6; its head counts nothing.
void CountTcpLine(std::string_view line, TcpStates& states);

/// How many sockets are in TIME_WAIT if `brief` are what /proc/net/sockstat tells under `tw`; not
/// told if that is not.
[[nodiscard]] double TimeWaitOf(double brief, const TcpStates& states);
