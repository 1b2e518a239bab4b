#pragma once

#include <cstdint>
#include <vector>

#include "collect/device/DeviceSourceLINUX.h"
#include "records/DeviceRules.h"
#include "records/IntervalEngine.h"
#include "records/RecordStructures.h"

// The rules of the records of devices under the profile `modern`: names and kinds as the kernel has
// them, and differences of its counters in full, before they become a record's words.

/// A row on its way: the record, and the counters that its figures come from.
template <class Record>
struct CountedRow : Record {
  using PublishedRecord = Record;
  DiskCounters counters;
};

/// What a time of a disk has grown by. The kernel keeps it in 32 bits of milliseconds, which a busy
/// disk fills in days, in hours where many operations at once add up: what is less than before has
/// wrapped, alone or in a sum, unless it fell by less than half of that. No rise is too large,
/// since a sum over many disks and operations grows by more than the time that goes by.
[[nodiscard]] std::uint64_t MillisecondsGrown(std::uint64_t current, std::uint64_t previous);

[[nodiscard]] const DeviceRules<CountedRow<recordPI_DEVD>>& ModernDeviceRules();

/// What a disk has counted since boot.
struct NamedDisk {
  decltype(x_deviceio::name) name{};
  DiskCounters counters;
};
/// The sum of disks and its parts: differences are taken disk by disk, so that one that goes or
/// starts again takes nothing from the others' growth.
struct CountedDisks : CountedRow<recordPI_DEVS> {
  std::vector<NamedDisk> disks;  ///< ascending by name
};
/// The cumulative figures of all physical devices.
[[nodiscard]] CountedDisks SumOfPhysicalDisks(const std::vector<DeviceIO>& devices,
                                              std::int32_t now);
/// Takes the summed row through the engine. Returns how many rows were processed: 0 without a
/// device, or for a row that had to be skipped.
[[nodiscard]] int FinishPhysicalDisks(RawRows<CountedDisks>& rawRows, CMBRecordRequestEvent& event,
                                      bool first, std::int32_t upTime, CountedDisks sum);
