#include "collect/modern/device/DiskSource.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "collect/modern/HostFolder.h"
#include "collect/modern/device/BlockDevices.h"
#include "support/HostPaths.h"
#include "support/TrimmedText.h"

namespace {

constexpr const char* kDiskFolder = "/sys/block";
constexpr double kBytesPerDiskSector = 512;
constexpr double kDiskMillisecondsPerSecond = 1000;
/// No driver tells a longer model or number.
constexpr std::size_t kLongestDiskText = 256;

/// What drivers call their devices, and what they tell of one in which file of its folder.
struct DiskFamily {
  std::string_view prefix;
  std::string_view kind;  ///< empty where queue/rotational tells
  const char* model;
  const char* serial;
};
constexpr DiskFamily kUnknownDiskFamily{"", "", nullptr, nullptr};
constexpr const char* kScsiSerialPage = "device/vpd_pg80";
constexpr const char* kVirtioSerial = "serial";
constexpr std::array<DiskFamily, 11> kDiskFamilies{{
    {"nvme", "nvme", "device/model", "device/serial"},
    {"sd", "", "device/model", kScsiSerialPage},
    {"sr", "cdrom", "device/model", nullptr},
    {"vd", "virtio", nullptr, kVirtioSerial},
    {"dm-", "dm", nullptr, nullptr},
    {"md", "md", nullptr, nullptr},
    {"mmcblk", "mmc", "device/name", "device/serial"},
    {"xvd", "xen", nullptr, nullptr},
    {"nbd", "network", nullptr, nullptr},
    {"rbd", "network", nullptr, nullptr},
    {"hd", "", "device/model", nullptr},
}};

const DiskFamily& DiskFamilyOf(std::string_view name) {
  const auto* const found =
      std::find_if(kDiskFamilies.begin(), kDiskFamilies.end(),
                   [name](const DiskFamily& family) { return name.starts_with(family.prefix); });
  return found == kDiskFamilies.end() ? kUnknownDiskFamily : *found;
}

bool IsScsiDisk(std::string_view name) { return name.starts_with("sd") || name.starts_with("sr"); }

/// The numbers of virtio disks, which cost a question to the device each time, by a disk's place
/// and diskseq, which no other disk of this boot has.
class VirtioSerials {
 public:
  /// What is not asked for until the next call is forgotten.
  void Begin() { m_before = std::exchange(m_now, {}); }
  std::string Serial(const std::string& place, const HostFolder& folder) {
    const double sequence = folder.Number("diskseq");
    // It would be asked for in each run, and a device that has stalled does not answer.
    if (!IsTold(sequence)) {
      return {};
    }
    const auto known = m_before.find({place, sequence});
    // A disk without a number answers, too: with an empty text.
    std::optional<std::string> serial =
        known == m_before.end() ? folder.FindLine(kVirtioSerial) : known->second;
    if (serial) {
      m_now[{place, sequence}] = *serial;
    }
    return serial.value_or("");
  }

 private:
  using Serials = std::map<std::pair<std::string, double>, std::string>;
  Serials m_before;
  Serials m_now;
};

VirtioSerials& KnownVirtioSerials() {
  static VirtioSerials serials;
  return serials;
}

std::string CutDiskText(std::string text) {
  text.resize(std::min(text.size(), kLongestDiskText));
  return text;
}

std::string ReadDiskSerial(const char* file, const DiskFigures& disk, const HostFolder& folder) {
  if (file == nullptr) {
    return {};
  }
  if (file == kScsiSerialPage) {
    std::string page;
    return folder.Read(file, page) ? SerialOfPage(page) : std::string();
  }
  return file == kVirtioSerial
             ? KnownVirtioSerials().Serial(HostPath(kDiskFolder) + '/' + disk.name, folder)
             : folder.Line(file);
}

/// Gives each figure out of those that the line has, else kNotTold.
class ToldDiskFigures {
 public:
  explicit ToldDiskFigures(std::size_t figures) : m_figures(figures) {}
  /// `place` is the figure's in the line, from 0 on.
  [[nodiscard]] double Count(std::size_t place, std::uint64_t count) const {
    return place < m_figures ? static_cast<double>(count) : kNotTold;
  }
  [[nodiscard]] double Seconds(std::size_t place, std::uint64_t milliseconds) const {
    return Count(place, milliseconds) / kDiskMillisecondsPerSecond;
  }
  [[nodiscard]] double Bytes(std::size_t place, std::uint64_t sectors) const {
    return Count(place, sectors) * kBytesPerDiskSector;
  }

