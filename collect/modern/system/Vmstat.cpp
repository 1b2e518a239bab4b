#include "collect/modern/system/Vmstat.h"

#include <algorithm>
#include <array>

#include "collect/modern/HostText.h"

namespace {

constexpr std::array kVmstatRows{
    KeyedNumber<VmstatFigures>{"pgpgin", &VmstatFigures::readKB},
    KeyedNumber<VmstatFigures>{"pgpgout", &VmstatFigures::writtenKB},
    KeyedNumber<VmstatFigures>{"pswpin", &VmstatFigures::swapInPages},
    KeyedNumber<VmstatFigures>{"pswpout", &VmstatFigures::swapOutPages},
    KeyedNumber<VmstatFigures>{"pgfault", &VmstatFigures::faults},
    KeyedNumber<VmstatFigures>{"pgmajfault", &VmstatFigures::majorFaults}};
constexpr std::uint32_t kFoundScans = 1U << kVmstatRows.size();
constexpr std::uint32_t kFoundReclaims = kFoundScans << 1U;

/// Who looks for pages. The last has no name: kernels before 3.4 count reclaims by zone alone.
constexpr std::array<std::string_view, 5> kReclaimers{"kswapd", "direct", "khugepaged", "proactive",
                                                      ""};
constexpr std::array<std::string_view, 5> kZones{"dma", "dma32", "normal", "high", "movable"};

/// The counters of one prefix, by who counted.
class ReclaimSum {
 public:
  explicit ReclaimSum(std::string_view prefix) : m_prefix(prefix) {}

  void TakeLine(std::string_view line) {
    const std::string_view key = line.substr(0, line.find_first_of(" \t"));
    std::uint64_t number = 0;
    if (!key.starts_with(m_prefix) || !TextScanner(line.substr(key.size())).Unsigned(number)) {
      return;
    }
    const std::string_view name = key.substr(m_prefix.size());
    for (std::size_t i = 0; i < kReclaimers.size(); ++i) {
      if (name == kReclaimers[i]) {
        m_whole[i] = number;
        m_isWhole[i] = m_isFound = true;
      } else if (IsZoneOf(name, kReclaimers[i])) {
        m_zones[i] += number;
        m_isFound = true;
      }
    }
  }
  [[nodiscard]] bool IsFound() const { return m_isFound; }
  [[nodiscard]] std::uint64_t Sum() const {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kReclaimers.size(); ++i) {
      sum += m_isWhole[i] ? m_whole[i] : m_zones[i];
    }
    return sum;
  }

 private:
  static bool IsZoneOf(std::string_view name, std::string_view reclaimer) {
    if (!reclaimer.empty()) {
      if (!name.starts_with(reclaimer) || !name.substr(reclaimer.size()).starts_with('_')) {
        return false;
      }
      name.remove_prefix(reclaimer.size() + 1);
    }
    return std::find(kZones.begin(), kZones.end(), name) != kZones.end();
  }

  std::string_view m_prefix;
  std::array<std::uint64_t, kReclaimers.size()> m_whole{};
  std::array<bool, kReclaimers.size()> m_isWhole{};
  std::array<std::uint64_t, kReclaimers.size()> m_zones{};
  bool m_isFound = false;
};

}  // namespace

VmstatFigures ParseVmstat(std::string_view text) {
  VmstatFigures figures;
  ReclaimSum scans("pgscan_");
  ReclaimSum reclaims("pgsteal_");
  for (std::string_view line; NextTextLine(text, line);) {
    if (!TakeKeyedNumber(line, kVmstatRows, figures, figures.found)) {
      scans.TakeLine(line);
      reclaims.TakeLine(line);
    }
  }
  figures.scannedPages = scans.Sum();
  figures.reclaimedPages = reclaims.Sum();
  figures.found |= scans.IsFound() ? kFoundScans : 0U;
  figures.found |= reclaims.IsFound() ? kFoundReclaims : 0U;
  return figures;
}

void TellMissing(const VmstatFigures& figures) {
  TellFound(kVmstatPath, kVmstatRows, figures.found);
  TellFound(kVmstatPath, "pgscan_*", (figures.found & kFoundScans) != 0);
  TellFound(kVmstatPath, "pgsteal_*", (figures.found & kFoundReclaims) != 0);
}
