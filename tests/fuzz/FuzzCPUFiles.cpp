#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "collect/cpu/CPUSourceLINUX.h"
#include "support/OsCalls.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the three files that the processors are read from, and as a map of keys.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  Os().get_nprocs = [] { return 4; };
  Os().get_nprocs_conf = [] { return 4; };
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const char* file : {"/proc/stat", "/proc/interrupts", "/proc/cpuinfo"}) {
    host.Write(file, text);
  }
  std::vector<CPU> rows;
  CPUSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  return 0;
}