 private:
  std::size_t m_figures;
};

void SetDiskCounters(DiskFigures& disk, const DiskstatsLine& line) {
  // A line that breaks off within a group tells nothing of this, as one of another kernel does.
  const bool hasDiscards = line.figures >= DiskstatsLine::kFiguresWithDiscards;
  const bool hasFlushes = line.figures >= DiskstatsLine::kFiguresWithFlushes;
  const ToldDiskFigures told(hasFlushes    ? line.figures
                             : hasDiscards ? DiskstatsLine::kFiguresWithDiscards
                                           : std::min(line.figures, DiskstatsLine::kUsualFigures));
  const DiskCounters& counters = line.counters;
  const DiskExtras& extras = line.extras;
  disk.reads = told.Count(0, counters.reads);
  disk.readsMerged = told.Count(1, extras.readsMerged);
  disk.readBytes = told.Bytes(2, counters.sectorsRead);
  disk.readSeconds = told.Seconds(3, counters.readMilliseconds);
  disk.writes = told.Count(4, counters.writes);
  disk.writesMerged = told.Count(5, extras.writesMerged);
  disk.writeBytes = told.Bytes(6, counters.sectorsWritten);
  disk.writeSeconds = told.Seconds(7, counters.writeMilliseconds);
  disk.inFlight = told.Count(8, counters.inFlight);
  disk.inUseSeconds = told.Seconds(9, counters.inUseMilliseconds);
  disk.weightedSeconds = told.Seconds(10, counters.weightedMilliseconds);
  disk.discards = told.Count(11, extras.discards);
  disk.discardsMerged = told.Count(12, extras.discardsMerged);
  disk.discardBytes = told.Bytes(13, extras.sectorsDiscarded);
  disk.discardSeconds = told.Seconds(14, extras.discardMilliseconds);
  disk.flushes = told.Count(15, extras.flushes);
  disk.flushSeconds = told.Seconds(16, extras.flushMilliseconds);
}

void SetDiskAttributes(DiskFigures& disk, const HostFolder& folder) {
  const DiskFamily& family = DiskFamilyOf(disk.name);
  disk.kind =
      KindOfDisk(disk.name, family.kind.empty() ? folder.Line("queue/rotational") : std::string());
  disk.scheduler = CutDiskText(std::string(SchedulerOfDisk(folder.Line("queue/scheduler"))));
  disk.label = family.kind == "dm" ? CutDiskText(folder.Line("dm/name")) : std::string();
  disk.model = family.model == nullptr ? std::string() : CutDiskText(folder.Line(family.model));
  disk.serial = CutDiskText(ReadDiskSerial(family.serial, disk, folder));
  disk.errors = IsScsiDisk(disk.name) ? ScsiCount(folder.Line("device/ioerr_cnt")) : kNotTold;
}

}  // namespace

std::string_view KindOfDisk(std::string_view name, std::string_view rotational) {
  const std::string_view kind = DiskFamilyOf(name).kind;
  if (!kind.empty()) {
    return kind;
  }
  return rotational == "1" ? "hdd" : rotational == "0" ? "ssd" : "";
}

std::string_view SchedulerOfDisk(std::string_view text) {
  text = Trimmed(text, kWhiteSpace);
  const std::size_t open = text.find('[');
  if (open == std::string_view::npos) {
    return text.find_first_of(kWhiteSpace) == std::string_view::npos ? text : std::string_view();
  }
  const std::size_t close = text.find(']', open);
  return close == std::string_view::npos ? std::string_view()
                                         : text.substr(open + 1, close - open - 1);
}

std::string SerialOfPage(std::string_view page) {
  constexpr std::size_t kHead = 4;
  constexpr char kSerialPage = '\x80';
  if (page.size() < kHead || page[1] != kSerialPage) {
    return {};
  }
  const std::size_t length = static_cast<std::size_t>(static_cast<unsigned char>(page[2])) << 8U |
                             static_cast<unsigned char>(page[3]);
  std::string serial(page.substr(kHead, length));
  std::replace_if(
      serial.begin(), serial.end(), [](char letter) { return letter < ' ' || letter > '~'; }, ' ');
  return std::string(Trimmed(serial, " "));
}

double ScsiCount(std::string_view text) {
  text = Trimmed(text, kWhiteSpace);
  if (!text.starts_with("0x")) {
    return kNotTold;
  }
  std::uint64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data() + 2, end, count, 16);
  return code == std::errc{} && stop == end ? static_cast<double>(count) : kNotTold;
}

void ReadDisks(std::vector<DiskFigures>& disks) {
  disks.clear();
  KnownVirtioSerials().Begin();
  const HostFolder all(kDiskFolder);
  ForEachWholeDisk([&](const DiskstatsLine& line) {
    // Of a folder that is not open each attribute is not told either.
    const HostFolder folder = all.Below(BlockFolderName(line.name).c_str());
    const double size = folder.Number("size") * kBytesPerDiskSector;
    if (!HasDoneIo(line.counters) && !(size > 0)) {
      return;
    }
    DiskFigures& disk = disks.emplace_back();
    disk.name = line.name;
    disk.sizeBytes = size;
    SetDiskCounters(disk, line);
    SetDiskAttributes(disk, folder);
  });
}
