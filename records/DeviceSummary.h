#pragma once

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

/// Percentages and means over the devices, of which there is one at least, for what was done since
/// `base`: the predecessor, or a zero row where the row itself tells it.
template <class Record>
void FillDerived(DeviceSummaryRow<Record>& row, const Record& base) {
  const std::uint32_t ops = CountDelta(row.totalIoOps, base.totalIoOps);
  const tagUTIME service = TimeDelta(row.totalServiceTime, base.totalServiceTime);
  if (ops != 0) {
    row.readOpsPercent = CountPercent(CountDelta(row.reads, base.reads), ops);
    row.writeOpsPercent = CountPercent(CountDelta(row.writes, base.writes), ops);
    row.avgServiceTimePerOp = service / static_cast<double>(ops);
  }
  const double devices = row.devices;
  row.avgServiceTimePerDevice = service / devices;
  row.waitTime = TimeDelta(row.totalWaitTime, base.totalWaitTime) / devices;
  row.waitLengthTime = TimeDelta(row.totalWaitLengthTime, base.totalWaitLengthTime) / devices;
  if constexpr (requires { row.totalBusyTime; }) {
    // The intervals of two rows without rates are their time stamps.
    row.busyPercent = BusyPercent(TimeDelta(row.totalBusyTime, base.totalBusyTime) / devices,
                                  row.interval - base.interval);
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
    if (build.WithRates()) {
      FillDerived(row, Record{});
      return;
    }
    if (realtime) {
      Trace(30, kInformation, "Processing Realtime Request with no rate calculations.");
    }
    if (predecessor != nullptr) {
      FillDerived(row, *predecessor);
    }
  });
  return build.RowCount();
}
