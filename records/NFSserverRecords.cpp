#include <array>

#include "collect/Collector.h"
#include "records/NFSRows.h"
#include "records/RecordBuilder.h"

namespace {

using Overview = recordPI_NSO;
using Detail = recordPI_NSD;

// What the reserved words of the source feed. An overview tells the remote calls of version 2, but
// for those that only version 3 has.
constexpr std::array kOverviewWordsV2{&Overview::rpcCalls,       &Overview::rpcBadCalls,
                                      &Overview::rpcNullReceive, &Overview::rpcBadLength,
                                      &Overview::rpcBadFormat,   &Overview::rpcDupChecks,
                                      &Overview::rpcDupReqs,     &Overview::rpcNfsQueue};
constexpr std::array kDetailWordsV2{&Detail::rpcCallsV2,       &Detail::rpcBadCallsV2,
                                    &Detail::rpcNullReceiveV2, &Detail::rpcBadLengthV2,
                                    &Detail::rpcBadFormatV2,   &Detail::rpcDupChecksV2,
                                    &Detail::rpcDupReqsV2};
constexpr std::array kDetailWordsV3{&Detail::rpcCallsV3,       &Detail::rpcBadCallsV3,
                                    &Detail::rpcNullReceiveV3, &Detail::rpcBadLengthV3,
                                    &Detail::rpcBadFormatV3,   &Detail::rpcDupChecksV3,
                                    &Detail::rpcDupReqsV3};

constexpr IntervalFamily<Overview> kOverviewFamily =
    OverviewFamily<Overview>("RecordBuilder::BuildRates_NSO");
constexpr IntervalFamily<Detail> kDetailFamily = DetailFamily<Detail>();

/// The operations of version 3 alone.
template <class Row>
void CopyVersion3(Row& row, const NFSCallsV3& v3) {
  row.mknodOpsV3 = v3[nfs3::kMknod];
  row.readdirplusOpsV3 = v3[nfs3::kReaddirplus];
  row.fsinfoOpsV3 = v3[nfs3::kFsinfo];
  row.pathconfOpsV3 = v3[nfs3::kPathconf];
}

}  // namespace

UtlError* RecordBuilder::Build_NSO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSServerTotal()](std::int32_t now) {
    auto row = NewOverview<Overview>(source, kOverviewWordsV2, now);
    CopyVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NSO", pEvent, pRequest, GetUpTimeSeconds()},
                     kOverviewFamily, StateOf<NFSState<Overview>>(), make, DeriveShares<Overview>);
}

UtlError* RecordBuilder::Build_NSD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto make = [&source = *m_pCollector->GetNFSServerTotal()](std::int32_t now) {
    auto row = NewDetail<Detail>(source, kDetailWordsV2, kDetailWordsV3, now);
    CopyVersion3(row, source.callsV3);
    return row;
  };
  return BuildNFSRow({"RecordBuilder::Build_NSD", pEvent, pRequest, GetUpTimeSeconds()},
                     kDetailFamily, StateOf<NFSState<Detail>>(), make, DeriveNothing<Detail>);
}
