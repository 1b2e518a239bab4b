#include <array>
#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceSummary.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using Record = recordPI_TAPS;
using Row = DeviceSummaryRow<Record>;

constexpr std::array kCounts{&Record::totalIoOps, &Record::reads, &Record::writes,
                             &Record::ioMbytes};
constexpr std::array<Utime Row::*, 6> kTimes{&Row::totalServiceTime,    &Row::totalWaitTime,
                                             &Row::totalWaitLengthTime, &Row::reservedTime1,
                                             &Row::reservedTime2,       &Row::reservedTime3};
constexpr auto kRates = RatesOf<RateField, Row>();

bool MovedBackwards(const Record& row, const Record& other) {
  return AnyBelow(row, other, kCounts);
}

void SubtractPrevious(Row& row, Row& /*raw*/, const Row& previous) {
  if (MovedBackwards(row, previous)) {
    if (row.ioMbytes < previous.ioMbytes) {
      TraceMbytesFell(row.ioMbytes, previous.ioMbytes);
    }
    SetToZero(row, kCounts);
  } else {
    Subtract(row, previous, kCounts);
  }
  SubtractTimes(row, previous, kTimes);
}

constexpr IntervalFamily<Row> kFamily{.counters = {},
                                      .times = {},
                                      .rates = kRates,
                                      .ratesOperation = "RecordBuilder::BuildRatesPI_TAPS",
                                      .rateFailure = RateFailure::kSkipsRow,
                                      .amend = SubtractPrevious,
                                      .movedBackwards = MovedBackwards};

struct TAPSState : FamilyState {
  RawRows<Row> rawRows;
};

/// The cumulative figures of all tape devices.
Row SumOfTapes(const std::vector<DeviceIO>& devices, std::int32_t now) {
  Row sum{NewRow<Record>(now), {}, {}, {}};
  float mbytes = 0.0F;
  for (const DeviceIO* device : SortedDevices(devices)) {
    if (ParseDeviceName(device->GetName()) && std::string_view{device->GetType()} == "tape") {
      AddDevice(sum, *device);
      mbytes += device->totalMB;
    }
  }
  sum.ioMbytes = WholeMbytes(static_cast<double>(mbytes));
  return sum;
}

}  // namespace

UtlError* RecordBuilder::Build_TAPS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_TAPS", AddressOf(pEvent), AddressOf(pRequest));
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const Row sum =
      SumOfTapes(*m_pCollector->GetDevice(), static_cast<std::int32_t>(Os().time(nullptr)));
  const int count = FinishSummary(
      IntervalBuild<Row>(kFamily, StateOf<TAPSState>().rawRows, *pEvent, first, GetUpTimeSeconds()),
      sum, pEvent->IsRealtime() != 0);
  TraceCreated(__FILE__, __LINE__, RecordTraits<Record>::kName, count);
  TraceExit("RecordBuilder::Build_TAPS", 0);
  return nullptr;
}
