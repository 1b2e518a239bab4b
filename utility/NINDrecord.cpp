#include <array>
#include <cstring>

#include "collect/network/InterfaceSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"
#include "utility/HostAddress.h"
#include "utility/WordList.h"

namespace {

using InterfaceRow = recordPI_NIND;

constexpr const char* kLoopback = "127.0.0.1";

struct FlagWord {
  std::uint32_t bit;
  const char* word;
};
constexpr std::array kFlagWords{
    FlagWord{0x0001, "UP"},       FlagWord{0x0002, "BROADCAST"},   FlagWord{0x0004, "DEBUG"},
    FlagWord{0x0008, "LOOPBACK"}, FlagWord{0x0010, "POINTOPOINT"}, FlagWord{0x0020, "NOTRAILERS"},
    FlagWord{0x0040, "RUNNING"},  FlagWord{0x0080, "NOARP"},       FlagWord{0x0100, "PROMISC"},
    FlagWord{0x0200, "ALLMULTI"}, FlagWord{0x1000, "MULTICAST"},   FlagWord{0x0400, "MASTER"},
    FlagWord{0x0800, "SLAVE"},    FlagWord{0x2000, "PORTSEL"},     FlagWord{0x4000, "AUTOMEDIA"}};

constexpr std::array kInterfaceCounters{
    CounterField<InterfaceRow>{&InterfaceRow::pktsRcvd, "packets_received"},
    CounterField<InterfaceRow>{&InterfaceRow::pktsXmitd, "packets_transmitted"},
    CounterField<InterfaceRow>{&InterfaceRow::totalPkts, "total_packets"},
    CounterField<InterfaceRow>{&InterfaceRow::totalPktErrors, "total_packet_errors"},
    CounterField<InterfaceRow>{&InterfaceRow::totalXmitReceiveErrors, "total_trans_receive_errors"},
    CounterField<InterfaceRow>{&InterfaceRow::pktReceiveErrors, "packet_receive_errors"},
    CounterField<InterfaceRow>{&InterfaceRow::pktXmitErrors, "packet_transmit_errors"},
    CounterField<InterfaceRow>{&InterfaceRow::pktCollisions, "packet_collisions"}};

constexpr IntervalFamily<InterfaceRow> kInterfaceFamily{
    .counters = kInterfaceCounters,
    .sameInstance =
        [](const InterfaceRow& a, const InterfaceRow& b) {
          return a.interface == b.interface && a.ipAddress == b.ipAddress;
        },
    .ratesOperation = "RecordBuilder::BuildRates_NIND"};

struct NINDState : FamilyState {
  RawRows<InterfaceRow> rawRows;
};

/// The name of the interface's network; empty if it has none.
std::string NetworkName(const Interface& source, HostNameRequestManager* hostNames) {
  if (source.address == 0 || source.netmask == 0) {
    return {};
  }
  HostAddress network(hostNames, DottedText(source.address & source.netmask));
  network.ResolveName();
  return network.Name();
}

void PutAddresses(InterfaceRow& row, const Interface& source, HostNameRequestManager* hostNames) {
  const std::string address = DottedText(source.address);
  row.ipAddress = address;
  if (address != kLoopback) {
    row.broadcastAddress = DottedText(source.broadcast);
  }
  row.networkMask = DottedText(source.netmask);
  row.networkName = NetworkName(source, hostNames);
}

void PutFlags(InterfaceRow& row, std::uint32_t flags) {
  std::array<char, sizeof(InterfaceRow::flags)> words{};
  for (const FlagWord& flag : kFlagWords) {
    if ((flags & flag.bit) != 0) {
      AppendWord(words, flag.word);
    }
  }
  row.flags = words.data();
}

/// A row with the interface's cumulative figures.
InterfaceRow RawRow(const Interface& source, HostNameRequestManager* hostNames, std::int32_t now) {
  InterfaceRow row = NewRow<InterfaceRow>(now);
  row.interface = source.GetName();
  row.type = source.type.data();
  PutAddresses(row, source, hostNames);
  PutFlags(row, source.ifFlags);
  row.pktsRcvd = source.rxPackets;
  row.pktsXmitd = source.txPackets;
  row.totalPkts = source.rxPackets + source.txPackets;
  row.pktReceiveErrors = source.rxErrors;
  row.pktXmitErrors = source.txErrors;
  row.pktCollisions = source.collisions;
  row.maxTransmissionUnit = static_cast<std::uint32_t>(source.mtu);
  row.totalPktErrors = source.collisions + source.rxErrors + source.txErrors;
  row.totalXmitReceiveErrors = source.txErrors + source.rxErrors;
  return row;
}

}  // namespace

UtlError* RecordBuilder::Build_NIND(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NIND", AddressOf(pEvent), AddressOf(pRequest));
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  IntervalBuild<InterfaceRow> build(kInterfaceFamily, StateOf<NINDState>().rawRows, *pEvent, first,
                                    GetUpTimeSeconds());
  UtlErrorPtr error;
  for (const Interface& source : *m_pCollector->GetInterface()) {
    error = build.Add(RawRow(source, m_pHostNames, now), [](InterfaceRow&, const InterfaceRow*) {});
    if (error) {
      break;
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<InterfaceRow>::kName, build.RowCount());
  TraceExit("RecordBuilder::Build_NIND", error ? 1 : 0);
  return error.release();
}
