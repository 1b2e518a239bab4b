#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "collect/network/InterfaceSourceLINUX.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "support/OsCalls.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the two files that interfaces and protocols are read from. The kernel knows none of
/// the interfaces.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  Os().ioctl = [](int, unsigned long, ifreq*) {
    errno = ENODEV;
    return -1;
  };
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  host.Write("/proc/net/dev", text);
  host.Write("/proc/net/snmp", text);
  std::vector<Interface> rows;
  InterfaceSourceUser interfaces;
  const UtlErrorPtr interfaceError(interfaces.readAll(nullptr, rows));
  Protocol row;
  ProtocolSourceUser protocols;
  const UtlErrorPtr protocolError(protocols.readOne(nullptr, row));
  return 0;
}
