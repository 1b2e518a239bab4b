#include <array>

#include "collect/Collector.h"
#include "records/NFSRows.h"
#include "records/RecordBuilder.h"

namespace {

using ClientOverview = recordPI_NCO;
using ClientDetail = recordPI_NCD;

// What the reserved words of the source feed. An overview tells the remote calls of version 2, but
// for those that only version 3 has.
constexpr std::array kClientOverviewWordsV2{
    &ClientOverview::rpcCalls,       &ClientOverview::rpcBadCalls, &ClientOverview::rpcRetransV2,
    &ClientOverview::rpcBadXid,      &ClientOverview::rpcTimeout,  &ClientOverview::rpcWait,
    &ClientOverview::rpcNewCred,     &ClientOverview::rpcTimers,   &ClientOverview::rpcBadVerifier,
    &ClientOverview::rpcNoMem,       &ClientOverview::rpcCantSend, &ClientOverview::handles,
    &ClientOverview::totalSleepCount};
constexpr std::array kClientDetailWordsV2{
    &ClientDetail::rpcCallsV2,   &ClientDetail::rpcBadCallsV2, &ClientDetail::rpcRetransV2,
    &ClientDetail::rpcBadXidV2,  &ClientDetail::rpcTimeoutV2,  &ClientDetail::rpcWaitV2,
    &ClientDetail::rpcNewCredV2, &ClientDetail::rpcTimersV2,   &ClientDetail::rpcBadVerifierV2,
    &ClientDetail::rpcNoMemV2,   &ClientDetail::rpcCantSendV2};
constexpr std::array kClientDetailWordsV3{
    &ClientDetail::rpcCallsV3,       &ClientDetail::rpcBadCallsV3, &ClientDetail::rpcBadXidV3,
    &ClientDetail::rpcTimeoutV3,     &ClientDetail::rpcNewCredV3,  &ClientDetail::rpcTimersV3,
    &ClientDetail::rpcBadVerifierV3, &ClientDetail::rpcNoMemV3,    &ClientDetail::rpcInterruptsV3,
    &ClientDetail::rpcCantSendV3};

constexpr IntervalFamily<ClientOverview> kClientOverviewFamily =
    OverviewFamily<ClientOverview>("RecordBuilder::BuildRates_NCO");
constexpr IntervalFamily<ClientDetail> kClientDetailFamily = DetailFamily<ClientDetail>();

/// The operations of version 3 alone.
template <class Row>
void CopyClientVersion3(Row& row, const NFSCallsV3& v3) {
  row.mknodV3 = v3[nfs3::kMknod];
  row.readdirplusV3 = v3[nfs3::kReaddirplus];
  row.fsinfoV3 = v3[nfs3::kFsinfo];
  row.pathconfV3 = v3[nfs3::kPathconf];
}

}  // namespace

UtlError* RecordBuilder::Build_NCO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSClientTotal()](std::int32_t now) {
    auto row = NewOverview<ClientOverview>(source, kClientOverviewWordsV2, now);
    CopyClientVersion3(row, source.callsV3);
    row.rpcInterruptsV3 = source.reservedV3[8];
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NCO", pEvent, pRequest, GetUpTimeSeconds()},
                     kClientOverviewFamily, StateOf<NFSState<ClientOverview>>(), make,
                     DeriveOverview<ClientOverview>);
}

UtlError* RecordBuilder::Build_NCD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSClientTotal()](std::int32_t now) {
    auto row = NewDetail<ClientDetail>(source, kClientDetailWordsV2, kClientDetailWordsV3, now);
    CopyClientVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NCD", pEvent, pRequest, GetUpTimeSeconds()},
                     kClientDetailFamily, StateOf<NFSState<ClientDetail>>(), make,
                     DeriveNothing<ClientDetail>);
}
