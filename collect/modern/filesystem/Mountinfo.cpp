#include "collect/modern/filesystem/Mountinfo.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "collect/HostFile.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"

namespace {

constexpr const char* kMountinfoOfFirst = "/proc/1/mountinfo";
constexpr const char* kMountinfoOfSelf = "/proc/self/mountinfo";
constexpr const char* kRootOfFirst = "/proc/1/root";

/// Takes the columns of a line, which one blank parts: the kernel escapes those within, and a
/// source may be an empty text.
class MountColumns {
 public:
  explicit MountColumns(std::string_view text) : m_rest(text) {}

  /// False where the line has ended.
  bool Next(std::string_view& column) {
    if (m_isAtEnd) {
      return false;
    }
    const std::size_t blank = m_rest.find(' ');
    m_isAtEnd = blank == std::string_view::npos;
    column = m_rest.substr(0, blank);
    m_rest.remove_prefix(m_isAtEnd ? m_rest.size() : blank + 1);
    return true;
  }
  bool Skip(int columns) {
    std::string_view column;
    while (columns > 0 && Next(column)) {
      --columns;
    }
    return columns == 0;
  }
  /// Goes behind the hyphen that ends the optional columns.
  bool SkipOptional() {
    std::string_view column;
    while (Next(column)) {
      if (column == "-") {
        return true;
      }
    }
    return false;
  }

 private:
  std::string_view m_rest;
  bool m_isAtEnd = false;
};

template <class Number>
bool IsMountNumber(std::string_view text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [reached, status] = std::from_chars(text.data(), end, number);
  return status == std::errc{} && reached == end;
}

/// "major:minor"
bool IsDevice(std::string_view text, std::uint64_t& device) {
  const std::size_t colon = text.find(':');
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  if (colon == std::string_view::npos || !IsMountNumber(text.substr(0, colon), major) ||
      !IsMountNumber(text.substr(colon + 1), minor)) {
    return false;
  }
  device = std::uint64_t{major} << 32U | minor;
  return true;
}

/// The byte of an escape that begins the text; 0 for none.
unsigned EscapedByte(std::string_view text) {
  constexpr std::size_t kLength = 4;
  unsigned byte = 0;
  if (text.size() < kLength || text[0] != '\\') {
    return 0;
  }
  for (const char digit : text.substr(1, kLength - 1)) {
    if (digit < '0' || digit > '7') {
      return 0;
    }
    byte = byte * 8 + static_cast<unsigned>(digit - '0');
  }
  return byte <= 0xffU ? byte : 0;
}

/// Orders paths so that a folder stands right before all that lies below it.
bool IsPathBefore(std::string_view left, std::string_view right) {
  const auto rank = [](char letter) {
    return letter == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(letter)) + 1;
  };
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [&](char a, char b) { return rank(a) < rank(b); });
}

/// Whether the path is the folder or lies below it.
bool IsWithinFolder(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) &&
         (path.size() == folder.size() || folder == "/" || path[folder.size()] == '/');
}

/// The mounts that stand on one, ordered by their paths.
using MountedOn = std::unordered_map<std::uint64_t, std::vector<std::size_t>>;

MountedOn GroupByParent(const std::vector<MountEntry>& entries) {
  MountedOn mountedOn;
  for (std::size_t place = 0; place < entries.size(); ++place) {
    if (entries[place].parent != entries[place].id) {
      mountedOn[entries[place].parent].push_back(place);
    }
  }
  for (auto& [parent, places] : mountedOn) {
    std::stable_sort(places.begin(), places.end(), [&](std::size_t left, std::size_t right) {
      return IsPathBefore(entries[left].mountPoint, entries[right].mountPoint);
    });
  }
  return mountedOn;
}

/// The mounts that stand on nothing that the table tells.
std::vector<std::size_t> FirstMounts(const std::vector<MountEntry>& entries) {
  std::unordered_set<std::uint64_t> ids;
  for (const MountEntry& entry : entries) {
    ids.insert(entry.id);
  }
  std::vector<std::size_t> first;
  for (std::size_t place = 0; place < entries.size(); ++place) {
    if (entries[place].parent == entries[place].id || !ids.contains(entries[place].parent)) {
      first.push_back(place);
    }
  }
  return first;
}

/// Those of the mounts on one, by path, that a path leads to: the first one on the way takes it.
std::vector<std::size_t> FirstOnTheWay(const std::vector<MountEntry>& entries,
                                       const std::vector<std::size_t>& siblings) {
  std::vector<std::size_t> reached;
  for (const std::size_t place : siblings) {
    const std::string& path = entries[place].mountPoint;
    if (reached.empty() || !IsWithinFolder(path, entries[reached.back()].mountPoint)) {
      reached.push_back(place);
    } else if (path == entries[reached.back()].mountPoint) {
      reached.back() = place;
    }
  }
  return reached;
}

