#include "collect/modern/network/ProtocolCounters.h"

#include <array>

#include "collect/modern/HostText.h"
#include "collect/modern/network/SnmpText.h"
#include "support/LowWord.h"

namespace {

constexpr const char* kSnmpFile = "/proc/net/snmp";
constexpr const char* kSnmp6File = "/proc/net/snmp6";
constexpr std::uint32_t kProtocolWords = 64;

/// A column of /proc/net/snmp.
struct SnmpColumn {
  std::string_view protocol;  ///< with its colon
  std::string_view column;
  const char* name;  ///< of both, for a message
  std::uint64_t ProtocolCounters::*value;
};
constexpr std::array kColumns{
    SnmpColumn{"Ip:", "InDelivers", "Ip InDelivers", &ProtocolCounters::ipIn},
    SnmpColumn{"Ip:", "OutRequests", "Ip OutRequests", &ProtocolCounters::ipOut},
    SnmpColumn{"Icmp:", "InMsgs", "Icmp InMsgs", &ProtocolCounters::icmpIn},
    SnmpColumn{"Icmp:", "OutMsgs", "Icmp OutMsgs", &ProtocolCounters::icmpOut},
    SnmpColumn{"Tcp:", "InSegs", "Tcp InSegs", &ProtocolCounters::tcpIn},
    SnmpColumn{"Tcp:", "OutSegs", "Tcp OutSegs", &ProtocolCounters::tcpOut},
    SnmpColumn{"Udp:", "InDatagrams", "Udp InDatagrams", &ProtocolCounters::udpIn},
    SnmpColumn{"Udp:", "OutDatagrams", "Udp OutDatagrams", &ProtocolCounters::udpOut}};

constexpr std::array kSnmp6Rows{
    KeyedNumber<ProtocolCounters>{"Ip6InDelivers", &ProtocolCounters::ipIn},
    KeyedNumber<ProtocolCounters>{"Ip6OutRequests", &ProtocolCounters::ipOut},
    KeyedNumber<ProtocolCounters>{"Icmp6InMsgs", &ProtocolCounters::icmpIn},
    KeyedNumber<ProtocolCounters>{"Icmp6OutMsgs", &ProtocolCounters::icmpOut},
    KeyedNumber<ProtocolCounters>{"Udp6InDatagrams", &ProtocolCounters::udpIn},
    KeyedNumber<ProtocolCounters>{"Udp6OutDatagrams", &ProtocolCounters::udpOut}};

void PutColumn(std::string_view protocol, std::string_view column, std::string_view value,
               ProtocolCounters& counters) {
  for (std::size_t i = 0; i < kColumns.size(); ++i) {
    if (kColumns[i].protocol != protocol || kColumns[i].column != column) {
      continue;
    }
    if (std::uint64_t number = 0; TextScanner(value).Unsigned(number)) {
      counters.*kColumns[i].value = number;
      counters.found |= 1U << i;
    }
  }
}

}  // namespace

ProtocolCounters ParseSnmp(std::string_view text) {
  ProtocolCounters counters;
  VisitSnmpColumns(
      text, [&counters](std::string_view protocol, std::string_view column,
                        std::string_view value) { PutColumn(protocol, column, value, counters); });
  return counters;
}

ProtocolCounters ParseSnmp6(std::string_view text) { return ParseKeyedNumbers(text, kSnmp6Rows); }

void TellMissingOfSnmp(const ProtocolCounters& counters) {
  for (std::size_t i = 0; i < kColumns.size(); ++i) {
    TellFound(kSnmpFile, kColumns[i].name, (counters.found >> i & 1U) != 0);
  }
}

void TellMissingOfSnmp6(const ProtocolCounters& counters) {
  TellFound(kSnmp6File, kSnmp6Rows, counters.found);
}

void ModernProtocolSource::read(x_protocol* record) {
  TraceEntry("ModernProtocolSource::read", AddressOf(record));
  m_more = false;
  ProtocolCounters both;
  if (ReadHostText(kSnmpFile, m_text)) {
    both = ParseSnmp(m_text);
    TellMissingOfSnmp(both);
  }
  ProtocolCounters v6;
  if (ReadHostText(kSnmp6File, m_text)) {
    v6 = ParseSnmp6(m_text);
    TellMissingOfSnmp6(v6);
  }
  record->size = kProtocolWords;
  record->ipIn = LowWord(both.ipIn + v6.ipIn);
  record->ipOut = LowWord(both.ipOut + v6.ipOut);
  record->icmpIn = LowWord(both.icmpIn + v6.icmpIn);
  record->icmpOut = LowWord(both.icmpOut + v6.icmpOut);
  record->tcpIn = LowWord(both.tcpIn);
  record->tcpOut = LowWord(both.tcpOut);
  record->udpIn = LowWord(both.udpIn + v6.udpIn);
  record->udpOut = LowWord(both.udpOut + v6.udpOut);
  record->totalIn = record->tcpIn + record->udpIn + record->icmpIn;
  record->totalOut = record->tcpOut + record->udpOut + record->icmpOut;
  TraceExit("ModernProtocolSource::read");
}
