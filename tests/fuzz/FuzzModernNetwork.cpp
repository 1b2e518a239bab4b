#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/modern/network/InterfaceSource.h"
#include "collect/modern/network/NetDev.h"
#include "collect/modern/network/NetlinkAddresses.h"

namespace {

void TakeNetDev(std::string_view text) {
  static_cast<void>(LinkFlagsOf({text, text, text, text}));
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    NetDevRow row;
    if (ParseNetDevLine(line, row) && (row.name.empty() || row.name.size() > 39)) {
      std::abort();
    }
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
  }
}

/// Bytes as datagrams of 4096 bytes, aligned as a buffer for messages is.
void TakeNetlink(std::string_view bytes) {
  constexpr std::size_t kDatagram = 4096;
  NetlinkTables tables;
  while (!bytes.empty()) {
    const std::string_view datagram = bytes.substr(0, kDatagram);
    std::vector<unsigned char> room(datagram.begin(), datagram.end());
    static_cast<void>(ParseNetlinkAnswer(room, 1, tables));
    bytes.remove_prefix(datagram.size());
  }
  JoinAddresses(tables);
  for (const NetlinkLink& link : tables.links) {
    if (FindLink(tables, link.name.data()) == nullptr &&
        std::memchr(link.name.data(), '\0', link.name.size()) != nullptr) {
      std::abort();
    }
  }
}

}  // namespace

/// The first byte chooses text of /proc/net/dev and of /sys/class/net, or datagrams of the
/// kernel.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] % 2 == 0) {
    TakeNetDev(rest);
  } else {
    TakeNetlink(rest);
  }
  return 0;
}
