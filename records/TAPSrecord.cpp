#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceSummary.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using TapesRecord = recordPI_TAPS;
using TapesRow = DeviceSummaryRow<TapesRecord>;

constexpr auto kTapesFamily = SummaryFamily<TapesRecord>("RecordBuilder::BuildRatesPI_TAPS");

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