/// The whole file; nothing if it can't be read to its end.
std::optional<std::string> MountinfoText(const char* path) {
  constexpr std::size_t kPiece = 64 * 1024;
  const TextFilePtr file = OpenHostFile(path);
  if (file == nullptr) {
    return std::nullopt;
  }
  std::string text;
  std::size_t length = 0;
  std::size_t count = 0;
  do {
    text.resize(length + kPiece);
    count = std::fread(text.data() + length, 1, kPiece, file.get());
    length += count;
  } while (count == kPiece);
  text.resize(length);
  return std::ferror(file.get()) == 0 ? std::optional(std::move(text)) : std::nullopt;
}

/// Whether process 1 has a mount namespace of its own, and a root that this process may enter.
bool IsFirstElsewhere() {
  struct ::stat own {};
  struct ::stat first {};
  struct ::stat root {};
  return Os().stat(HostPath("/proc/self/ns/mnt").c_str(), &own) == 0 &&
         Os().stat(HostPath("/proc/1/ns/mnt").c_str(), &first) == 0 &&
         (own.st_ino != first.st_ino || own.st_dev != first.st_dev) &&
         Os().stat(HostPath(kRootOfFirst).c_str(), &root) == 0;
}

}  // namespace

bool ParseMountLine(std::string_view text, MountLine& line) {
  MountColumns columns(text);
  std::array<std::string_view, 3> numbers;
  for (std::string_view& number : numbers) {
    if (!columns.Next(number)) {
      return false;
    }
  }
  constexpr int kOptions = 1;
  return text.find('\0') == std::string_view::npos && IsMountNumber(numbers[0], line.id) &&
         IsMountNumber(numbers[1], line.parent) && IsDevice(numbers[2], line.device) &&
         columns.Next(line.root) && columns.Next(line.mountPoint) &&
         line.mountPoint.starts_with('/') && columns.Skip(kOptions) && columns.SkipOptional() &&
         columns.Next(line.type) && columns.Next(line.source);
}

std::string DecodeMountText(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  while (!text.empty()) {
    const unsigned byte = EscapedByte(text);
    decoded += byte == 0 ? text.front() : static_cast<char>(byte);
    text.remove_prefix(byte == 0 ? 1 : 4);
  }
  return decoded;
}

Mounts ParseMountinfo(std::string_view text) {
  Mounts mounts;
  MountLine line;
  for (std::string_view taken; NextTextLine(text, taken);) {
    if (ParseMountLine(taken, line)) {
      mounts.entries.push_back({line.id, line.parent, line.device, DecodeMountText(line.mountPoint),
                                DecodeMountText(line.type), DecodeMountText(line.source),
                                DecodeMountText(line.root)});
    } else if (!taken.empty()) {
      ++mounts.faulty;
    }
  }
  return mounts;
}

std::vector<MountEntry> ReachableMounts(std::vector<MountEntry> entries) {
  MountedOn mountedOn = GroupByParent(entries);
  std::vector<std::size_t> open = FirstMounts(entries);
  std::vector<std::size_t> reachable;
  while (!open.empty()) {
    const std::size_t place = open.back();
    open.pop_back();
    bool isCovered = false;
    // A broken table may give many mounts one id, so what stands on it is taken once.
    if (const auto taken = mountedOn.extract(entries[place].id)) {
      for (const std::size_t next : FirstOnTheWay(entries, taken.mapped())) {
        isCovered = isCovered || entries[next].mountPoint == entries[place].mountPoint;
        open.push_back(next);
      }
    }
    if (!isCovered) {
      reachable.push_back(place);
    }
  }
  std::sort(reachable.begin(), reachable.end());
  std::vector<MountEntry> kept;
  kept.reserve(reachable.size());
  for (const std::size_t place : reachable) {
    kept.push_back(std::move(entries[place]));
  }
  return kept;
}

MountView ViewOfMounts() {
  const bool isCaptured = !IsRunningHost();
  if (isCaptured) {
    return {kMountinfoOfFirst, ""};
  }
  return IsFirstElsewhere() ? MountView{kMountinfoOfFirst, kRootOfFirst}
                            : MountView{kMountinfoOfSelf, ""};
}

HostMounts ReadMounts() {
  constexpr const char* kColumns = "columns of a mount";
  for (const auto& [path, prefix] : {ViewOfMounts(), MountView{kMountinfoOfSelf, ""}}) {
    const std::optional<std::string> text = MountinfoText(path);
    if (!text) {
      continue;
    }
    Mounts mounts = ParseMountinfo(*text);
    FoundInHost(kMountinfoOfSelf);
    TellFound(path, kColumns, mounts.faulty == 0);
    return {ReachableMounts(std::move(mounts.entries)), prefix};
  }
  MissingInHost(kMountinfoOfSelf);
  return {};
}
