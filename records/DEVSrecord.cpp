#include <algorithm>
#include <array>
#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceSummary.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using DisksRecord = recordPI_DEVS;
using DisksRow = DeviceSummaryRow<DisksRecord>;

constexpr std::array kDisksCounts{&DisksRecord::totalIoOps, &DisksRecord::reads,
                                  &DisksRecord::writes, &DisksRecord::seekOps};
constexpr std::array kDisksMbytes{&DisksRecord::ioMbytes};
constexpr std::array<Utime DisksRow::*, 7> kDisksTimes{
    &DisksRow::totalBusyTime,       &DisksRow::totalServiceTime, &DisksRow::totalWaitTime,
    &DisksRow::totalWaitLengthTime, &DisksRow::reservedTime1,    &DisksRow::reservedTime2,
    &DisksRow::reservedTime3};
constexpr auto kDisksRates = RatesOf<RateField, DisksRow>();
constexpr auto kDisksMbyteRates = RatesOf<DoubleRateField, DisksRow>();

bool DisksMovedBackwards(const DisksRecord& row, const DisksRecord& other) {
  return AnyBelow(row, other, kDisksCounts) || AnyBelow(row, other, kDisksMbytes);
}

void SubtractDisks(DisksRow& row, DisksRow& /*raw*/, const DisksRow& previous) {
  if (DisksMovedBackwards(row, previous)) {
    if (AnyBelow(row, previous, kDisksMbytes)) {
      TraceMbytesFell(row.ioMbytes, previous.ioMbytes);
    }
    SetToZero(row, kDisksCounts);
    SetToZero(row, kDisksMbytes);
  } else {
    Subtract(row, previous, kDisksCounts);
    Subtract(row, previous, kDisksMbytes);
  }
  SubtractTimes(row, previous, kDisksTimes);
}

constexpr IntervalFamily<DisksRow> kDisksFamily{
    .counters = {},
    .times = {},
    .rates = kDisksRates,
    .ratesOperation = "RecordBuilder::BuildRatesPI_DEVS",
    .rateFailure = RateFailure::kSkipsRow,
    .amend = SubtractDisks,
    .doubleRates = kDisksMbyteRates,
    .movedBackwards = DisksMovedBackwards};

struct DEVSState : FamilyState {
  RawRows<DisksRow> rawRows;
};

struct MajorRange {
  std::uint32_t first, last;
};
constexpr std::array kDiskMajors{MajorRange{3, 3},   MajorRange{8, 8},    MajorRange{22, 22},
                                 MajorRange{33, 34}, MajorRange{56, 57},  MajorRange{65, 71},
                                 MajorRange{88, 91}, MajorRange{128, 135}};

bool IsDisk(const DeviceIO& device) {
  const auto name = ParseDeviceName(device.GetName());
  return name && std::string_view{device.GetType()} == "disk" &&
         std::any_of(kDiskMajors.begin(), kDiskMajors.end(), [&](const MajorRange& range) {
           return range.first <= name->major && name->major <= range.last;
         });
}

/// The cumulative figures of all disks.
DisksRow SumOfDisks(const std::vector<DeviceIO>& devices, std::int32_t now) {
  DisksRow sum{NewRow<DisksRecord>(now), {}, {}, {}};
  double mbytes = 0.0;
  for (const DeviceIO* device : SortedDevices(devices)) {
    if (IsDisk(*device)) {
      AddDevice(sum, *device);
      AddTo(sum.seekOps, device->reserved1);
      AddTo(sum.totalBusyTime, WholeSeconds(device->busySeconds));
      mbytes += static_cast<double>(device->totalMB);
    }
  }
  sum.ioMbytes = mbytes;
  return sum;
}

}  // namespace

UtlError* RecordBuilder::Build_DEVS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_DEVS", AddressOf(pEvent), AddressOf(pRequest));
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const DisksRow sum =
      SumOfDisks(*m_pCollector->GetDevice(), static_cast<std::int32_t>(Os().time(nullptr)));
  const int count =
      FinishSummary(IntervalBuild<DisksRow>(kDisksFamily, StateOf<DEVSState>().rawRows, *pEvent,
                                            first, GetUpTimeSeconds()),
                    sum, pEvent->IsRealtime() != 0);
  TraceCreated(__FILE__, __LINE__, RecordTraits<DisksRecord>::kName, count);
  TraceExit("RecordBuilder::Build_DEVS", 0);
  return nullptr;
}
