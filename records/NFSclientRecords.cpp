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

}  // namespace

UtlError* RecordBuilder::Build_NCO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSClientTotal()](std::int32_t now) {
    auto row = NewOverview<Overview>(source, kOverviewWordsV2, now);
    CopyVersion3(row, source.callsV3);
    row.rpcInterruptsV3 = source.reservedV3[8];
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NCO", pEvent, pRequest, GetUpTimeSeconds()},
                     kOverviewFamily, StateOf<NFSState<Overview>>(), make, DeriveShares<Overview>);
}

UtlError* RecordBuilder::Build_NCD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSClientTotal()](std::int32_t now) {
    auto row = NewDetail<Detail>(source, kDetailWordsV2, kDetailWordsV3, now);
    CopyVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NCD", pEvent, pRequest, GetUpTimeSeconds()},
                     kDetailFamily, StateOf<NFSState<Detail>>(), make, DeriveNothing<Detail>);
}
