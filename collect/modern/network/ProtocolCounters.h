#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "collect/Source.h"
#include "collect/network/ProtocolSourceLINUX.h"

/// Packets by protocol since boot, of one or both versions of IP.
struct ProtocolCounters {
  std::uint64_t ipIn = 0;  ///< passed on to the protocols above
  std::uint64_t ipOut = 0;
  std::uint64_t icmpIn = 0;
  std::uint64_t icmpOut = 0;
  std::uint64_t tcpIn = 0;
  std::uint64_t tcpOut = 0;
  std::uint64_t udpIn = 0;
  std::uint64_t udpOut = 0;
  std::uint32_t found = 0;  ///< for the two functions that tell
};

/// The counters of /proc/net/snmp: those of IPv4, and of TCP over both. A protocol has a line of
/// names and one of values; a value belongs to the name at its place.
[[nodiscard]] ProtocolCounters ParseSnmp(std::string_view text);
/// The counters of /proc/net/snmp6, which has a line for each; none of TCP.
[[nodiscard]] ProtocolCounters ParseSnmp6(std::string_view text);
/// Tell once what the file lacks.
void TellMissingOfSnmp(const ProtocolCounters& counters);
void TellMissingOfSnmp6(const ProtocolCounters& counters);

/// Reads the host's one row from /proc/net/snmp and /proc/net/snmp6: the low 32 bits of the sums of
/// both. What is missing counts 0.
class ModernProtocolSource : public PtrSource<x_protocol, Protocol, std::vector<Protocol>> {
 public:
  ModernProtocolSource() { ++s_statistics.constructed; }
  ~ModernProtocolSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_protocol* record) override;

 private:
  inline static SourceStatistics s_statistics;

  std::string m_text;
};
