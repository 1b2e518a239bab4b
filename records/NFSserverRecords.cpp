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

Overview OverviewOf(const NFSServerTotal& source, std::int32_t now) {
  auto row = NewRow<Overview>(now);
  CopyOverview(row, source.totalCalls, source.callsV2, source.callsV3);
  CopyVersion3(row, source.callsV3);
  row.totalBadOps = source.reserved;
  CopyWords<Overview>(row, kOverviewWordsV2, source.reservedV2);
  return row;
}

Detail DetailOf(const NFSServerTotal& source, std::int32_t now) {
  auto row = NewRow<Detail>(now);
  CopyDetail(row, source.callsV2, source.callsV3);
  CopyVersion3(row, source.callsV3);
  CopyWords<Detail>(row, kDetailWordsV2, source.reservedV2);
  CopyWords<Detail>(row, kDetailWordsV3, source.reservedV3);
  return row;
}

}  // namespace

UtlError* RecordBuilder::Build_NSO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NSO", AddressOf(pEvent), AddressOf(pRequest));
  const Overview raw =
      OverviewOf(*m_pCollector->GetNFSServerTotal(), static_cast<std::int32_t>(Os().time(nullptr)));
  UtlErrorPtr error = BuildNFSRow(kOverviewFamily, StateOf<NFSState<Overview>>(), *pEvent,
                                  *pRequest, GetUpTimeSeconds(), raw, DeriveShares<Overview>);
  TraceExit("RecordBuilder::Build_NSO", error ? 1 : 0);
  return error.release();
}

UtlError* RecordBuilder::Build_NSD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_NSD", AddressOf(pEvent), AddressOf(pRequest));
  const Detail raw =
      DetailOf(*m_pCollector->GetNFSServerTotal(), static_cast<std::int32_t>(Os().time(nullptr)));
  UtlErrorPtr error = BuildNFSRow(kDetailFamily, StateOf<NFSState<Detail>>(), *pEvent, *pRequest,
                                  GetUpTimeSeconds(), raw, [](Detail&, const Detail*, bool) {});
  TraceExit("RecordBuilder::Build_NSD", error ? 1 : 0);
  return error.release();
}
