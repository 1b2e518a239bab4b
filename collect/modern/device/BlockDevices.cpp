#include "collect/modern/device/BlockDevices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "collect/TextScanner.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "support/Directory.h"
#include "support/HostPaths.h"

namespace {

constexpr const char* kDiskstats = "/proc/diskstats";
constexpr const char* kSysBlock = "/sys/block";
constexpr std::size_t kLongestName = 63;
constexpr std::size_t kMostWholeDevices = 16384;

constexpr std::array<std::string_view, 3> kPseudoDisks{"loop", "ram", "zram"};
constexpr std::array<std::string_view, 5> kStackedDisks{"dm-", "md", "drbd", "bcache", "zd"};

bool IsDigit(char letter) { return letter >= '0' && letter <= '9'; }

/// The name without the digits that it ends with.
std::string_view WithoutNumber(std::string_view name) {
  while (!name.empty() && IsDigit(name.back())) {
    name.remove_suffix(1);
  }
  return name;
}

/// Drops one or more digits from the front; false without one.
bool TakeNumber(std::string_view& text) {
  const std::size_t size = text.size();
  while (!text.empty() && IsDigit(text.front())) {
    text.remove_prefix(1);
  }
  return text.size() < size;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

/// /proc may name a device "cciss/c0d0", whose folder is "cciss!c0d0".
std::string SysName(std::string_view device) {
  std::string name(device);
  std::replace(name.begin(), name.end(), '/', '!');
  return name;
}

/// The names in /sys/block, ascending; none without the folder.
std::vector<std::string> ReadSysBlock() {
  std::vector<std::string> names;
  const DirectoryPtr folder(::opendir(HostPath(kSysBlock).c_str()));
  if (folder == nullptr) {
    MissingInHost(kSysBlock);
    return names;
  }
  FoundInHost(kSysBlock);
  while (const ::dirent* entry = ::readdir(folder.get())) {
    if (names.size() == kMostWholeDevices) {
      break;
    }
    if (entry->d_name[0] != '.') {
      names.emplace_back(entry->d_name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// The lines of one file by their names.
class LinesByName {
 public:
  explicit LinesByName(std::vector<DiskstatsLine>& lines) {
    m_lines.reserve(lines.size());
    for (DiskstatsLine& line : lines) {
      m_lines.push_back(&line);
    }
    std::stable_sort(
        m_lines.begin(), m_lines.end(),
        [](const DiskstatsLine* a, const DiskstatsLine* b) { return a->name < b->name; });
  }

  /// The first line of the name, or null.
  [[nodiscard]] DiskstatsLine* Find(std::string_view name) const {
    const auto found = std::lower_bound(
        m_lines.begin(), m_lines.end(), name,
        [](const DiskstatsLine* line, std::string_view wanted) { return line->name < wanted; });
    return found == m_lines.end() || (*found)->name != name ? nullptr : *found;
  }

 private:
  std::vector<DiskstatsLine*> m_lines;
};

bool HasDoneIo(const DiskCounters& counters) { return counters.reads != 0 || counters.writes != 0; }

/// Hands what the paths of NVMe multipath have done to the devices that count nothing themselves.
void FoldPaths(const std::vector<DiskstatsLine>& lines, const LinesByName& byName) {
  std::vector<std::pair<DiskstatsLine*, const DiskCounters*>> paths;
  for (const DiskstatsLine& line : lines) {
    const std::string device = MultipathName(line.name);
    DiskstatsLine* const whole = device.empty() ? nullptr : byName.Find(device);
    if (whole != nullptr && !HasDoneIo(whole->counters)) {
      paths.emplace_back(whole, &line.counters);
    }
  }
  for (const auto& [whole, counters] : paths) {
    whole->counters += *counters;
  }
}

class WholeTest {
 public:
  explicit WholeTest(const LinesByName& byName) : m_sysNames(ReadSysBlock()), m_byName(byName) {}

  [[nodiscard]] bool operator()(std::string_view name) const {
    if (!m_sysNames.empty()) {
      return std::binary_search(m_sysNames.begin(), m_sysNames.end(), SysName(name));
    }
    const std::string_view parent = PartitionedName(name);
    return parent.empty() || m_byName.Find(parent) == nullptr;
  }

 private:
  std::vector<std::string> m_sysNames;
  const LinesByName& m_byName;
};

/// Of rows with `counters` and `isPhysical`.
template <class Device>
PhysicalOps SumOfPhysical(const std::vector<Device>& devices) {
  PhysicalOps sum;
  for (const Device& device : devices) {
    if (device.isPhysical) {
      sum.reads += device.counters.reads;
      sum.writes += device.counters.writes;
    }
  }
  return sum;
}

}  // namespace

bool ParseDiskstatsLine(std::string_view line, DiskstatsLine& out) {
  out = {};
  TextScanner scanner(line);
  if (!scanner.Unsigned(out.major) || !scanner.Unsigned(out.minor) || !scanner.Word(out.name) ||
      out.name.size() > kLongestName) {
    return false;
  }
  DiskCounters& counters = out.counters;
  out.isComplete =
      scanner.Unsigned(counters.reads) && scanner.SkipNumbers(1) &&
      scanner.Unsigned(counters.sectorsRead) && scanner.Unsigned(counters.readMilliseconds) &&
      scanner.Unsigned(counters.writes) && scanner.SkipNumbers(1) &&
      scanner.Unsigned(counters.sectorsWritten) && scanner.Unsigned(counters.writeMilliseconds) &&
      scanner.Unsigned(counters.inFlight) && scanner.Unsigned(counters.inUseMilliseconds) &&
      scanner.Unsigned(counters.weightedMilliseconds);
  return true;
}

std::vector<DiskstatsLine> ParseDiskstats(std::string_view text) {
  std::vector<DiskstatsLine> lines;
  DiskstatsLine parsed;
  for (std::string_view line; NextTextLine(text, line);) {
    if (ParseDiskstatsLine(line, parsed)) {
      lines.push_back(parsed);
    }
  }
  return lines;
}

std::string_view PartitionedName(std::string_view name) {
  std::string_view parent = WithoutNumber(name);
  if (parent.size() == name.size()) {
    return {};
  }
  if (parent.size() > 1 && parent.back() == 'p' && IsDigit(parent[parent.size() - 2])) {
    parent.remove_suffix(1);
  }
  return parent;
}

std::string MultipathName(std::string_view name) {
  std::string_view rest = name;
  if (!TakePrefix(rest, "nvme") || !TakeNumber(rest)) {
    return {};
  }
  const std::string_view device = name.substr(0, name.size() - rest.size());
  if (!TakePrefix(rest, "c") || !TakeNumber(rest)) {
    return {};
  }
  const std::string_view space = rest;
  if (!TakePrefix(rest, "n") || !TakeNumber(rest) || !rest.empty()) {
    return {};
  }
  return std::string(device).append(space);
}

bool IsPseudoDisk(std::string_view name) {
  const std::string_view kind = WithoutNumber(name);
  return kind.size() < name.size() &&
         std::find(kPseudoDisks.begin(), kPseudoDisks.end(), kind) != kPseudoDisks.end();
}

bool IsStackedDisk(std::string_view name) {
  const std::string_view kind = WithoutNumber(name);
  return name.starts_with("md_") ||
         (kind.size() < name.size() &&
          std::find(kStackedDisks.begin(), kStackedDisks.end(), kind) != kStackedDisks.end());
}

std::vector<BlockDevice> ReadBlockDevices() {
  std::string text;
  (void)ReadHostText(kDiskstats, text);
  std::vector<DiskstatsLine> lines = ParseDiskstats(text);
  const LinesByName byName(lines);
  FoldPaths(lines, byName);
  const WholeTest isWhole(byName);
  std::vector<BlockDevice> devices;
  for (const DiskstatsLine& line : lines) {
    TellFound(kDiskstats, line.name, line.isComplete);
    if (HasDoneIo(line.counters) && !IsPseudoDisk(line.name) && MultipathName(line.name).empty() &&
        isWhole(line.name)) {
      devices.push_back({std::string(line.name), line.counters, !IsStackedDisk(line.name)});
    }
  }
  return devices;
}

std::string BlockAttributePath(std::string_view device, std::string_view attribute) {
  return std::string(kSysBlock).append("/").append(SysName(device)).append("/").append(attribute);
}

PhysicalOps ReadPhysicalOps() { return SumOfPhysical(ReadBlockDevices()); }

PhysicalOps PhysicalOpsOf(const std::vector<DeviceIO>& devices) { return SumOfPhysical(devices); }
