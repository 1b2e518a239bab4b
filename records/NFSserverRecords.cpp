#include <array>

#include "collect/Collector.h"
#include "records/NFSRows.h"
#include "records/RecordBuilder.h"

namespace {

using ServerOverview = recordPI_NSO;
using ServerDetail = recordPI_NSD;

// What the reserved words of the source feed. An overview tells the remote calls of version 2, but
// for those that only version 3 has.
constexpr std::array kServerOverviewWordsV2{
    &ServerOverview::rpcCalls,     &ServerOverview::rpcBadCalls,  &ServerOverview::rpcNullReceive,
    &ServerOverview::rpcBadLength, &ServerOverview::rpcBadFormat, &ServerOverview::rpcDupChecks,
    &ServerOverview::rpcDupReqs,   &ServerOverview::rpcNfsQueue};
constexpr std::array kServerDetailWordsV2{
    &ServerDetail::rpcCallsV2,     &ServerDetail::rpcBadCallsV2,  &ServerDetail::rpcNullReceiveV2,
    &ServerDetail::rpcBadLengthV2, &ServerDetail::rpcBadFormatV2, &ServerDetail::rpcDupChecksV2,
    &ServerDetail::rpcDupReqsV2};
constexpr std::array kServerDetailWordsV3{
    &ServerDetail::rpcCallsV3,     &ServerDetail::rpcBadCallsV3,  &ServerDetail::rpcNullReceiveV3,
    &ServerDetail::rpcBadLengthV3, &ServerDetail::rpcBadFormatV3, &ServerDetail::rpcDupChecksV3,
    &ServerDetail::rpcDupReqsV3};

constexpr IntervalFamily<ServerOverview> kServerOverviewFamily =
    OverviewFamily<ServerOverview>("RecordBuilder::BuildRates_NSO");
constexpr IntervalFamily<ServerDetail> kServerDetailFamily = DetailFamily<ServerDetail>();

/// The operations of version 3 alone.
template <class Row>
void CopyServerVersion3(Row& row, const NFSCallsV3& v3) {
  row.mknodOpsV3 = v3[nfs3::kMknod];
  row.readdirplusOpsV3 = v3[nfs3::kReaddirplus];
  row.fsinfoOpsV3 = v3[nfs3::kFsinfo];
  row.pathconfOpsV3 = v3[nfs3::kPathconf];
}

}  // namespace

UtlError* RecordBuilder::Build_NSO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSServerTotal()](std::int32_t now) {
    auto row = NewOverview<ServerOverview>(source, kServerOverviewWordsV2, now);
    CopyServerVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NSO", pEvent, pRequest, GetUpTimeSeconds()},
                     kServerOverviewFamily, StateOf<NFSState<ServerOverview>>(), make,
                     DeriveOverview<ServerOverview>);
}

UtlError* RecordBuilder::Build_NSD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSServerTotal()](std::int32_t now) {
    auto row = NewDetail<ServerDetail>(source, kServerDetailWordsV2, kServerDetailWordsV3, now);
    CopyServerVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NSD", pEvent, pRequest, GetUpTimeSeconds()},
                     kServerDetailFamily, StateOf<NFSState<ServerDetail>>(), make,
                     DeriveNothing<ServerDetail>);
}
