#include <array>
#include <span>
#include <utility>
#include <vector>

#include "collect/network/InterfaceSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/NamedGrowth.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/LowWord.h"
#include "support/OsCalls.h"
#include "utility/InterfaceFigures.h"

namespace {

/// A row on its way, and what the differences of the profile `modern` are made of.
struct InterfacesRow : recordPI_NINS {
  using PublishedRecord = recordPI_NINS;
  std::vector<NamedCounters> interfaces;
};

constexpr std::array kInterfacesCounters{
    CounterField<InterfacesRow>{&InterfacesRow::pktsRcvd, "packets_received"},
    CounterField<InterfacesRow>{&InterfacesRow::pktsXmitd, "packets_transmitted"},
    CounterField<InterfacesRow>{&InterfacesRow::pktReceiveErrors, "packet_receive_errors"},
    CounterField<InterfacesRow>{&InterfacesRow::pktXmitErrors, "packet_transmit_errors"},
    CounterField<InterfacesRow>{&InterfacesRow::pktCollisions, "packet_collisions"}};

constexpr IntervalFamily<InterfacesRow> kInterfacesFamily{
    .counters = kInterfacesCounters, .ratesOperation = "RecordBuilder::BuildRates_NINS"};

/// The sum of what each interface has counted, so that one that goes takes nothing away.
void PutSumOfGrowths(InterfacesRow& row, InterfacesRow& raw, const InterfacesRow& previous) {
  const InterfaceCounters sum =
      SumOfGrowths<NamedCounters>(raw.interfaces, previous.interfaces, InterfaceGrowth);
  row.pktsRcvd = LowWord(sum.rxPackets);
  row.pktsXmitd = LowWord(sum.txPackets);
  row.pktReceiveErrors = LowWord(sum.rxErrors);
  row.pktXmitErrors = LowWord(sum.txErrors);
  row.pktCollisions = LowWord(sum.collisions);
  if (raw.interfaces.empty()) {
    // They could not be read: a host has one at least.
    raw.interfaces = previous.interfaces;
  }
}

constexpr IntervalFamily<InterfacesRow> kModernInterfacesFamily{
    .amend = PutSumOfGrowths, .ratesOperation = "RecordBuilder::BuildRates_NINS"};

/// What a profile makes of the row.
struct InterfacesRules {
  const IntervalFamily<InterfacesRow>& family;
  /// What the row keeps of the interfaces beside their sum; null for nothing.
  std::vector<NamedCounters> (*kept)(std::span<const Interface> interfaces);
};

const InterfacesRules& SumRulesInForce() {
  static constexpr InterfacesRules kClassic{kInterfacesFamily, nullptr};
  static constexpr InterfacesRules kModern{kModernInterfacesFamily, CountersByName};
  return g_hostProfile == HostProfile::kModern ? kModern : kClassic;
}

struct NINSState : FamilyState {
  RawRows<InterfacesRow> rawRows;
};

/// The cumulative figures of all interfaces.
InterfacesRow SumOfInterfaces(const std::vector<Interface>& interfaces, std::int32_t now) {
  InterfacesRow sum{NewRow<recordPI_NINS>(now), {}};
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
  InterfacesRow sum = SumOfInterfaces(interfaces, static_cast<std::int32_t>(Os().time(nullptr)));
  const InterfacesRules& rules = SumRulesInForce();
  if (rules.kept != nullptr) {
    sum.interfaces = rules.kept(interfaces);
  }
  IntervalBuild<InterfacesRow> build(rules.family, StateOf<NINSState>().rawRows, *pEvent, first,
                                     GetUpTimeSeconds());
  UtlErrorPtr error = build.Add(std::move(sum), [](InterfacesRow&, const recordPI_NINS*) {});
  Trace(30, kInformation, "Processed %1 Interface(s).", interfaces.size());
  TraceCreated(__FILE__, __LINE__, RecordTraits<recordPI_NINS>::kName, 1);
  TraceExit("RecordBuilder::Build_NINS", error ? 1 : 0);
  return error.release();
}
