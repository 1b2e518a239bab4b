#include "collect/modern/network/NetDev.h"

#include <algorithm>

#include "collect/TextScanner.h"

namespace {

constexpr std::size_t kLongestInterfaceName = std::tuple_size_v<decltype(x_interface::name)> - 1;

bool IsInterfaceName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestInterfaceName && name != "." && name != ".." &&
         name.find('/') == std::string_view::npos;
}

}  // namespace

bool ParseNetDevLine(std::string_view line, NetDevRow& row) {
  line = line.substr(0, line.find('\0'));
  // Numbers have no colon, but names of old aliases do.
  const std::size_t colon = line.rfind(':');
  if (colon == std::string_view::npos) {
    return false;
  }
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), colon);
  row = {.name = line.substr(begin, colon - begin), .counters = {}, .isWhole = false};
  TextScanner numbers(line.substr(colon + 1));
  InterfaceCounters& counters = row.counters;
  row.isWhole = numbers.SkipNumbers(1) && numbers.Unsigned(counters.rxPackets) &&
                numbers.Unsigned(counters.rxErrors) && numbers.Unsigned(counters.rxDropped) &&
                numbers.SkipNumbers(5) && numbers.Unsigned(counters.txPackets) &&
                numbers.Unsigned(counters.txErrors) && numbers.Unsigned(counters.txDropped) &&
                numbers.SkipNumbers(1) && numbers.Unsigned(counters.collisions);
  return IsInterfaceName(row.name);
}
