#include <array>

#include "collect/Collector.h"
#include "records/NFSRows.h"
#include "records/RecordBuilder.h"

namespace {

using Overview = recordPI_NCO;
using Detail = recordPI_NCD;

// What the reserved words of the source feed. An overview tells the remote calls of version 2, but
// for those that only version 3 has.
constexpr std::array kOverviewWordsV2{
    &Overview::rpcCalls,       &Overview::rpcBadCalls, &Overview::rpcRetransV2,
    &Overview::rpcBadXid,      &Overview::rpcTimeout,  &Overview::rpcWait,
    &Overview::rpcNewCred,     &Overview::rpcTimers,   &Overview::rpcBadVerifier,
    &Overview::rpcNoMem,       &Overview::rpcCantSend, &Overview::handles,
    &Overview::totalSleepCount};
constexpr std::array kDetailWordsV2{
    &Detail::rpcCallsV2,       &Detail::rpcBadCallsV2, &Detail::rpcRetransV2, &Detail::rpcBadXidV2,
    &Detail::rpcTimeoutV2,     &Detail::rpcWaitV2,     &Detail::rpcNewCredV2, &Detail::rpcTimersV2,
    &Detail::rpcBadVerifierV2, &Detail::rpcNoMemV2,    &Detail::rpcCantSendV2};
constexpr std::array kDetailWordsV3{&Detail::rpcCallsV3,       &Detail::rpcBadCallsV3,
                                    &Detail::rpcBadXidV3,      &Detail::rpcTimeoutV3,
                                    &Detail::rpcNewCredV3,     &Detail::rpcTimersV3,
                                    &Detail::rpcBadVerifierV3, &Detail::rpcNoMemV3,
                                    &Detail::rpcInterruptsV3,  &Detail::rpcCantSendV3};

constexpr IntervalFamily<Overview> kOverviewFamily =
    OverviewFamily<Overview>("RecordBuilder::BuildRates_NCO");
constexpr IntervalFamily<Detail> kDetailFamily = DetailFamily<Detail>();

/// The operations of version 3 alone.
template <class Row>
void CopyVersion3(Row& row, const NFSCallsV3& v3) {
  row.mknodV3 = v3[nfs3::kMknod];
  row.readdirplusV3 = v3[nfs3::kReaddirplus];
  row.fsinfoV3 = v3[nfs3::kFsinfo];
  row.pathconfV3 = v3[nfs3::kPathconf];
}

Overview OverviewOf(const NFSClientTotal& source, std::int32_t now) {
  auto row = NewRow<Overview>(now);
  CopyOverview(row, source.totalCalls, source.callsV2, source.callsV3);
  CopyVersion3(row, source.callsV3);
  row.totalBadOps = source.reserved;
  CopyWords<Overview>(row, kOverviewWordsV2, source.reservedV2);
  row.rpcInterruptsV3 = source.reservedV3[8];
  return row;
}

Detail DetailOf(const NFSClientTotal& source, std::int32_t now) {
  auto row = NewRow<Detail>(now);
  CopyDetail(row, source.callsV2, source.callsV3);
  CopyVersion3(row, source.callsV3);
  CopyWords<Detail>(row, kDetailWordsV2, source.reservedV2);
  CopyWords<Detail>(row, kDetailWordsV3, source.reservedV3);
  return row;
}

}  // namespace

UtlError* RecordBuilder::Build_NCO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NCO", AddressOf(pEvent), AddressOf(pRequest));
  const Overview raw =
      OverviewOf(*m_pCollector->GetNFSClientTotal(), static_cast<std::int32_t>(Os().time(nullptr)));
  UtlErrorPtr error = BuildNFSRow(kOverviewFamily, StateOf<NFSState<Overview>>(), *pEvent,
                                  *pRequest, GetUpTimeSeconds(), raw, DeriveShares<Overview>);
  TraceExit("RecordBuilder::Build_NCO", error ? 1 : 0);
  return error.release();
}

UtlError* RecordBuilder::Build_NCD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NCD", AddressOf(pEvent), AddressOf(pRequest));
  const Detail raw =
      DetailOf(*m_pCollector->GetNFSClientTotal(), static_cast<std::int32_t>(Os().time(nullptr)));
  UtlErrorPtr error = BuildNFSRow(kDetailFamily, StateOf<NFSState<Detail>>(), *pEvent, *pRequest,
                                  GetUpTimeSeconds(), raw, [](Detail&, const Detail*, bool) {});
  TraceExit("RecordBuilder::Build_NCD", error ? 1 : 0);
  return error.release();
}
