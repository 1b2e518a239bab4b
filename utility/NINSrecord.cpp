#include <array>

#include "collect/network/InterfaceSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using InterfacesRow = recordPI_NINS;

constexpr std::array kInterfacesCounters{
    CounterField<InterfacesRow>{&InterfacesRow::pktsRcvd, "packets_received"},
    CounterField<InterfacesRow>{&InterfacesRow::pktsXmitd, "packets_transmitted"},
    CounterField<InterfacesRow>{&InterfacesRow::pktReceiveErrors, "packet_receive_errors"},
    CounterField<InterfacesRow>{&InterfacesRow::pktXmitErrors, "packet_transmit_errors"},
    CounterField<InterfacesRow>{&InterfacesRow::pktCollisions, "packet_collisions"}};

constexpr IntervalFamily<InterfacesRow> kInterfacesFamily{
    .counters = kInterfacesCounters, .ratesOperation = "RecordBuilder::BuildRates_NINS"};

struct NINSState : FamilyState {
  RawRows<InterfacesRow> rawRows;
};

/// The cumulative figures of all interfaces.
InterfacesRow SumOfInterfaces(const std::vector<Interface>& interfaces, std::int32_t now) {
  InterfacesRow sum = NewRow<InterfacesRow>(now);
  for (const Interface& source : interfaces) {
    sum.pktsRcvd = sum.pktsRcvd + source.rxPackets;
    sum.pktsXmitd = sum.pktsXmitd + source.txPackets;
    sum.pktReceiveErrors = sum.pktReceiveErrors + source.rxErrors;
    sum.pktXmitErrors = sum.pktXmitErrors + source.txErrors;
    sum.pktCollisions = sum.pktCollisions + source.collisions;
  }
  sum.interfaceCount = static_cast<std::uint32_t>(interfaces.size());
  return sum;
}

}  // namespace

UtlError* RecordBuilder::Build_NINS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NINS", AddressOf(pEvent), AddressOf(pRequest));
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const std::vector<Interface>& interfaces = *m_pCollector->GetInterface();
  const InterfacesRow sum =
      SumOfInterfaces(interfaces, static_cast<std::int32_t>(Os().time(nullptr)));
  IntervalBuild<InterfacesRow> build(kInterfacesFamily, StateOf<NINSState>().rawRows, *pEvent,
                                     first, GetUpTimeSeconds());
  UtlErrorPtr error = build.Add(sum, [](InterfacesRow&, const InterfacesRow*) {});
  Trace(30, kInformation, "Processed %1 Interface(s).", interfaces.size());
  TraceCreated(__FILE__, __LINE__, RecordTraits<InterfacesRow>::kName, 1);
  TraceExit("RecordBuilder::Build_NINS", error ? 1 : 0);
  return error.release();
}
