#include <span>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using SocketRecord = recordPI_SOCK;

constexpr FigurePair<SocketRecord, SocketFigures> kSocketPairs[] = {
    {&SocketRecord::socketsUsed, &SocketFigures::socketsUsed},
    {&SocketRecord::tcpInUse, &SocketFigures::tcp4InUse},
    {&SocketRecord::tcp6InUse, &SocketFigures::tcp6InUse},
    {&SocketRecord::tcpAllocated, &SocketFigures::tcpAllocated},
    {&SocketRecord::tcpOrphans, &SocketFigures::tcpOrphans},
    {&SocketRecord::tcpTimeWaits, &SocketFigures::tcpBrief},
    {&SocketRecord::tcpMemory, &SocketFigures::tcpMemory},
    {&SocketRecord::udpInUse, &SocketFigures::udp4InUse},
    {&SocketRecord::udp6InUse, &SocketFigures::udp6InUse},
    {&SocketRecord::udpMemory, &SocketFigures::udpMemory},
    {&SocketRecord::udpLiteInUse, &SocketFigures::udpLite4InUse},
    {&SocketRecord::rawInUse, &SocketFigures::raw4InUse},
    {&SocketRecord::raw6InUse, &SocketFigures::raw6InUse},
    {&SocketRecord::fragmentsInUse, &SocketFigures::fragments4InUse},
    {&SocketRecord::fragmentMemory, &SocketFigures::fragments4Memory},
    {&SocketRecord::trackedConnections, &SocketFigures::trackedConnections},
    {&SocketRecord::mostTrackedConnections, &SocketFigures::mostTrackedConnections},
    {&SocketRecord::established, &SocketFigures::established},
    {&SocketRecord::synSent, &SocketFigures::synSent},
    {&SocketRecord::synReceived, &SocketFigures::synReceived},
    {&SocketRecord::finWait1, &SocketFigures::finWait1},
    {&SocketRecord::finWait2, &SocketFigures::finWait2},
    {&SocketRecord::timeWait, &SocketFigures::timeWait},
    {&SocketRecord::closeWait, &SocketFigures::closeWait},
    {&SocketRecord::lastAck, &SocketFigures::lastAck},
    {&SocketRecord::closing, &SocketFigures::closing},
    {&SocketRecord::listening, &SocketFigures::listening},
    {&SocketRecord::activeOpens, &SocketFigures::activeOpens},
    {&SocketRecord::passiveOpens, &SocketFigures::passiveOpens},
    {&SocketRecord::failedOpens, &SocketFigures::failedAttempts},
    {&SocketRecord::resets, &SocketFigures::establishedResets},
    {&SocketRecord::resetsSent, &SocketFigures::resetsSent},
    {&SocketRecord::segmentsIn, &SocketFigures::segmentsIn},
    {&SocketRecord::segmentsOut, &SocketFigures::segmentsOut},
    {&SocketRecord::segmentErrorsIn, &SocketFigures::segmentErrorsIn},
    {&SocketRecord::retransmits, &SocketFigures::segmentsSentAgain},
    {&SocketRecord::synRetransmits, &SocketFigures::synSentAgain},
    {&SocketRecord::lostRetransmits, &SocketFigures::sentAgainAndLost},
    {&SocketRecord::timeouts, &SocketFigures::timeouts},
    {&SocketRecord::listenOverflows, &SocketFigures::listenOverflows},
    {&SocketRecord::listenDrops, &SocketFigures::listenDrops},
    {&SocketRecord::synCookiesSent, &SocketFigures::synCookiesSent},
    {&SocketRecord::synCookiesReceived, &SocketFigures::synCookiesReceived},
    {&SocketRecord::synCookiesFailed, &SocketFigures::synCookiesFailed},
    {&SocketRecord::outOfMemory, &SocketFigures::abortsForMemory},
    {&SocketRecord::memoryPressures, &SocketFigures::memoryPressures},
    {&SocketRecord::datagramsIn, &SocketFigures::datagramsIn},
    {&SocketRecord::datagramsOut, &SocketFigures::datagramsOut},
    {&SocketRecord::noPorts, &SocketFigures::noPorts},
    {&SocketRecord::datagramErrorsIn, &SocketFigures::datagramErrorsIn},
    {&SocketRecord::receiveBufferErrors, &SocketFigures::receiveBufferErrors},
    {&SocketRecord::sendBufferErrors, &SocketFigures::sendBufferErrors},
    {&SocketRecord::checksumErrors, &SocketFigures::checksumErrorsIn}};

void FillSockets(SocketRecord& row, const SocketFigures& figures) {
  PutFigures<SocketRecord, SocketFigures>(row, figures, kSocketPairs);
  row.trackedPercent = static_cast<float>(
      100 * Quotient(figures.trackedConnections, figures.mostTrackedConnections));
}

}  // namespace

UtlError* RecordBuilder::Build_SOCK(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows({"RecordBuilder::Build_SOCK", pEvent, pRequest, GetUpTimeSeconds(),
                          m_pCollector->TakenAt(COLLECT_SOCKET)},
                         StateOf<GrowthState<SocketRecord>>(),
                         std::span(&m_pCollector->GetModern()->sockets, 1), FillSockets,
                         DeriveNoMore{});
}
