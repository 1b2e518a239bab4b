#include <array>

#include "collect/network/InterfaceSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using Row = recordPI_NINS;

constexpr std::array kCounters{CounterField<Row>{&Row::pktsRcvd, "packets_received"},
                               CounterField<Row>{&Row::pktsXmitd, "packets_transmitted"},
                               CounterField<Row>{&Row::pktReceiveErrors, "packet_receive_errors"},
                               CounterField<Row>{&Row::pktXmitErrors, "packet_transmit_errors"},
                               CounterField<Row>{&Row::pktCollisions, "packet_collisions"}};
constexpr auto kRates = RatesOf<RateField, Row>();

const IntervalFamily<Row> kFamily{kCounters, {}, kRates, nullptr, "RecordBuilder::BuildRates_NINS"};

struct NINSState : FamilyState {
  RawRows<Row> rawRows;
};

/// The cumulative figures of all interfaces.
Row SumOf(const std::vector<Interface>& interfaces, std::int32_t now) {
  Row sum = NewRow<Row>(now);
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
  const Row sum = SumOf(interfaces, static_cast<std::int32_t>(Os().time(nullptr)));
  IntervalBuild<Row> build(kFamily, StateOf<NINSState>().rawRows, *pEvent, first,
                           GetUpTimeSeconds());
  UtlErrorPtr error = build.Add(sum, [](Row&, const Row*) {});
  Trace(30, kInformation, "Processed %1 Interface(s).", interfaces.size());
  TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, 1);
  TraceExit("RecordBuilder::Build_NINS", error ? 1 : 0);
  return error.release();
}
