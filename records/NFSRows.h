#pragma once

#include <cstdint>
#include <span>

#include "collect/nfs/NFSSource.h"
#include "records/IntervalEngine.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

/// A percentage of an NFS record: that of the counter `part` in the counter `whole`.
template <class Record>
struct NFSShare {
  Ulong Record::*part = nullptr;
  Ulong Record::*whole = nullptr;
};

/// A field of an NFS record: a counter, or what is made of counters.
template <class Record>
struct NFSField {
  constexpr NFSField(Ulong Record::*member, FieldMeaning meaning)
      : counter(meaning == FieldMeaning::counter ? member : nullptr) {}
  constexpr NFSField(Float Record::* /*member*/, FieldMeaning /*meaning*/) {}
  constexpr NFSField(Float Record::*member, NFSShare<Record> what) : percent(member), share(what) {}

  Ulong Record::*counter = nullptr;
  Float Record::*percent = nullptr;  ///< of `share`
  NFSShare<Record> share;
};

/// The fields of a record behind its header, in layout order.
template <class Record>
struct NFSFields;

#define HEADER()
#define ABOUT(sentence)
#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct NFSFields<structure> {                        \
    using Record = structure;                          \
    using enum FieldMeaning;                           \
    static constexpr NFSField<Record> kFields[] = {
#define FIELD(type, member, label, meaning, ...) {&Record::member, meaning},
#define rate(counter) rate
#define share(part, whole) \
  NFSShare<Record> { &Record::part, &Record::whole }
// clang-format off
#define END() }; };
// clang-format on
#include "records/layout/PI_NCD.def"
#include "records/layout/PI_NCO.def"
#include "records/layout/PI_NSD.def"
#include "records/layout/PI_NSO.def"
#undef HEADER
#undef ABOUT
#undef BEGIN
#undef FIELD
#undef rate
#undef share
#undef END

/// Subtracts all counters, wrapping at 32 bits.
template <class Row>
void SubtractCounters(Row& row, Row& /*raw*/, const Row& previous) {
  for (const NFSField<Row>& field : NFSFields<Row>::kFields) {
    if (field.counter != nullptr) {
      row.*field.counter = row.*field.counter - previous.*field.counter;
    }
  }
}

/// The rates of the remote calls: without rates whole calls a second, with rates 0 without calls.
/// `seconds` is not 0.
template <class Row>
void PutRpcRates(Row& row, std::uint32_t seconds, bool withRates) {
  const std::uint32_t calls = row.rpcCalls;
  const std::uint32_t badCalls = row.rpcBadCalls;
  if (!withRates) {
    row.rpcCallsPerSec = static_cast<float>(calls / seconds);
    row.rpcBadCallsPerSec = static_cast<float>(badCalls / seconds);
  } else if (calls == 0) {
    row.rpcCallsPerSec = 0.0F;
    row.rpcBadCallsPerSec = 0.0F;
  } else {
    const auto divisor = static_cast<long double>(seconds);
    row.rpcCallsPerSec = static_cast<float>(calls / divisor);
    row.rpcBadCallsPerSec = static_cast<float>(badCalls / divisor);
  }
}

/// Sets each percentage. They are taken of the row's own figures with rates, else of the
/// differences to the predecessor; without one they are 0.
template <class Row>
void DeriveShares(Row& row, const Row* predecessor, bool withRates) {
  if (!withRates && predecessor == nullptr) {
    return;
  }
  const auto figure = [&](Ulong Row::*counter) -> std::uint32_t {
    return row.*counter - (withRates ? 0U : static_cast<std::uint32_t>(predecessor->*counter));
  };
  for (const NFSField<Row>& field : NFSFields<Row>::kFields) {
    if (field.percent == nullptr) {
      continue;
    }
    const std::uint32_t part = figure(field.share.part);
    const std::uint32_t whole = figure(field.share.whole);
    if (whole == 0) {
      continue;
    }
    // Those of remote calls are more exact.
    row.*field.percent = field.share.whole == &Row::rpcCalls
                             ? static_cast<float>(100.0L * part / whole)
                             : 100.0F * static_cast<float>(part) / static_cast<float>(whole);
  }
}

/// What an overview shows besides its counters and rates.
template <class Row>
void DeriveOverview(Row& row, const Row* predecessor, const IntervalBuild<Row>& build) {
  PutRpcRates(row, build.RateSeconds(), build.WithRates());
  DeriveShares(row, predecessor, build.WithRates());
}

/// The sum of a version's calls, wrapping at 32 bits.
template <class Calls>
std::uint32_t SumOf(const Calls& calls) {
  std::uint32_t sum = 0;
  for (const std::uint32_t count : calls) {
    sum += count;
  }
  return sum;
}

/// Sets the fields that a source's reserved words feed, in the words' order.
template <class Row>
void CopyWords(Row& row, std::span<Ulong Row::*const> fields,
               std::span<const std::uint32_t> words) {
  for (std::size_t place = 0; place < fields.size(); ++place) {
    row.*fields[place] = words[place];
  }
}

/// A row with what both overviews have under one name; `words` are the fields that the reserved
/// words of version 2 feed, in their order.
template <class Row, class Total>
Row NewOverview(const Total& source, std::span<Ulong Row::*const> words, std::int32_t now) {
  const NFSCallsV2& v2 = source.callsV2;
  auto row = NewRow<Row>(now);
  row.readOps = v2[nfs2::kRead];
  row.writeOps = v2[nfs2::kWrite];
  row.lookupOps = v2[nfs2::kLookup];
  row.statfsOps = v2[nfs2::kStatfs];
  row.nullOps = v2[nfs2::kNull];
  row.getattrOps = v2[nfs2::kGetattr];
  row.setattrOps = v2[nfs2::kSetattr];
  row.rootOpsV2 = v2[nfs2::kRoot];
  row.readlinkOps = v2[nfs2::kReadlink];
  row.writecacheOps = v2[nfs2::kWrcache];
  row.createOps = v2[nfs2::kCreate];
  row.removeOps = v2[nfs2::kRemove];
  row.renameOps = v2[nfs2::kRename];
  row.linkOps = v2[nfs2::kLink];
  row.symlinkOps = v2[nfs2::kSymlink];
  row.mkdirOps = v2[nfs2::kMkdir];
  row.rmdirOps = v2[nfs2::kRmdir];
  row.readdirOps = v2[nfs2::kReaddir];
  row.accessOpsV3 = source.callsV3[nfs3::kAccess];
  row.totalOps = source.totalCalls;
  row.totalBadOps = source.reserved;
  CopyWords<Row>(row, words, source.reservedV2);
  return row;
}

/// A row with what both details have under one name; the words as above, of both versions.
template <class Row, class Total>
Row NewDetail(const Total& source, std::span<Ulong Row::*const> wordsV2,
              std::span<Ulong Row::*const> wordsV3, std::int32_t now) {
  const NFSCallsV2& v2 = source.callsV2;
  const NFSCallsV3& v3 = source.callsV3;
  auto row = NewRow<Row>(now);
  row.readOpsV2 = v2[nfs2::kRead];
  row.readOpsV3 = v3[nfs3::kRead];
  row.writeOpsV2 = v2[nfs2::kWrite];
  row.writeOpsV3 = v3[nfs3::kWrite];
  row.lookupOpsV2 = v2[nfs2::kLookup];
  row.lookupOpsV3 = v3[nfs3::kLookup];
  row.statfsOpsV2 = v2[nfs2::kStatfs];
  row.fsstatOpsV3 = v3[nfs3::kFsstat];
  row.nullOpsV2 = v2[nfs2::kNull];
  row.nullOpsV3 = v3[nfs3::kNull];
  row.getattrOpsV2 = v2[nfs2::kGetattr];
  row.getattrOpsV3 = v3[nfs3::kGetattr];
  row.setattrOpsV2 = v2[nfs2::kSetattr];
  row.setattrOpsV3 = v3[nfs3::kSetattr];
  row.rootOpsV2 = v2[nfs2::kRoot];
  row.readlinkOpsV2 = v2[nfs2::kReadlink];
  row.readlinkOpsV3 = v3[nfs3::kReadlink];
  row.writecacheOpsV2 = v2[nfs2::kWrcache];
  row.commitOpsV3 = v3[nfs3::kCommit];
  row.createOpsV2 = v2[nfs2::kCreate];
  row.createOpsV3 = v3[nfs3::kCreate];
  row.removeOpsV2 = v2[nfs2::kRemove];
  row.removeOpsV3 = v3[nfs3::kRemove];
  row.renameOpsV2 = v2[nfs2::kRename];
  row.renameOpsV3 = v3[nfs3::kRename];
  row.linkOpsV2 = v2[nfs2::kLink];
  row.linkOpsV3 = v3[nfs3::kLink];
  row.symlinkOpsV2 = v2[nfs2::kSymlink];
  row.symlinkOpsV3 = v3[nfs3::kSymlink];
  row.mkdirOpsV2 = v2[nfs2::kMkdir];
  row.mkdirOpsV3 = v3[nfs3::kMkdir];
  row.rmdirOpsV2 = v2[nfs2::kRmdir];
  row.rmdirOpsV3 = v3[nfs3::kRmdir];
  row.readdirOpsV2 = v2[nfs2::kReaddir];
  row.readdirOpsV3 = v3[nfs3::kReaddir];
  row.accessOpsV3 = v3[nfs3::kAccess];
  row.totalOpsV2 = SumOf(v2);
  row.totalOpsV3 = SumOf(v3);
  CopyWords<Row>(row, wordsV2, source.reservedV2);
  CopyWords<Row>(row, wordsV3, source.reservedV3);
  return row;
}

/// An overview's family; `ratesOperation` names its rate step.
template <class Row>
constexpr IntervalFamily<Row> OverviewFamily(const char* ratesOperation) {
  return {.amend = SubtractCounters<Row>,
          .ratesOperation = ratesOperation,
          .rateFailure = RateFailure::kSkipsRow};
}
/// A detail's family: counters alone.
template <class Row>
constexpr IntervalFamily<Row> DetailFamily() {
  return {.amend = SubtractCounters<Row>};
}

/// The last raw row of one of the records.
template <class Row>
struct NFSState : FamilyState {
  RawRows<Row> rawRows;
};

/// What a builder hands on.
struct NFSBuild {
  const char* name;  ///< in the traces, as in "RecordBuilder::Build_NCO"
  CMBRecordRequestEvent* event;
  CMBRecordRequest* request;
  std::int32_t upTime;  ///< seconds
};

/// Builds the one row from the cumulative figures of `make(now)`, which `derive(row, predecessor,
/// build)` completes. Null, or the error that ends the build, which the caller owns.
template <class Row, class Make, class Derive>
[[nodiscard]] UtlError* BuildNFSRow(const NFSBuild& how, const IntervalFamily<Row>& family,
                                    NFSState<Row>& state, const Make& make, const Derive& derive) {
  TraceEntry(how.name, AddressOf(how.event), AddressOf(how.request));
  const bool first = ClaimUserObject<MyUserObject>(*how.request).first;
  IntervalBuild<Row> build(family, state.rawRows, *how.event, first, how.upTime);
  UtlErrorPtr error =
      build.Add(make(static_cast<std::int32_t>(Os().time(nullptr))),
                [&](Row& row, const Row* predecessor) { derive(row, predecessor, build); });
  RecordBuilder::TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, build.RowCount());
  TraceExit(how.name, error ? 1 : 0);
  return error.release();
}

/// For a row of counters alone.
template <class Row>
void DeriveNothing(Row& /*row*/, const Row* /*predecessor*/, const IntervalBuild<Row>& /*build*/) {}
