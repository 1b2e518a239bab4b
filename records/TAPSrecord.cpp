#include <array>
#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceSummary.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using TapesRecord = recordPI_TAPS;
using TapesRow = DeviceSummaryRow<TapesRecord>;

constexpr std::array kTapesCounts{&TapesRecord::totalIoOps, &TapesRecord::reads,
                                  &TapesRecord::writes, &TapesRecord::ioMbytes};
constexpr std::array<Utime TapesRow::*, 6> kTapesTimes{
    &TapesRow::totalServiceTime, &TapesRow::totalWaitTime, &TapesRow::totalWaitLengthTime,
    &TapesRow::reservedTime1,    &TapesRow::reservedTime2, &TapesRow::reservedTime3};
constexpr auto kTapesRates = RatesOf<RateField, TapesRow>();

bool TapesMovedBackwards(const TapesRecord& row, const TapesRecord& other) {
  return AnyBelow(row, other, kTapesCounts);
}

void SubtractTapes(TapesRow& row, TapesRow& /*raw*/, const TapesRow& previous) {
  if (TapesMovedBackwards(row, previous)) {
    if (row.ioMbytes < previous.ioMbytes) {
      TraceMbytesFell(row.ioMbytes, previous.ioMbytes);
    }
    SetToZero(row, kTapesCounts);
  } else {
    Subtract(row, previous, kTapesCounts);
  }
  SubtractTimes(row, previous, kTapesTimes);
}

constexpr IntervalFamily<TapesRow> kTapesFamily{
    .counters = {},
    .times = {},
    .rates = kTapesRates,
    .ratesOperation = "RecordBuilder::BuildRatesPI_TAPS",
    .rateFailure = RateFailure::kSkipsRow,
    .amend = SubtractTapes,
    .movedBackwards = TapesMovedBackwards};

struct TAPSState : FamilyState {
  RawRows<TapesRow> rawRows;
};

/// The cumulative figures of all tape devices.
TapesRow SumOfTapes(const std::vector<DeviceIO>& devices, std::int32_t now) {
  TapesRow sum{NewRow<TapesRecord>(now), {}, {}, {}};
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
  const TapesRow sum =
      SumOfTapes(*m_pCollector->GetDevice(), static_cast<std::int32_t>(Os().time(nullptr)));
  const int count =
      FinishSummary(IntervalBuild<TapesRow>(kTapesFamily, StateOf<TAPSState>().rawRows, *pEvent,
                                            first, GetUpTimeSeconds()),
                    sum, pEvent->IsRealtime() != 0);
  TraceCreated(__FILE__, __LINE__, RecordTraits<TapesRecord>::kName, count);
  TraceExit("RecordBuilder::Build_TAPS", 0);
  return nullptr;
}
