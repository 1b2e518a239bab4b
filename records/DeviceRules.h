#pragma once

#include <cstdint>
#include <vector>

#include "records/DeviceRows.h"
#include "records/IntervalEngine.h"

/// What a host profile makes of a device.
template <class Row>
struct DeviceRules {
  const IntervalFamily<Row>& family;
  /// Whether the device has a row.
  bool (*isShown)(const DeviceIO& device);
  /// A row with the device's cumulative figures.
  Row (*rawRow)(const DeviceIO& device, std::int32_t now);
  /// Fills percentages and averages of what was done in `seconds` since `base`; without one the row
  /// itself tells it.
  void (*fillDerived)(Row& row, const recordPI_DEVD* base, std::uint32_t seconds);
};

/// Builds a row of each device; returns how many were output.
template <class Row>
[[nodiscard]] int BuildDevices(const DeviceRules<Row>& rules, RawRows<Row>& rawRows,
                               CMBRecordRequestEvent& event, bool first, std::int32_t upTime,
                               const std::vector<DeviceIO>& devices, std::int32_t now) {
  IntervalBuild<Row> build(rules.family, rawRows, event, first, upTime);
  for (const DeviceIO* device : SortedDevices(devices)) {
    if (!rules.isShown(*device)) {
      continue;
    }
    // A row that fails is skipped, so no error comes back.
    (void)build.Add(rules.rawRow(*device, now), [&](Row& row, const recordPI_DEVD* predecessor) {
      if (build.WithRates() || predecessor != nullptr) {
        rules.fillDerived(row, predecessor, DerivedSeconds(row, predecessor));
      }
    });
  }
  return build.OutputCount();
}
