#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "collect/modern/InterfaceSource.h"
#include "collect/modern/NetDev.h"
#include "collect/modern/NetlinkAddresses.h"

/// Any bytes as the kernel's answer about interfaces and addresses, in datagrams as long as the
/// first byte says, as a line of /proc/net/dev and as files of /sys/class/net.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  NetDevRow row;
  static_cast<void>(ParseNetDevLine(text, row));
  static_cast<void>(LinkFlagsOf({text, text, text, text}));
  NetlinkTables tables;
  std::span<const unsigned char> rest(data, size);
  const std::size_t length = size == 0 ? 1 : 16U * (data[0] + 1U);
  while (!rest.empty()) {
    const auto datagram = rest.first(std::min(rest.size(), length));
    for (const std::uint32_t sequence : {0U, 1U}) {
      static_cast<void>(ParseNetlinkAnswer(datagram, sequence, tables));
    }
    rest = rest.subspan(datagram.size());
  }
  JoinAddresses(tables);
  static_cast<void>(FindLink(tables, text.substr(0, 15)));
  return 0;
}
