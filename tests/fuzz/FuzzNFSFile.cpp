#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/nfs/NFSSource.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the calls of the kernel's NFS client, and of its server.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  for (const char* file : {"/proc/net/rpc/nfs", "/proc/net/rpc/nfsd"}) {
    host.Write(file, {reinterpret_cast<const char*>(data), size});
  }
  NFSClientTotalSourceUser source;
  NFSClientTotal total;
  const UtlErrorPtr error(source.readOne(nullptr, total));
  NFSServerTotalSourceUser serverSource;
  NFSServerTotal serverTotal;
  const UtlErrorPtr serverError(serverSource.readOne(nullptr, serverTotal));
  return 0;
}
