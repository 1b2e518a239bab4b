#include "utility/InterfaceFigures.h"

#include <algorithm>

#include "records/NamedGrowth.h"

namespace {

constexpr std::array kAllCounters{&InterfaceCounters::rxPackets, &InterfaceCounters::rxErrors,
                                  &InterfaceCounters::rxDropped, &InterfaceCounters::txPackets,
                                  &InterfaceCounters::txErrors,  &InterfaceCounters::txDropped,
                                  &InterfaceCounters::collisions};

constexpr std::uint32_t kUp = 0x1;
constexpr std::uint32_t kRunning = 0x40;
/// A bit that the kernel has no flag for.
constexpr std::uint32_t kNoCarrier = 0x80000000;

std::uint32_t ModernBits(std::uint32_t flags) {
  flags &= ~kNoCarrier;
  return (flags & (kUp | kRunning)) == kUp ? flags | kNoCarrier : flags;
}

constexpr std::array kModernFlagWords{FlagWord{kNoCarrier, "NO-CARRIER"},
                                      FlagWord{0x8, "LOOPBACK"},
                                      FlagWord{0x2, "BROADCAST"},
                                      FlagWord{0x10, "POINTOPOINT"},
                                      FlagWord{0x1000, "MULTICAST"},
                                      FlagWord{0x80, "NOARP"},
                                      FlagWord{0x200, "ALLMULTI"},
                                      FlagWord{0x100, "PROMISC"},
                                      FlagWord{0x400, "MASTER"},
                                      FlagWord{0x800, "SLAVE"},
                                      FlagWord{0x4, "DEBUG"},
                                      FlagWord{0x8000, "DYNAMIC"},
                                      FlagWord{0x4000, "AUTOMEDIA"},
                                      FlagWord{0x2000, "PORTSEL"},
                                      FlagWord{0x20, "NOTRAILERS"},
                                      FlagWord{kUp, "UP"},
                                      FlagWord{0x10000, "LOWER_UP"},
                                      FlagWord{0x20000, "DORMANT"},
                                      FlagWord{0x40000, "ECHO"}};

}  // namespace

InterfaceCounters& operator+=(InterfaceCounters& sum, const InterfaceCounters& more) {
  for (const auto counter : kAllCounters) {
    sum.*counter += more.*counter;
  }
  return sum;
}

constinit const FlagRules kModernFlagRules{kModernFlagWords, ModernBits};

InterfaceCounters InterfaceGrowth(const InterfaceCounters& now, const InterfaceCounters& before) {
  InterfaceCounters growth;
  for (const auto counter : kAllCounters) {
    growth.*counter = now.*counter > before.*counter ? now.*counter - before.*counter : 0;
  }
  return growth;
}

std::vector<NamedCounters> CountersByName(std::span<const Interface> interfaces) {
  std::vector<NamedCounters> named;
  named.reserve(interfaces.size());
  for (const Interface& source : interfaces) {
    named.push_back({source.x_interface::name, source.counters});
  }
  std::sort(named.begin(), named.end(),
            [](const NamedCounters& a, const NamedCounters& b) { return CompareNames(a, b) < 0; });
  return named;
}
