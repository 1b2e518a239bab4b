#include <algorithm>
#include <array>
#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceSummary.h"
#include "records/ModernDevices.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"

namespace {

using DisksRecord = recordPI_DEVS;
using DisksRow = DeviceSummaryRow<DisksRecord>;

constexpr auto kDisksFamily = SummaryFamily<DisksRecord>("RecordBuilder::BuildRatesPI_DEVS");

struct DEVSState : FamilyState {
  RawRows<DisksRow> rawRows;
  RawRows<CountedDisks> countedRows;
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
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const std::vector<DeviceIO>& devices = *m_pCollector->GetDevice();
  auto& state = StateOf<DEVSState>();
  const int count = g_hostProfile == HostProfile::kModern
                        ? FinishPhysicalDisks(state.countedRows, *pEvent, first, GetUpTimeSeconds(),
                                              SumOfPhysicalDisks(devices, now))
                        : FinishSummary(IntervalBuild<DisksRow>(kDisksFamily, state.rawRows,
                                                                *pEvent, first, GetUpTimeSeconds()),
                                        SumOfDisks(devices, now), pEvent->IsRealtime() != 0);
  TraceCreated(__FILE__, __LINE__, RecordTraits<DisksRecord>::kName, count);
  TraceExit("RecordBuilder::Build_DEVS", 0);
  return nullptr;
}
