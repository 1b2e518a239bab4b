#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/system/SystemSourceLINUX.h"
#include "support/Switches.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the files of the whole host and as the status of a process. The first one chooses
/// the kernel.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  if (size == 0) {
    return 0;
  }
  g_kernelVariant = 1 + data[0] % 3;
  ProcLib::ResetCaches();
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  for (const char* file :
       {"/proc/stat", "/proc/vmstat", "/proc/loadavg", "/proc/interrupts", "/proc/1/status"}) {
    host.Write(file, text);
  }
  System row;
  SystemSourceUser source;
  const UtlErrorPtr error(source.readOne(nullptr, row));
  static_cast<void>(source.GetTrapCount());
  return 0;
}
