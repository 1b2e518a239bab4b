#include <unistd.h>

#include "local/metrics/node/NodeNames.h"

namespace {

constexpr NodeEntry NetstatEntry(const char* name, const char* help, const char* field,
                                 const char* second = nullptr) {
  return {name, help, MetricKind::kUnknown, {field, second}};
}

constexpr NodeEntry SockstatEntry(const char* name, const char* help, const char* field,
                                  NodeValue value = SumOfTold) {
  return {name, help, MetricKind::kGauge, {field}, 1, "", value};
}

std::optional<double> InPages(const NodeFields& row) {
  const std::optional<double> bytes = row.Number(0);
  return bytes ? std::optional(*bytes / static_cast<double>(::sysconf(_SC_PAGESIZE)))
               : std::nullopt;
}

constexpr std::array kSocketEntries{
    NetstatEntry("node_netstat_Tcp_ActiveOpens", "Connections asked for by this host",
                 "Active Opens"),
    NetstatEntry("node_netstat_Tcp_PassiveOpens", "Connections asked for by others",
                 "Passive Opens"),
    // A connection counts until this host has closed it.
    NetstatEntry("node_netstat_Tcp_CurrEstab", "Connections that are open", "Established",
                 "Close Wait"),
    NetstatEntry("node_netstat_Tcp_InSegs", "Segments received", "Segments In"),
    NetstatEntry("node_netstat_Tcp_OutSegs", "Segments sent, without those sent again",
                 "Segments Out"),
    NetstatEntry("node_netstat_Tcp_RetransSegs", "Segments sent again", "Retransmits"),
    NetstatEntry("node_netstat_Tcp_InErrs", "Segments received that were bad", "Segment Errors In"),
    NetstatEntry("node_netstat_Tcp_OutRsts", "Segments sent that break a connection off",
                 "Resets Sent"),
    NetstatEntry("node_netstat_TcpExt_ListenOverflows",
                 "Connections not taken since the program's queue was full", "Listen Overflows"),
    NetstatEntry("node_netstat_TcpExt_ListenDrops", "Connections not taken for any reason",
                 "Listen Drops"),
    NetstatEntry("node_netstat_TcpExt_SyncookiesSent",
                 "Answers to requests without memory for them", "SYN Cookies Sent"),
    NetstatEntry("node_netstat_TcpExt_SyncookiesRecv", "Such answers that were confirmed",
                 "SYN Cookies Received"),
    NetstatEntry("node_netstat_TcpExt_SyncookiesFailed", "Such answers that came back wrong",
                 "SYN Cookies Failed"),
    NetstatEntry("node_netstat_TcpExt_TCPSynRetrans", "Requests for a connection sent again",
                 "SYN Retransmits"),
    NetstatEntry("node_netstat_TcpExt_TCPTimeouts", "Answers that did not come in time",
                 "Timeouts"),
    SockstatEntry("node_sockstat_sockets_used", "Sockets of all kinds that programs hold",
                  "Sockets Used"),
    SockstatEntry("node_sockstat_TCP_inuse", "TCP sockets over IPv4", "TCP In Use"),
    SockstatEntry("node_sockstat_TCP_orphan", "TCP sockets that no program holds any more",
                  "TCP Orphans"),
    SockstatEntry("node_sockstat_TCP_tw",
                  "TCP connections that have ended and are kept for a while", "TCP Time Waits"),
    SockstatEntry("node_sockstat_TCP_alloc", "TCP sockets that the kernel keeps memory for",
                  "TCP Allocated"),
    SockstatEntry("node_sockstat_TCP_mem", "Pages of TCP's buffers", "TCP Memory Bytes", InPages),
    SockstatEntry("node_sockstat_TCP_mem_bytes", "Memory of TCP's buffers", "TCP Memory Bytes"),
    SockstatEntry("node_sockstat_TCP6_inuse", "TCP sockets over IPv6", "TCP6 In Use"),
    SockstatEntry("node_sockstat_UDP_inuse", "UDP sockets over IPv4", "UDP In Use"),
    SockstatEntry("node_sockstat_UDP_mem", "Pages of UDP's buffers", "UDP Memory Bytes", InPages),
    SockstatEntry("node_sockstat_UDP_mem_bytes", "Memory of UDP's buffers", "UDP Memory Bytes"),
    SockstatEntry("node_sockstat_UDP6_inuse", "UDP sockets over IPv6", "UDP6 In Use"),
    SockstatEntry("node_sockstat_UDPLITE_inuse", "UDP-Lite sockets over IPv4", "UDP-Lite In Use"),
    SockstatEntry("node_sockstat_RAW_inuse", "Raw sockets over IPv4", "Raw In Use"),
    SockstatEntry("node_sockstat_RAW6_inuse", "Raw sockets over IPv6", "Raw6 In Use"),
    SockstatEntry("node_sockstat_FRAG_inuse", "Packets of IPv4 that wait for their other parts",
                  "Fragments In Use"),
    SockstatEntry("node_sockstat_FRAG_memory", "Memory of these", "Fragment Memory Bytes")};

constexpr std::array kSocketGroups{NodeGroup{"SOCK", {}, kSocketEntries}};

}  // namespace

std::span<const NodeGroup> NodeSocketTable() { return kSocketGroups; }
