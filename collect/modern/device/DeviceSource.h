#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "collect/modern/device/BlockDevices.h"

/// Reads one row per whole block device that has done I/O since boot, as ReadBlockDevices() finds
/// them. The name is the kernel's, for a device of the device mapper with its own name behind it,
/// as in "dm-0 vg-root"; the type is "disk", "ssd", "dm", "md" or "cdrm". Counts are the low 32
/// bits of the kernel's. A host without block devices has no rows, which is no failure.
class ModernDeviceSource : public PtrSource<DeviceIO, DeviceIO, std::vector<DeviceIO>> {
 public:
  ModernDeviceSource();
  ~ModernDeviceSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(DeviceIO* record) override;

 private:
  inline static SourceStatistics s_statistics;

  std::vector<BlockDevice> m_devices;
  std::size_t m_index = 0;
};

/// Mbytes of 1048576 bytes.
[[nodiscard]] inline double MbytesOfSectors(std::uint64_t sectors) {
  return static_cast<double>(sectors) / 2048.0;
}
