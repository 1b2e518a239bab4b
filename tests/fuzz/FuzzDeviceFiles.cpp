#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "collect/device/DeviceSourceLINUX.h"
#include "support/Switches.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the two files that the disks are read from. The first one chooses the kernel.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  if (size == 0) {
    return 0;
  }
  g_kernelVariant = 1 + data[0] % 3;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  host.Write("/proc/partitions", text);
  host.Write("/proc/diskstats", text);
  std::vector<DeviceIO> rows;
  DeviceIOSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  return 0;
}
