#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "collect/device/DeviceSourceLINUX.h"

// The block devices of the host, from /proc/diskstats and /sys/block.

/// What a line of /proc/diskstats has besides DiskCounters; counts since boot.
struct DiskExtras {
  std::uint64_t readsMerged = 0;
  std::uint64_t writesMerged = 0;
  std::uint64_t discards = 0;
  std::uint64_t discardsMerged = 0;
  std::uint64_t sectorsDiscarded = 0;  ///< of 512 bytes
  std::uint64_t discardMilliseconds = 0;
  std::uint64_t flushes = 0;
  std::uint64_t flushMilliseconds = 0;

  DiskExtras& operator+=(const DiskExtras& extras);
};

/// One line of /proc/diskstats; the name stays in the text.
struct DiskstatsLine {
  /// So many figures stand behind the name: of reads, writes and times in each kernel, with
  /// discards since 4.18, with flushes since 5.5.
  static constexpr std::size_t kUsualFigures = 11;
  static constexpr std::size_t kFiguresWithDiscards = 15;
  static constexpr std::size_t kFiguresWithFlushes = 17;

  std::string_view name;
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  DiskCounters counters;
  DiskExtras extras;
  std::size_t figures = 0;  ///< how many the line has, in its order; the others are 0
  bool isComplete = false;  ///< whether it has the usual ones
};

/// Takes a line. False, and nothing of use in `out`, without two numbers and a name of at most 63
/// letters.
[[nodiscard]] bool ParseDiskstatsLine(std::string_view line, DiskstatsLine& out);
/// All lines of the file's text that can be taken, in its order.
[[nodiscard]] std::vector<DiskstatsLine> ParseDiskstats(std::string_view text);

/// The device that a partition of this name would be of, by the kernel's rule: "sda" for "sda1",
/// "nvme0n1" for "nvme0n1p1". A part of `name`; empty if no partition can have that name.
[[nodiscard]] std::string_view PartitionedName(std::string_view name);
/// The device that is reached by the path "nvme0c1n1" of NVMe multipath: "nvme0n1"; empty for any
/// other name. The kernel hides each path and counts its operations once more.
[[nodiscard]] std::string MultipathName(std::string_view name);
/// Whether the device is memory or a file: loop, ram, zram.
[[nodiscard]] bool IsPseudoDisk(std::string_view name);
/// Whether the device hands its operations on to others of this host: dm, md and their kin.
[[nodiscard]] bool IsStackedDisk(std::string_view name);

/// A whole device.
struct BlockDevice {
  std::string name;  ///< the kernel's
  DiskCounters counters;
  bool isPhysical = false;
};

/// Calls `visit` for the line of each whole device, in the kernel's order; the line lives for the
/// call. No partition, no loop, ram and zram device; paths of NVMe multipath count as the device
/// that they lead to, by the figures of that one unless it has none, as on older kernels. What
/// /sys/block names is whole; on a captured host without it, what can't be a partition of another
/// device of the file.
void ForEachWholeDisk(const std::function<void(const DiskstatsLine& line)>& visit);
/// Whether the device has read or written since boot.
[[nodiscard]] inline bool HasDoneIo(const DiskCounters& counters) {
  return counters.reads != 0 || counters.writes != 0;
}
/// The whole devices that have done I/O since boot, as ForEachWholeDisk() finds them.
[[nodiscard]] std::vector<BlockDevice> ReadBlockDevices();

/// The name of a device's folder in /sys/block: /proc may name a device "cciss/c0d0", whose folder
/// is "cciss!c0d0".
[[nodiscard]] std::string BlockFolderName(std::string_view device);
/// The place of a device's attribute, such as "queue/rotational", below /sys.
[[nodiscard]] std::string BlockAttributePath(std::string_view device, std::string_view attribute);

struct PhysicalOps {
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
};
/// The operations of all physical devices since boot: what goes through a device of devices is
/// counted where it ends.
[[nodiscard]] PhysicalOps ReadPhysicalOps();
/// The same of rows that ModernDeviceSource has read.
[[nodiscard]] PhysicalOps PhysicalOpsOf(const std::vector<DeviceIO>& devices);
