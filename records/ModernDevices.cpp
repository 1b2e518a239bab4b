#include "records/ModernDevices.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "collect/modern/DeviceSource.h"

namespace {

constexpr std::array kOperationCounters{&DiskCounters::reads, &DiskCounters::writes};
constexpr std::array kSectorCounters{&DiskCounters::sectorsRead, &DiskCounters::sectorsWritten};
constexpr std::array kTimeCounters{
    &DiskCounters::readMilliseconds, &DiskCounters::writeMilliseconds,
    &DiskCounters::inUseMilliseconds, &DiskCounters::weightedMilliseconds};

/// The kernel keeps its times in 32 bits of milliseconds, which a busy disk fills in days. A growth
/// of half of them and more is a step back, as of a device that is gone from a sum.
std::uint32_t MillisecondsGrown(std::uint64_t current, std::uint64_t previous) {
  const auto grown = static_cast<std::uint32_t>(current - previous);
  return grown <= std::numeric_limits<std::uint32_t>::max() / 2 ? grown : 0;
}

tagUTIME TimeOf(std::uint64_t milliseconds) {
  return {static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds / 1000)),
          static_cast<std::int32_t>(milliseconds % 1000 * 1000)};
}

std::uint64_t MillisecondsOf(const tagUTIME& time) {
  return std::uint64_t{static_cast<std::uint32_t>(time.seconds)} * 1000 +
         static_cast<std::uint32_t>(time.microseconds) / 1000;
}

template <std::size_t N>
bool AnyFell(const DiskCounters& current, const DiskCounters& previous,
             const std::array<std::uint64_t DiskCounters::*, N>& counters) {
  return std::any_of(counters.begin(), counters.end(),
                     [&](const auto counter) { return current.*counter < previous.*counter; });
}

/// What was counted since `previous`. Counters that start again have counted nothing: operations
/// with their times are one group, sectors another.
DiskCounters GrowthOf(const DiskCounters& current, const DiskCounters& previous) {
  DiskCounters growth;
  growth.inFlight = current.inFlight;
  if (!AnyFell(current, previous, kOperationCounters)) {
    for (const auto counter : kOperationCounters) {
      growth.*counter = current.*counter - previous.*counter;
    }
    for (const auto counter : kTimeCounters) {
      growth.*counter = MillisecondsGrown(current.*counter, previous.*counter);
    }
  }
  if (AnyFell(current, previous, kSectorCounters)) {
    TraceMbytesFell(MbytesOfSectors(current.sectorsRead + current.sectorsWritten),
                    MbytesOfSectors(previous.sectorsRead + previous.sectorsWritten));
  } else {
    for (const auto counter : kSectorCounters) {
      growth.*counter = current.*counter - previous.*counter;
    }
  }
  return growth;
}

/// What was done, of which percentages and averages are made.
struct Work {
  std::uint32_t ops = 0;
  std::uint32_t reads = 0;
  std::uint32_t writes = 0;
  tagUTIME busy;
  tagUTIME wait;
  tagUTIME weighted;
};

tagUTIME TimeGrown(const Utime& current, const Utime& previous) {
  return TimeOf(MillisecondsGrown(MillisecondsOf(current), MillisecondsOf(previous)));
}

/// The kernel's and the agent's clocks may differ by a millisecond, and the agent counts seconds.
float CappedBusyPercent(const tagUTIME& busy, std::uint32_t seconds) {
  return std::min(BusyPercent(busy, seconds), 100.0F);
}

// One device.

using DeviceRecord = recordPI_DEVD;
using CountedDevice = CountedRow<DeviceRecord>;

