#include "collect/modern/device/BlockDevices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "collect/TextScanner.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "support/HostPaths.h"
#include "support/HostReads.h"

namespace {

constexpr const char* kDiskstats = "/proc/diskstats";
constexpr const char* kSysBlock = "/sys/block";
constexpr std::size_t kLongestName = 63;
constexpr std::size_t kMostWholeDevices = 16384;

constexpr std::array<std::string_view, 3> kPseudoDisks{"loop", "ram", "zram"};
constexpr std::array<std::string_view, 5> kStackedDisks{"dm-", "md", "drbd", "bcache", "zd"};

bool IsDiskDigit(char letter) { return letter >= '0' && letter <= '9'; }

/// The name without the digits that it ends with.
std::string_view WithoutNumber(std::string_view name) {
  while (!name.empty() && IsDiskDigit(name.back())) {
    name.remove_suffix(1);
  }
  return name;
}

/// Drops one or more digits from the front; false without one.
bool TakeNumber(std::string_view& text) {
  const std::size_t size = text.size();
  while (!text.empty() && IsDiskDigit(text.front())) {
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

/// The names in /sys/block, ascending; none without the folder.
std::vector<std::string> ReadSysBlock() {
  std::vector<std::string> names;
  HostEntries folder(HostPath(kSysBlock));
  if (!folder.IsOpen()) {
    MissingInHost(kSysBlock);
    return names;
  }
  FoundInHost(kSysBlock);
  while (const ::dirent* entry = folder.Next()) {
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

/// Hands what the paths of NVMe multipath have done to the devices that count nothing themselves.
void FoldPaths(const std::vector<DiskstatsLine>& lines, const LinesByName& byName) {
  std::vector<std::pair<DiskstatsLine*, const DiskstatsLine*>> paths;
  for (const DiskstatsLine& line : lines) {
    const std::string device = MultipathName(line.name);
    DiskstatsLine* const whole = device.empty() ? nullptr : byName.Find(device);
    if (whole != nullptr && !HasDoneIo(whole->counters)) {
      paths.emplace_back(whole, &line);
    }
  }
  for (const auto& [whole, path] : paths) {
    whole->counters += path->counters;
    whole->extras += path->extras;
  }
}

class WholeTest {
 public:
  explicit WholeTest(const LinesByName& byName) : m_sysNames(ReadSysBlock()), m_byName(byName) {}

  [[nodiscard]] bool operator()(std::string_view name) const {
    if (!m_sysNames.empty()) {
      return std::binary_search(m_sysNames.begin(), m_sysNames.end(), BlockFolderName(name));
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

DiskExtras& DiskExtras::operator+=(const DiskExtras& extras) {
  readsMerged += extras.readsMerged;
  writesMerged += extras.writesMerged;
  discards += extras.discards;
  discardsMerged += extras.discardsMerged;
  sectorsDiscarded += extras.sectorsDiscarded;
  discardMilliseconds += extras.discardMilliseconds;
  flushes += extras.flushes;
  flushMilliseconds += extras.flushMilliseconds;
  return *this;
}

bool ParseDiskstatsLine(std::string_view line, DiskstatsLine& out) {
  out = {};
  TextScanner scanner(line);
  if (!scanner.Unsigned(out.major) || !scanner.Unsigned(out.minor) || !scanner.Word(out.name) ||
      out.name.size() > kLongestName) {
    return false;
  }
  DiskCounters& counters = out.counters;
  DiskExtras& extras = out.extras;
  for (std::uint64_t* figure :
       {&counters.reads, &extras.readsMerged, &counters.sectorsRead, &counters.readMilliseconds,
        &counters.writes, &extras.writesMerged, &counters.sectorsWritten,
        &counters.writeMilliseconds, &counters.inFlight, &counters.inUseMilliseconds,
        &counters.weightedMilliseconds, &extras.discards, &extras.discardsMerged,
        &extras.sectorsDiscarded, &extras.discardMilliseconds, &extras.flushes,
        &extras.flushMilliseconds}) {
    if (!scanner.Unsigned(*figure)) {
      break;
    }
    ++out.figures;
  }
  out.isComplete = out.figures >= DiskstatsLine::kUsualFigures;
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
  if (parent.size() > 1 && parent.back() == 'p' && IsDiskDigit(parent[parent.size() - 2])) {
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

void ForEachWholeDisk(const std::function<void(const DiskstatsLine& line)>& visit) {
  std::string text;
  (void)ReadHostText(kDiskstats, text);
  std::vector<DiskstatsLine> lines = ParseDiskstats(text);
  const LinesByName byName(lines);
  FoldPaths(lines, byName);
  const WholeTest isWhole(byName);
  for (const DiskstatsLine& line : lines) {
    TellFound(kDiskstats, line.name, line.isComplete);
    if (!IsPseudoDisk(line.name) && MultipathName(line.name).empty() && isWhole(line.name)) {
      visit(line);
    }
  }
}

std::vector<BlockDevice> ReadBlockDevices() {
  std::vector<BlockDevice> devices;
  ForEachWholeDisk([&devices](const DiskstatsLine& line) {
    if (HasDoneIo(line.counters)) {
      devices.push_back({std::string(line.name), line.counters, !IsStackedDisk(line.name)});
    }
  });
  return devices;
}

std::string BlockFolderName(std::string_view device) {
  std::string name(device);
  std::replace(name.begin(), name.end(), '/', '!');
  return name;
}

std::string BlockAttributePath(std::string_view device, std::string_view attribute) {
  return std::string(kSysBlock)
      .append("/")
      .append(BlockFolderName(device))
      .append("/")
      .append(attribute);
}

PhysicalOps ReadPhysicalOps() { return SumOfPhysical(ReadBlockDevices()); }

PhysicalOps PhysicalOpsOf(const std::vector<DeviceIO>& devices) { return SumOfPhysical(devices); }
