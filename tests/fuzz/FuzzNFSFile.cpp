#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/nfs/NFSSource.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the calls of the kernel's NFS client.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  host.Write("/proc/net/rpc/nfs", {reinterpret_cast<const char*>(data), size});
  NFSClientTotalSourceUser source;
  NFSClientTotal total;
  const UtlErrorPtr error(source.readOne(nullptr, total));
  return 0;
}