void PutFigures(CountedDevice& row) {
  const DiskCounters& counters = row.counters;
  row.readOps = static_cast<std::uint32_t>(counters.reads);
  row.writeOps = static_cast<std::uint32_t>(counters.writes);
  row.totalIoOps = static_cast<std::uint32_t>(counters.reads + counters.writes);
  row.queueLength = static_cast<std::uint32_t>(counters.inFlight);
  row.readMbytes = static_cast<float>(MbytesOfSectors(counters.sectorsRead));
  row.writeMbytes = static_cast<float>(MbytesOfSectors(counters.sectorsWritten));
  row.ioMbytes =
      static_cast<float>(MbytesOfSectors(counters.sectorsRead + counters.sectorsWritten));
  row.totalBusyTime = TimeOf(counters.inUseMilliseconds);
  row.totalServiceTime = TimeOf(counters.inUseMilliseconds);
  row.totalWaitTime = TimeOf(counters.readMilliseconds + counters.writeMilliseconds);
  row.waitLengthTime = TimeOf(counters.weightedMilliseconds);
}

CountedDevice RawCountedDevice(const DeviceIO& device, std::int32_t now) {
  CountedDevice row{NewRow<DeviceRecord>(now), device.counters};
  row.deviceName = device.GetName();
  row.deviceType = device.GetType();
  PutFigures(row);
  return row;
}

/// The kernel's own name; what follows may be changed while the device is at work.
std::string_view KernelName(const CountedDevice& row) {
  const std::string_view name = row.deviceName.view();
  return name.substr(0, name.find(' '));
}

bool FellBehind(const DeviceRecord& row, const DeviceRecord& predecessor) {
  constexpr std::array kCounts{&DeviceRecord::readOps, &DeviceRecord::writeOps,
                               &DeviceRecord::totalIoOps};
  constexpr std::array kMbytes{&DeviceRecord::ioMbytes, &DeviceRecord::readMbytes,
                               &DeviceRecord::writeMbytes};
  return AnyBelow(row, predecessor, kCounts) || AnyBelow(row, predecessor, kMbytes);
}

constexpr IntervalFamily<CountedDevice> kCountedDeviceFamily{
    .sameInstance = [](const CountedDevice& a,
                       const CountedDevice& b) { return KernelName(a) == KernelName(b); },
    .amend =
        [](CountedDevice& row, CountedDevice& /*raw*/, const CountedDevice& previous) {
          row.counters = GrowthOf(row.counters, previous.counters);
          PutFigures(row);
        },
    .ratesOperation = "RecordBuilder::BuildRatesPI_DEVD",
    .rateFailure = RateFailure::kSkipsRow,
    .movedBackwards = FellBehind};

Work WorkSince(const DeviceRecord& row, const DeviceRecord* base) {
  constexpr DeviceRecord kNone{};
  const DeviceRecord& before = base == nullptr ? kNone : *base;
  return {.ops = CountDelta(row.totalIoOps, before.totalIoOps),
          .reads = CountDelta(row.readOps, before.readOps),
          .writes = CountDelta(row.writeOps, before.writeOps),
          .busy = TimeGrown(row.totalBusyTime, before.totalBusyTime),
          .wait = TimeGrown(row.totalWaitTime, before.totalWaitTime),
          .weighted = {}};
}

void FillDevice(DeviceRecord& row, const DeviceRecord* base, std::uint32_t seconds) {
  const Work work = WorkSince(row, base);
  if (work.ops != 0) {
    row.readPercent = CountPercent(work.reads, work.ops);
    row.writePercent = CountPercent(work.writes, work.ops);
    row.avgServiceTime = work.busy / static_cast<double>(work.ops);
    row.avgWaitTime = work.wait / static_cast<double>(work.ops);
  }
  row.busyPercent = CappedBusyPercent(work.busy, seconds);
}

// The sum of the physical ones.

using DisksRecord = recordPI_DEVS;

void PutFigures(CountedDisks& row) {
  const DiskCounters& counters = row.counters;
  row.reads = static_cast<std::uint32_t>(counters.reads);
  row.writes = static_cast<std::uint32_t>(counters.writes);
  row.totalIoOps = static_cast<std::uint32_t>(counters.reads + counters.writes);
  row.ioMbytes = MbytesOfSectors(counters.sectorsRead + counters.sectorsWritten);
  row.totalBusyTime = TimeOf(counters.inUseMilliseconds);
  row.totalServiceTime = TimeOf(counters.inUseMilliseconds);
  row.totalWaitTime = TimeOf(counters.readMilliseconds + counters.writeMilliseconds);
  row.totalWaitLengthTime = TimeOf(counters.weightedMilliseconds);
}

