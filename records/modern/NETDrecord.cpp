#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using InterfaceRecord = recordPI_NETD;

constexpr FigurePair<InterfaceRecord, LinkFigures> kLinkPairs[] = {
    {&InterfaceRecord::speedMbits, &LinkFigures::speed},
    {&InterfaceRecord::maxTransmissionUnit, &LinkFigures::mtu},
    {&InterfaceRecord::carrierChanges, &LinkFigures::carrierChanges},
    {&InterfaceRecord::bytesIn, &LinkFigures::bytesIn},
    {&InterfaceRecord::packetsIn, &LinkFigures::packetsIn},
    {&InterfaceRecord::multicastIn, &LinkFigures::multicastIn},
    {&InterfaceRecord::errorsIn, &LinkFigures::errorsIn},
    {&InterfaceRecord::dropsIn, &LinkFigures::dropsIn},
    {&InterfaceRecord::missedIn, &LinkFigures::missedIn},
    {&InterfaceRecord::overrunsIn, &LinkFigures::overrunsIn},
    {&InterfaceRecord::fifoErrorsIn, &LinkFigures::fifoErrorsIn},
    {&InterfaceRecord::lengthErrorsIn, &LinkFigures::lengthErrorsIn},
    {&InterfaceRecord::frameErrorsIn, &LinkFigures::frameErrorsIn},
    {&InterfaceRecord::crcErrorsIn, &LinkFigures::crcErrorsIn},
    {&InterfaceRecord::bytesOut, &LinkFigures::bytesOut},
    {&InterfaceRecord::packetsOut, &LinkFigures::packetsOut},
    {&InterfaceRecord::errorsOut, &LinkFigures::errorsOut},
    {&InterfaceRecord::dropsOut, &LinkFigures::dropsOut},
    {&InterfaceRecord::overrunsOut, &LinkFigures::fifoErrorsOut},
    {&InterfaceRecord::carrierErrorsOut, &LinkFigures::carrierErrorsOut},
    {&InterfaceRecord::collisions, &LinkFigures::collisions}};

void FillInterface(InterfaceRecord& row, const LinkFigures& link) {
  row.interface = link.name;
  row.ipAddress = link.ipv4;
  row.ipv6Address = link.ipv6;
  row.hardwareAddress = link.hardwareAddress;
  row.state = link.state;
  row.duplex = link.duplex;
  row.master = link.master;
  PutFigures<InterfaceRecord, LinkFigures>(row, link, kLinkPairs);
}

float PercentOfSpeed(double bytes, double seconds, double mbits) {
  constexpr double kBitsOfMbit = 1e6;
  return static_cast<float>(100 * Quotient(bytes * 8, seconds * mbits * kBitsOfMbit));
}

void DeriveUse(InterfaceRecord& row, const InterfaceRecord& growth, double seconds) {
  row.speedInPercent = PercentOfSpeed(growth.bytesIn, seconds, row.speedMbits);
  row.speedOutPercent = PercentOfSpeed(growth.bytesOut, seconds, row.speedMbits);
}

}  // namespace

UtlError* RecordBuilder::Build_NETD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows<InterfaceRecord, NewInstance::kAll>(
      {"RecordBuilder::Build_NETD", pEvent, pRequest, GetUpTimeSeconds(),
       m_pCollector->TakenAt(COLLECT_LINK)},
      StateOf<GrowthState<InterfaceRecord>>(), m_pCollector->GetModern()->links, FillInterface,
      DeriveUse);
}
