#include <array>
#include <string_view>

#include "collect/Collector.h"
#include "records/DeviceRows.h"
#include "records/DeviceRules.h"
#include "records/IntervalEngine.h"
#include "records/ModernDevices.h"
#include "records/RecordBuilder.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"

namespace {

/// A row on its way: the record, and two times of the source that the record has no field for.
struct DeviceRow : recordPI_DEVD {
  using PublishedRecord = recordPI_DEVD;
  Utime reservedTime1;
  Utime reservedTime2;
};
static_assert(sizeof(DeviceRow) == 185);

using DeviceRecord = recordPI_DEVD;

constexpr std::array kDeviceCounts{&DeviceRecord::readOps, &DeviceRecord::writeOps,
                                   &DeviceRecord::totalIoOps, &DeviceRecord::seekOps};
constexpr std::array kDeviceMbytes{&DeviceRecord::ioMbytes, &DeviceRecord::readMbytes,
                                   &DeviceRecord::writeMbytes};
constexpr std::array kComparedDeviceTimes{
    &DeviceRecord::totalServiceTime, &DeviceRecord::totalWaitTime, &DeviceRecord::waitLengthTime};
constexpr std::array<Utime DeviceRow::*, 6> kDeviceTimes{
    &DeviceRow::totalServiceTime, &DeviceRow::totalWaitTime, &DeviceRow::waitLengthTime,
    &DeviceRow::reservedTime1,    &DeviceRow::reservedTime2, &DeviceRow::totalBusyTime};

/// Counts and Mbytes each are a group: one that went backwards makes all of its group zero.
void SubtractDevice(DeviceRow& row, DeviceRow& /*raw*/, const DeviceRow& previous) {
  if (AnyBelow(row, previous, kDeviceCounts)) {
    SetToZero(row, kDeviceCounts);
  } else {
    Subtract(row, previous, kDeviceCounts);
  }
  if (AnyBelow(row, previous, kDeviceMbytes)) {
    TraceMbytesFell(static_cast<double>(row.ioMbytes), static_cast<double>(previous.ioMbytes));
    SetToZero(row, kDeviceMbytes);
  } else {
    Subtract(row, previous, kDeviceMbytes);
  }
  SubtractTimes(row, previous, kDeviceTimes);
}

bool DeviceMovedBackwards(const DeviceRecord& row, const DeviceRecord& predecessor) {
  return AnyBelow(row, predecessor, kDeviceCounts) || AnyBelow(row, predecessor, kDeviceMbytes) ||
         AnyBelow(row, predecessor, kComparedDeviceTimes);
}

constexpr IntervalFamily<DeviceRow> kDeviceFamily{
    .sameInstance = [](const DeviceRow& a,
                       const DeviceRow& b) { return a.deviceName == b.deviceName; },
    .amend = SubtractDevice,
    .ratesOperation = "RecordBuilder::BuildRatesPI_DEVD",
    .rateFailure = RateFailure::kSkipsRow,
    .movedBackwards = DeviceMovedBackwards};

/// On the newest kernels the device is known by the word after its numbers; empty for none.
std::string_view NameOf(const DeviceIO& device) {
  const std::string_view name = device.GetName();
  if (g_kernelVariant != kNewestKernel) {
    return name;
  }
  const auto parts = ParseDeviceName(name);
  return parts ? parts->disk : std::string_view{};
}

/// A row with the device's cumulative figures.
DeviceRow RawDeviceRow(const DeviceIO& device, std::int32_t now) {
  DeviceRow row{NewRow<DeviceRecord>(now), {}, {}};
  row.deviceName = NameOf(device);
  row.deviceType = device.GetType();
  row.readOps = device.readOps;
  row.writeOps = device.writeOps;
  row.totalIoOps = device.totalOps;
  row.seekOps = device.reserved1;
  row.queueLength = device.queueLength;
  row.ioMbytes = device.totalMB;
  row.readMbytes = device.readMB;
  row.writeMbytes = device.writeMB;
  row.totalServiceTime = WholeSeconds(device.busySeconds);
  row.totalBusyTime = WholeSeconds(device.busySeconds);
  row.totalWaitTime = WholeSeconds(device.serviceSeconds);
  row.waitLengthTime = WholeSeconds(device.queueSeconds);
  row.reservedTime1 = WholeSeconds(device.reserved4);
  row.reservedTime2 = WholeSeconds(device.reserved6);
  return row;
}

/// Percentages and averages of what was done in `seconds` since `base`; without one the row itself
/// tells it.
void FillDerived(DeviceRow& row, const DeviceRecord* base, std::uint32_t seconds) {
  const std::uint32_t ops = GrowthSince(row, base, &DeviceRecord::totalIoOps);
  if (ops != 0) {
    const auto divisor = static_cast<double>(ops);
    row.readPercent = CountPercent(GrowthSince(row, base, &DeviceRecord::readOps), ops);
    row.writePercent = CountPercent(GrowthSince(row, base, &DeviceRecord::writeOps), ops);
    const auto before =
        base == nullptr ? tagUTIME{} : static_cast<tagUTIME>(base->totalServiceTime);
    row.avgServiceTime = (row.totalServiceTime - before) / divisor;
    row.avgWaitTime = GrowthSince(row, base, &DeviceRecord::totalWaitTime) / divisor;
  }
  row.busyPercent = BusyPercent(GrowthSince(row, base, &DeviceRecord::totalBusyTime), seconds);
}

constexpr DeviceRules<DeviceRow> kClassicDeviceRules{
    .family = kDeviceFamily,
    .isShown =
        [](const DeviceIO& device) {
          return g_kernelVariant != kNewestKernel || !NameOf(device).empty();
        },
    .rawRow = RawDeviceRow,
    .fillDerived = FillDerived};

struct DEVDState : FamilyState {
  RawRows<DeviceRow> rawRows;
  RawRows<CountedRow<DeviceRecord>> countedRows;
};

}  // namespace

UtlError* RecordBuilder::Build_DEVD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_DEVD", AddressOf(pEvent), AddressOf(pRequest));
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  auto& state = StateOf<DEVDState>();
  const auto build = [&](const auto& rules, auto& rawRows) {
    return BuildDevices(rules, rawRows, *pEvent, first, GetUpTimeSeconds(),
                        *m_pCollector->GetDevice(), now);
  };
  const int count = g_hostProfile == HostProfile::kModern
                        ? build(ModernDeviceRules(), state.countedRows)
                        : build(kClassicDeviceRules, state.rawRows);
  TraceCreated(__FILE__, __LINE__, RecordTraits<DeviceRecord>::kName, count);
  TraceExit("RecordBuilder::Build_DEVD", 0);
  return nullptr;
}
