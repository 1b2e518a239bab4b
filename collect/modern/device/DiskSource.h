#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/NotTold.h"

/// A whole block device. The counters are those of /proc/diskstats since boot; milliseconds the
/// kernel keeps in 32 bits, so that each time begins at 0 again after 4294967.296 seconds. kNotTold
/// for what the line or /sys/block lacks.
struct DiskFigures {
  std::string name;       ///< the kernel's
  std::string label;      ///< the own name of a device of the device mapper
  std::string model;      ///< of NVMe, SCSI, ATA and MMC; of SCSI and ATA without its vendor
  std::string serial;     ///< of those and virtio, where it may be read
  std::string kind;       ///< see KindOfDisk()
  std::string scheduler;  ///< that is in force, such as "mq-deadline" or "none"
  double sizeBytes = kNotTold;

  double reads = kNotTold;
  double readsMerged = kNotTold;
  double readBytes = kNotTold;
  double readSeconds = kNotTold;
  double writes = kNotTold;
  double writesMerged = kNotTold;
  double writeBytes = kNotTold;
  double writeSeconds = kNotTold;
  double inFlight = kNotTold;         ///< operations under way now
  double inUseSeconds = kNotTold;     ///< in which any was under way
  double weightedSeconds = kNotTold;  ///< grows by what is in flight in each moment
  double discards = kNotTold;         ///< these four since 4.18
  double discardsMerged = kNotTold;
  double discardBytes = kNotTold;
  double discardSeconds = kNotTold;
  double flushes = kNotTold;  ///< these two since 5.5
  double flushSeconds = kNotTold;

  /// Commands that ended with an error since the device is there, from device/ioerr_cnt of SCSI and
  /// ATA; no other driver counts its errors in /sys.
  double errors = kNotTold;
};

/// What kind of device that is by the kernel's name and queue/rotational, "0" or "1": "nvme",
/// "mmc", "virtio", "xen", "network" (nbd, rbd), "cdrom", "dm", "md", and for all others "hdd" or
/// "ssd"; empty if neither tells. What a virtual machine gives out as a disk is not told apart
/// further: it calls each "rotational" unless it knows better.
[[nodiscard]] std::string_view KindOfDisk(std::string_view name, std::string_view rotational);
/// The word in brackets of queue/scheduler, as in "none [mq-deadline] bfq"; the only word of a
/// device without a choice; else empty.
[[nodiscard]] std::string_view SchedulerOfDisk(std::string_view text);
/// The number of a page 0x80 of SCSI, from device/vpd_pg80: blanks cut from its ends, characters
/// that can't be printed as blanks. Empty for another page; what is longer than its length is cut.
[[nodiscard]] std::string SerialOfPage(std::string_view page);
/// A number such as "0x1f" of SCSI; kNotTold for none.
[[nodiscard]] double ScsiCount(std::string_view text);

/// Reads a row for each whole device that ForEachWholeDisk() finds, in its order, if it has done
/// I/O or has a size: an idle disk is there, a drive without a medium or a device of the network
/// without a server is not. Opens at most seven files of a device.
void ReadDisks(std::vector<DiskFigures>& disks);
