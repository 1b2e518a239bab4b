#include "collect/modern/cpu/CpuTimes.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/cpu/CoreTemperatures.h"
#include "collect/modern/cpu/CpuList.h"
#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/cpu/KernelCpuStat.h"
#include "collect/modern/system/KernelStat.h"
#include "support/HostPaths.h"
#include "support/TimeValues.h"

namespace {

constexpr const char* kCpuFolder = "/sys/devices/system/cpu";
constexpr const char* kCpuTimesTable = "/proc/cpuinfo";

using FrequencyClock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kSlowFrequency{5};
/// For all of them.
constexpr std::chrono::milliseconds kLongestFrequencies{200};
constexpr int kMostSlowFrequencies = 4;
constexpr double kKilohertzPerMegahertz = 1000;

void SetCpuSeconds(CpuTimeFigures& row, const CpuTicks& ticks) {
  const std::array<double*, CpuTicks::kColumns> figures{
      &row.user, &row.nice,    &row.system, &row.idle,  &row.wait,
      &row.irq,  &row.softIrq, &row.steal,  &row.guest, &row.guestNice};
  for (std::size_t column = 0; column < ticks.columns; ++column) {
    *figures[column] = static_cast<double>(ticks.ticks[column]) / TicksPerSecond();
  }
}

/// The rows of processors and their numbers, and where their files are.
class CpuRows {
 public:
  explicit CpuRows(std::vector<CpuTimeFigures>& rows) : m_rows(rows), m_folder(kCpuFolder) {}

  void ReadTimes();
  void ReadFrequencies();
  void ReadThrottling();
  void ReadTemperatures();

 private:
  /// A processor's row; the first is that of all.
  [[nodiscard]] CpuTimeFigures& Row(std::size_t place) {
    return m_rows[m_rows.size() - m_numbers.size() + place];
  }
  /// The number in a file of the processor's folder.
  [[nodiscard]] double Number(std::size_t place, const char* file) const {
    return m_folder.Number(Path(place, file).data());
  }
  using CpuPath = std::array<char, 64>;
  [[nodiscard]] CpuPath Path(std::size_t place, const char* file) const {
    CpuPath path;
    std::snprintf(path.data(), path.size(), "cpu%u/%s", m_numbers[place], file);
    return path;
  }
  [[nodiscard]] bool HasPolicies() const;
  /// Fills in the frequencies that are not told yet.
  void ReadCpuinfoFrequencies();

  std::vector<CpuTimeFigures>& m_rows;
  std::vector<std::uint32_t> m_numbers;
  HostFolder m_folder;
};

void CpuRows::ReadTimes() {
  HostLines lines(kKernelStatPath);
  CpuTicks ticks;
  for (std::string_view line;
       lines.Next(line) && IsCpuLine(line) && m_numbers.size() < kMostProcessors;) {
    if (m_rows.empty() && ParseCpuStatSum(line, ticks)) {
      m_rows.emplace_back().name = "all";
      SetCpuSeconds(m_rows.back(), ticks);
    } else if (ParseCpuStatLine(line, ticks) && ticks.processor < kMostProcessors) {
      m_numbers.push_back(ticks.processor);
      m_rows.emplace_back().name = "cpu" + std::to_string(ticks.processor);
      SetCpuSeconds(m_rows.back(), ticks);
    }
  }
}

bool CpuRows::HasPolicies() const {
  bool hasPolicies = false;
  m_folder.Below("cpufreq").ForEach([&hasPolicies](const char* name, bool) {
    hasPolicies = std::string_view(name).starts_with("policy");
    return !hasPolicies;
  });
  return hasPolicies;
}

void CpuRows::ReadFrequencies() {
  if (!HasPolicies()) {
    ReadCpuinfoFrequencies();
    return;
  }
  int slow = 0;
  FrequencyClock::duration spent{};
  for (std::size_t place = 0; place < m_numbers.size(); ++place) {
    CpuTimeFigures& row = Row(place);
    row.lowestMHz = Number(place, "cpufreq/cpuinfo_min_freq") / kKilohertzPerMegahertz;
    row.highestMHz = Number(place, "cpufreq/cpuinfo_max_freq") / kKilohertzPerMegahertz;
    if (slow < kMostSlowFrequencies && spent < kLongestFrequencies) {
      const auto start = FrequencyClock::now();
      row.frequencyMHz = Number(place, "cpufreq/scaling_cur_freq") / kKilohertzPerMegahertz;
      const auto taken = FrequencyClock::now() - start;
      slow += taken > kSlowFrequency ? 1 : 0;
      spent += taken;
    }
  }
  if (slow == kMostSlowFrequencies || spent >= kLongestFrequencies) {
    ReadCpuinfoFrequencies();
  }
}

void CpuRows::ReadCpuinfoFrequencies() {
  std::vector<CpuTimeFigures*> byNumber(kMostProcessors);
  for (std::size_t place = 0; place < m_numbers.size(); ++place) {
    byNumber[m_numbers[place]] = &Row(place);
  }
  HostLines lines(kCpuTimesTable);
  CpuinfoClock clock;
  for (std::string_view line; lines.Next(line);) {
    TakeCpuinfoClock(line, clock);
    CpuTimeFigures* const row =
        clock.processor < kMostProcessors ? byNumber[clock.processor] : nullptr;
    if (row != nullptr && !IsTold(row->frequencyMHz)) {
      row->frequencyMHz = clock.megahertz;
    }
  }
}

void CpuRows::ReadThrottling() {
  if (m_numbers.empty() || !m_folder.Below(Path(0, "thermal_throttle").data()).IsOpen()) {
    return;
  }
  for (std::size_t place = 0; place < m_numbers.size(); ++place) {
    Row(place).coreThrottled = Number(place, "thermal_throttle/core_throttle_count");
    Row(place).packageThrottled = Number(place, "thermal_throttle/package_throttle_count");
  }
}

/// Where the processors are, as long as the same ones are on line.
struct KnownCpuTopology {
  std::string root;
  std::vector<std::uint32_t> numbers;
  std::vector<std::pair<double, double>> places;  ///< package and core of each
};

void CpuRows::ReadTemperatures() {
  CoreTemperatures temperatures;
  temperatures.Read();
  if (temperatures.IsEmpty()) {
    return;
  }
  static KnownCpuTopology known;
  if (std::string root = HostPath("/"); known.root != root || known.numbers != m_numbers) {
    // Whole or not at all, as memory may end on the way.
    KnownCpuTopology found{std::move(root), m_numbers, {}};
    for (std::size_t place = 0; place < m_numbers.size(); ++place) {
      found.places.emplace_back(Number(place, "topology/physical_package_id"),
                                Number(place, "topology/core_id"));
    }
    known = std::move(found);
  }
  for (std::size_t place = 0; place < m_numbers.size(); ++place) {
    const auto [package, core] = known.places[place];
    // A package that the kernel can't tell is -1.
    if (package >= 0 && package <= UINT32_MAX && core >= 0 && core <= UINT32_MAX) {
      Row(place).temperature =
          temperatures.Of({static_cast<std::uint32_t>(package), static_cast<std::uint32_t>(core)});
    }
  }
}

}  // namespace

void ReadCpuTimes(std::vector<CpuTimeFigures>& processors) {
  processors.clear();
  CpuRows rows(processors);
  rows.ReadTimes();
  rows.ReadFrequencies();
  rows.ReadThrottling();
  rows.ReadTemperatures();
}
