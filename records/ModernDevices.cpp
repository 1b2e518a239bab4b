#include "records/ModernDevices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <string_view>
#include <utility>

#include "collect/modern/device/DeviceSource.h"
#include "records/NamedGrowth.h"
#include "support/LowWord.h"

namespace {

constexpr std::array kOperationCounters{&DiskCounters::reads, &DiskCounters::writes};
constexpr std::array kSectorCounters{&DiskCounters::sectorsRead, &DiskCounters::sectorsWritten};
constexpr std::array kTimeCounters{
    &DiskCounters::readMilliseconds, &DiskCounters::writeMilliseconds,
    &DiskCounters::inUseMilliseconds, &DiskCounters::weightedMilliseconds};

/// Of a word of 32 bits that wraps. A growth of half of it and more is a step back.
bool Fell(std::uint32_t current, std::uint32_t previous) {
  return current - previous > std::numeric_limits<std::uint32_t>::max() / 2;
}

std::uint32_t CountGrown(std::uint32_t current, std::uint32_t previous) {
  return Fell(current, previous) ? 0 : current - previous;
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
  std::uint64_t ops = 0;
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
  tagUTIME busy;
  tagUTIME wait;
  tagUTIME weighted;
};

/// All that a row counts: since boot or, in an interval, what it grew by.
Work WorkOf(const DiskCounters& counters) {
  return {.ops = counters.reads + counters.writes,
          .reads = counters.reads,
          .writes = counters.writes,
          .busy = TimeOf(counters.inUseMilliseconds),
          .wait = TimeOf(counters.readMilliseconds + counters.writeMilliseconds),
          .weighted = TimeOf(counters.weightedMilliseconds)};
}

tagUTIME TimeGrown(const tagUTIME& current, const tagUTIME& previous) {
  return TimeOf(MillisecondsGrown(MillisecondsOf(current), MillisecondsOf(previous)));
}

/// The words of a record that tell of its work.
struct WorkWords {
  std::uint32_t reads;
  std::uint32_t writes;
  tagUTIME busy;
  tagUTIME wait;
  tagUTIME weighted;
};
WorkWords WordsOf(const recordPI_DEVD& row) {
  return {row.readOps, row.writeOps, row.totalBusyTime, row.totalWaitTime, row.waitLengthTime};
}
WorkWords WordsOf(const recordPI_DEVS& row) {
  return {row.reads, row.writes, row.totalBusyTime, row.totalWaitTime, row.totalWaitLengthTime};
}

Work WorkSince(const WorkWords& now, const WorkWords& before) {
  const std::uint64_t reads = CountGrown(now.reads, before.reads);
  const std::uint64_t writes = CountGrown(now.writes, before.writes);
  return {.ops = reads + writes,
          .reads = reads,
          .writes = writes,
          .busy = TimeGrown(now.busy, before.busy),
          .wait = TimeGrown(now.wait, before.wait),
          .weighted = TimeGrown(now.weighted, before.weighted)};
}

/// What the row has done since its base; all that it counts without one.
template <class Record>
Work WorkOfRow(const CountedRow<Record>& row, const Record* base) {
  return base == nullptr ? WorkOf(row.counters) : WorkSince(WordsOf(row), WordsOf(*base));
}

/// The totals that both records call by one name.
template <class Record>
void PutTotals(CountedRow<Record>& row) {
  const DiskCounters& counters = row.counters;
  row.totalIoOps = LowWord(counters.reads + counters.writes);
  row.totalBusyTime = TimeOf(counters.inUseMilliseconds);
  row.totalServiceTime = TimeOf(counters.inUseMilliseconds);
  row.totalWaitTime = TimeOf(counters.readMilliseconds + counters.writeMilliseconds);
}

/// The kernel's and the agent's clocks may differ by a millisecond, and the agent counts seconds.
float CappedBusyPercent(const tagUTIME& busy, std::uint32_t seconds) {
  return std::min(BusyPercent(busy, seconds), 100.0F);
}

// One device.

using DeviceRecord = recordPI_DEVD;
using CountedDevice = CountedRow<DeviceRecord>;

void PutFigures(CountedDevice& row) {
  PutTotals(row);
  const DiskCounters& counters = row.counters;
  row.readOps = LowWord(counters.reads);
  row.writeOps = LowWord(counters.writes);
  row.queueLength = LowWord(counters.inFlight);
  row.readMbytes = static_cast<float>(MbytesOfSectors(counters.sectorsRead));
  row.writeMbytes = static_cast<float>(MbytesOfSectors(counters.sectorsWritten));
  row.ioMbytes =
      static_cast<float>(MbytesOfSectors(counters.sectorsRead + counters.sectorsWritten));
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

/// Whether a disk has started again. Its Mbytes tell, which don't wrap; one that has moved more
/// since than before is found by its counts.
bool FellBehind(const DeviceRecord& row, const DeviceRecord& predecessor) {
  constexpr std::array kMbytes{&DeviceRecord::ioMbytes, &DeviceRecord::readMbytes,
                               &DeviceRecord::writeMbytes};
  return AnyBelow(row, predecessor, kMbytes) || Fell(row.readOps, predecessor.readOps) ||
         Fell(row.writeOps, predecessor.writeOps);
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
    .movedBackwards = FellBehind,
    .forgetsAfter = 1};

void FillDevice(CountedDevice& row, const DeviceRecord* base, std::uint32_t seconds) {
  const Work work = WorkOfRow(row, base);
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
  PutTotals(row);
  const DiskCounters& counters = row.counters;
  row.reads = LowWord(counters.reads);
  row.writes = LowWord(counters.writes);
  row.ioMbytes = MbytesOfSectors(counters.sectorsRead + counters.sectorsWritten);
  row.totalWaitLengthTime = TimeOf(counters.weightedMilliseconds);
}

bool SumFellBehind(const DisksRecord& row, const DisksRecord& predecessor) {
  return row.ioMbytes < predecessor.ioMbytes || Fell(row.reads, predecessor.reads) ||
         Fell(row.writes, predecessor.writes);
}

constexpr IntervalFamily<CountedDisks> kCountedDisksFamily{
    .amend =
        [](CountedDisks& row, CountedDisks& raw, const CountedDisks& previous) {
          row.counters = SumOfGrowths<NamedDisk>(raw.disks, previous.disks, GrowthOf);
          PutFigures(row);
        },
    .ratesOperation = "RecordBuilder::BuildRatesPI_DEVS",
    .rateFailure = RateFailure::kSkipsRow,
    .movedBackwards = SumFellBehind};

/// `row.devices` is not 0.
void FillDisks(CountedDisks& row, const DisksRecord* base, std::uint32_t seconds) {
  const Work work = WorkOfRow(row, base);
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

std::uint64_t MillisecondsGrown(std::uint64_t current, std::uint64_t previous) {
  return current >= previous ? current - previous
                             : CountGrown(static_cast<std::uint32_t>(current),
                                          static_cast<std::uint32_t>(previous));
}

const DeviceRules<CountedDevice>& ModernDeviceRules() {
  static constexpr DeviceRules<CountedDevice> kRules{
      .family = kCountedDeviceFamily,
      .isShown = [](const DeviceIO& /*device*/) { return true; },
      .rawRow = RawCountedDevice,
      .fillDerived = FillDevice};
  return kRules;
}

CountedDisks SumOfPhysicalDisks(const std::vector<DeviceIO>& devices, std::int32_t now) {
  CountedDisks sum{{NewRow<DisksRecord>(now), {}}, {}};
  for (const DeviceIO* device : SortedDevices(devices)) {
    if (device->isPhysical) {
      sum.counters += device->counters;
      sum.disks.push_back({device->x_deviceio::name, device->counters});
    }
  }
  const std::size_t count = sum.disks.size();
  sum.devices = static_cast<std::uint32_t>(count);
  sum.queueLength = count == 0 ? 0U : static_cast<std::uint32_t>(sum.counters.inFlight / count);
  PutFigures(sum);
  return sum;
}

int FinishPhysicalDisks(RawRows<CountedDisks>& rawRows, CMBRecordRequestEvent& event, bool first,
                        std::int32_t upTime, CountedDisks sum) {
  if (sum.devices == 0U) {
    return 0;
  }
  IntervalBuild<CountedDisks> build(kCountedDisksFamily, rawRows, event, first, upTime);
  // A row that fails is skipped, so no error comes back.
  (void)build.Add(std::move(sum), [&](CountedDisks& row, const DisksRecord* predecessor) {
    if (build.WithRates() || predecessor != nullptr) {
      FillDisks(row, predecessor, DerivedSeconds(row, predecessor));
    }
  });
  return build.RowCount();
}
