#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "collect/MajorTable.h"
#include "collect/ProcLib.h"
#include "collect/Source.h"
#include "support/TextFile.h"

/// One disk as the source reads it; counters since boot, of which the kernel's low 32 bits count.
struct x_deviceio {
  float readMB = 0;  ///< of 1048576 bytes
  float writeMB = 0;
  float totalMB = 0;
  std::uint32_t readOps = 0;
  std::uint32_t writeOps = 0;
  std::uint32_t totalOps = 0;
  /// `classic`: weighted I/O time by the uptime, whole seconds a second. `modern`: in flight now.
  std::uint32_t queueLength = 0;
  std::uint32_t reserved1 = 0;
  std::uint64_t serviceSeconds = 0;  ///< spent by reads and writes
  std::uint64_t reserved2 = 0;
  std::uint64_t queueSeconds = 0;  ///< `classic`: serviceSeconds * queueLength; `modern`: weighted
  std::uint64_t reserved3 = 0;
  std::uint64_t reserved4 = 0;
  std::uint64_t reserved5 = 0;
  std::uint64_t reserved6 = 0;
  std::uint64_t reserved7 = 0;
  std::uint64_t busySeconds = 0;  ///< in which any I/O was under way
  std::uint64_t reserved8 = 0;
  /// `classic`: "dev8-1", the disk's number behind the major one, from kernel 2.6 on "dev8-1 sdb".
  /// `modern`: the kernel's name, as ModernDeviceSource tells.
  std::array<char, 80> name{};
  std::array<char, 8> type{};  ///< "disk"; under `modern` of several kinds
};

/// What the kernel counts for a device since boot. It keeps milliseconds in 32 bits, which wrap,
/// and all else in 64.
struct DiskCounters {
  std::uint64_t reads = 0;
  std::uint64_t sectorsRead = 0;  ///< of 512 bytes
  std::uint64_t readMilliseconds = 0;
  std::uint64_t writes = 0;
  std::uint64_t sectorsWritten = 0;
  std::uint64_t writeMilliseconds = 0;
  std::uint64_t inFlight = 0;  ///< operations under way now
  std::uint64_t inUseMilliseconds = 0;
  std::uint64_t weightedMilliseconds = 0;  ///< grows by what is in flight in each millisecond

  DiskCounters& operator+=(const DiskCounters& counters);
};

/// One disk as builders see it. One whose figures can't be read is there all the same, its fields
/// zero and its texts empty.
class DeviceIO : public x_deviceio {
 public:
  [[nodiscard]] static const char* name() { return "Device"; }

  [[nodiscard]] const char* GetName() const { return x_deviceio::name.data(); }
  [[nodiscard]] const char* GetType() const { return type.data(); }

  // What the source of the profile `modern` tells besides.

  DiskCounters counters;    ///< in full
  bool isPhysical = false;  ///< counts in sums over devices
};

/// The order of builders: by name.
[[nodiscard]] inline bool operator<(const DeviceIO& a, const DeviceIO& b) {
  return std::strcmp(a.GetName(), b.GetName()) < 0;
}

/// Reads one row per whole disk of /proc/partitions, with the figures of that file on 2.4 kernels
/// and those of /proc/diskstats from 2.6 on. Fails as a whole only without any disk or without the
/// uptime.
class DeviceIOSourceUser : public PtrSource<x_deviceio, DeviceIO, std::vector<DeviceIO>> {
 public:
  DeviceIOSourceUser();
  ~DeviceIOSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_deviceio* record) override;

  /// The device's line of /proc/partitions, searched from the start. 0, or -1 if there is none.
  [[nodiscard]] int Check_Part_Device(ProcLine& out, int major, int minor);
  /// The same of /proc/diskstats, searched from where the last search stopped: disks are expected
  /// in the order of /proc/partitions.
  [[nodiscard]] int Check_Part_Device_Diskstats(ProcLine& out, int major, int minor);

  /// False where the host's disks, if it has any, are all of majors beyond the table.
  [[nodiscard]] bool IsSupported() const { return m_isSupported; }

  /// Fill the figures from a line of /proc/partitions or /proc/diskstats. `uptime` in seconds, 0
  /// counts as 1. 0, or -1 and an untouched record if the line has not all of them.
  [[nodiscard]] int Get_Device_Stat(const char* line, x_deviceio* work, unsigned int uptime) const;
  [[nodiscard]] int Get_Device_Stat_Diskstats(const char* line, x_deviceio* work,
                                              unsigned int uptime);

 private:
  /// Takes what the files tell of the device; false if that fails.
  [[nodiscard]] bool ReadFigures(const DeviceId& device, x_deviceio& work);
  void NameDevice(const DeviceId& device, x_deviceio& work) const;

  inline static SourceStatistics s_statistics;

  bool m_isSupported = true;
  /// The kernel variant at the source's start.
  int m_level;
  std::vector<DeviceId> m_devices;
  TextFilePtr m_partitionsFp;
  TextFilePtr m_diskstatsFp;
  std::size_t m_index = 0;
  unsigned int m_uptime = 0;
  /// The name of the last line of /proc/diskstats.
  std::array<char, 80> m_diskName{};
};
