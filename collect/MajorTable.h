#pragma once

#include <cstdint>

/// A block device's number.
struct DeviceId {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
};

/// Which block devices are whole disks, by kernel generation and major number.
class MajorTable {
 public:
  /// Majors that the table knows: 0 to 255.
  static constexpr int kMajors = 256;

  /// 0: no disk. 1: each minor is a device of its own. N: disk k has the minor k * N, and what
  /// lies between are its partitions. 0 as well for a kernel or a major beyond the table.
  [[nodiscard]] static int Entry(int kernelVariant, std::int64_t major);
};