bool SumFellBehind(const DisksRecord& row, const DisksRecord& predecessor) {
  constexpr std::array kCounts{&DisksRecord::reads, &DisksRecord::writes, &DisksRecord::totalIoOps};
  return AnyBelow(row, predecessor, kCounts) || row.ioMbytes < predecessor.ioMbytes;
}

constexpr IntervalFamily<CountedDisks> kCountedDisksFamily{
    .amend =
        [](CountedDisks& row, CountedDisks& /*raw*/, const CountedDisks& previous) {
          row.counters = GrowthOf(row.counters, previous.counters);
          PutFigures(row);
        },
    .ratesOperation = "RecordBuilder::BuildRatesPI_DEVS",
    .rateFailure = RateFailure::kSkipsRow,
    .movedBackwards = SumFellBehind};

Work WorkSince(const DisksRecord& row, const DisksRecord* base) {
  constexpr DisksRecord kNone{};
  const DisksRecord& before = base == nullptr ? kNone : *base;
  return {.ops = CountDelta(row.totalIoOps, before.totalIoOps),
          .reads = CountDelta(row.reads, before.reads),
          .writes = CountDelta(row.writes, before.writes),
          .busy = TimeGrown(row.totalBusyTime, before.totalBusyTime),
          .wait = TimeGrown(row.totalWaitTime, before.totalWaitTime),
          .weighted = TimeGrown(row.totalWaitLengthTime, before.totalWaitLengthTime)};
}

/// `row.devices` is not 0.
void FillDisks(DisksRecord& row, const DisksRecord* base, std::uint32_t seconds) {
  const Work work = WorkSince(row, base);
  if (work.ops != 0) {
    row.readOpsPercent = CountPercent(work.reads, work.ops);
    row.writeOpsPercent = CountPercent(work.writes, work.ops);
    row.avgServiceTimePerOp = work.busy / static_cast<double>(work.ops);
  }
  const double devices = row.devices;
  row.avgServiceTimePerDevice = work.busy / devices;
  row.waitTime = work.wait / devices;
  row.waitLengthTime = work.weighted / devices;
  row.busyPercent = CappedBusyPercent(row.avgServiceTimePerDevice, seconds);
}

}  // namespace

const DeviceRules<CountedDevice>& ModernDeviceRules() {
  static constexpr DeviceRules<CountedDevice> kRules{
      .family = kCountedDeviceFamily,
      .isShown = [](const DeviceIO& /*device*/) { return true; },
      .rawRow = RawCountedDevice,
      .fillDerived = FillDevice};
  return kRules;
}

CountedDisks SumOfPhysicalDisks(const std::vector<DeviceIO>& devices, std::int32_t now) {
  CountedDisks sum{NewRow<DisksRecord>(now), {}};
  std::uint32_t count = 0;
  for (const DeviceIO& device : devices) {
    if (device.isPhysical) {
      sum.counters += device.counters;
      ++count;
    }
  }
  sum.devices = count;
  sum.queueLength = count == 0 ? 0U : static_cast<std::uint32_t>(sum.counters.inFlight / count);
  PutFigures(sum);
  return sum;
}

int FinishPhysicalDisks(RawRows<CountedDisks>& rawRows, CMBRecordRequestEvent& event, bool first,
                        std::int32_t upTime, const CountedDisks& sum) {
  if (sum.devices == 0U) {
    return 0;
  }
  IntervalBuild<CountedDisks> build(kCountedDisksFamily, rawRows, event, first, upTime);
  // A row that fails is skipped, so no error comes back.
  (void)build.Add(sum, [&](DisksRecord& row, const DisksRecord* predecessor) {
    if (build.WithRates() || predecessor != nullptr) {
      FillDisks(row, predecessor, DerivedSeconds(row, predecessor));
    }
  });
  return build.RowCount();
}
