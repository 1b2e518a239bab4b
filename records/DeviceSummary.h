#pragma once

#include <array>
#include <cstdint>

#include "records/DeviceRows.h"
#include "records/IntervalEngine.h"

// What the two records that sum devices have in common.

/// A row on its way: the record, and three times that the record has no field for.
template <class Record>
struct DeviceSummaryRow : Record {
  using PublishedRecord = Record;
  Utime reservedTime1;
  Utime reservedTime2;
  Utime reservedTime3;
};
static_assert(sizeof(DeviceSummaryRow<recordPI_DEVS>) == 164);
static_assert(sizeof(DeviceSummaryRow<recordPI_TAPS>) == 144);

template <class Value>
void AddTo(Packed<Value>& sum, Value value) {
  sum = static_cast<Value>(sum) + value;
}

/// Counts the device, with the figures that both records sum.
template <class Record>
void AddDevice(DeviceSummaryRow<Record>& row, const DeviceIO& device) {
  AddTo(row.devices, 1U);
  AddTo(row.reads, device.readOps);
  AddTo(row.writes, device.writeOps);
  AddTo(row.totalIoOps, device.totalOps);
  AddTo(row.queueLength, device.queueLength);
  AddTo(row.totalServiceTime, WholeSeconds(device.busySeconds));
  AddTo(row.totalWaitTime, WholeSeconds(device.serviceSeconds));
  AddTo(row.totalWaitLengthTime, WholeSeconds(device.queueSeconds));
  AddTo(row.reservedTime1, WholeSeconds(device.reserved4));
  AddTo(row.reservedTime2, WholeSeconds(device.reserved6));
}

/// What must not fall from one row to the next but the Mbytes, whose type differs.
template <class Record>
constexpr auto SummaryCounts() {
  if constexpr (requires { &Record::seekOps; }) {
    return std::array{&Record::totalIoOps, &Record::reads, &Record::writes, &Record::seekOps};
  } else {
    return std::array{&Record::totalIoOps, &Record::reads, &Record::writes};
  }
}
template <class Record>
inline constexpr auto kSummaryCounts = SummaryCounts<Record>();

template <class Record>
bool SummaryMovedBackwards(const Record& row, const Record& other) {
  return AnyBelow(row, other, kSummaryCounts<Record>) || row.ioMbytes < other.ioMbytes;
}

/// Counts and Mbytes are one group: one that went backwards makes all of them zero.
template <class Record>
void SubtractSummary(DeviceSummaryRow<Record>& row, DeviceSummaryRow<Record>& /*raw*/,
                     const DeviceSummaryRow<Record>& previous) {
  using Row = DeviceSummaryRow<Record>;
  constexpr std::array<Utime Row::*, 6> kTimes{&Row::totalServiceTime,    &Row::totalWaitTime,
                                               &Row::totalWaitLengthTime, &Row::reservedTime1,
                                               &Row::reservedTime2,       &Row::reservedTime3};
  if (SummaryMovedBackwards<Record>(row, previous)) {
    if (row.ioMbytes < previous.ioMbytes) {
      TraceMbytesFell(row.ioMbytes, previous.ioMbytes);
    }
    SetToZero(row, kSummaryCounts<Record>);
    row.ioMbytes = 0;
  } else {
    Subtract(row, previous, kSummaryCounts<Record>);
    row.ioMbytes = row.ioMbytes - previous.ioMbytes;
  }
  SubtractTimes(row, previous, kTimes);
  if constexpr (requires { row.totalBusyTime; }) {
    row.totalBusyTime = TimeGrowth(row.totalBusyTime, previous.totalBusyTime);
  }
}

/// The record's family; `ratesOperation` names its rate step.
template <class Record>
constexpr IntervalFamily<DeviceSummaryRow<Record>> SummaryFamily(const char* ratesOperation) {
  return {.amend = SubtractSummary<Record>,
          .ratesOperation = ratesOperation,
          .rateFailure = RateFailure::kSkipsRow,
          .movedBackwards = SummaryMovedBackwards<Record>};
}

/// Percentages and means over the devices, of which there is one at least, for what was done in
/// `seconds` since `base`; without one the row itself tells it.
template <class Record>
void FillDerived(DeviceSummaryRow<Record>& row, const Record* base, std::uint32_t seconds) {
  const std::uint32_t ops = GrowthSince(row, base, &Record::totalIoOps);
  const tagUTIME service = GrowthSince(row, base, &Record::totalServiceTime);
  if (ops != 0) {
    row.readOpsPercent = CountPercent(GrowthSince(row, base, &Record::reads), ops);
    row.writeOpsPercent = CountPercent(GrowthSince(row, base, &Record::writes), ops);
    row.avgServiceTimePerOp = service / static_cast<double>(ops);
  }
  const double devices = row.devices;
  row.avgServiceTimePerDevice = service / devices;
  row.waitTime = GrowthSince(row, base, &Record::totalWaitTime) / devices;
  row.waitLengthTime = GrowthSince(row, base, &Record::totalWaitLengthTime) / devices;
  if constexpr (requires { row.totalBusyTime; }) {
    row.busyPercent =
        BusyPercent(GrowthSince(row, base, &Record::totalBusyTime) / devices, seconds);
  }
}

/// Takes the summed row through the engine. Returns how many rows were processed: 0 without a
/// device, or for a row that had to be skipped.
template <class Record>
[[nodiscard]] int FinishSummary(IntervalBuild<DeviceSummaryRow<Record>>&& build,
                                const DeviceSummaryRow<Record>& sum, bool realtime) {
  if (sum.devices == 0U) {
    return 0;
  }
  // A row that fails is skipped, so no error comes back.
  (void)build.Add(sum, [&](DeviceSummaryRow<Record>& row, const Record* predecessor) {
    row.queueLength = row.queueLength / row.devices;
    row.reservedTime1 = row.reservedTime1 / static_cast<double>(row.devices);
    row.reservedTime2 = row.reservedTime2 / static_cast<double>(row.devices);
    if (realtime && !build.WithRates()) {
      Trace(30, kInformation, "Processing Realtime Request with no rate calculations.");
    }
    if (build.WithRates() || predecessor != nullptr) {
      FillDerived<Record>(row, predecessor, DerivedSeconds(row, predecessor));
    }
  });
  return build.RowCount();
}
