#include "collect/modern/filesystem/FileSystemSource.h"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "collect/modern/filesystem/RemoteMount.h"

namespace {

/// Types without blocks, in order; a question to some of them costs more than none: it mounts what
/// autofs stands for, and wakes or is refused by a user's program.
constexpr auto kNeverAsked =
    std::to_array<std::string_view>({"apparmorfs",      "autofs",     "bdev",        "binder",
                                     "binfmt_misc",     "bpf",        "cgroup",      "cgroup2",
                                     "configfs",        "cpuset",     "debugfs",     "devpts",
                                     "fuse.gvfsd-fuse", "fuse.lxcfs", "fuse.portal", "fusectl",
                                     "mqueue",          "nfsd",       "nsfs",        "openpromfs",
                                     "pipefs",          "proc",       "pstore",      "resctrl",
                                     "rpc_pipefs",      "securityfs", "selinuxfs",   "smackfs",
                                     "sockfs",          "sysfs",      "tracefs",     "usbfs"});
static_assert(std::is_sorted(kNeverAsked.begin(), kNeverAsked.end()));

bool IsNeverAsked(std::string_view type) {
  return std::binary_search(kNeverAsked.begin(), kNeverAsked.end(), type);
}

/// Types whose figures the kernel holds in memory, in order: no server and no program is asked for
/// them, and not even a disk but as CountsAtFirst() says.
constexpr auto kAnswerAtOnce = std::to_array<std::string_view>(
    {"bcachefs", "btrfs",    "cramfs",    "devtmpfs", "erofs", "exfat", "ext2",   "ext3",
     "ext4",     "f2fs",     "hugetlbfs", "iso9660",  "jfs",   "msdos", "nilfs2", "ntfs3",
     "ramfs",    "reiserfs", "squashfs",  "tmpfs",    "vfat",  "xfs",   "zfs"});
static_assert(std::is_sorted(kAnswerAtOnce.begin(), kAnswerAtOnce.end()));

bool AnswersAtOnce(std::string_view type) {
  return std::binary_search(kAnswerAtOnce.begin(), kAnswerAtOnce.end(), type);
}

/// Whether the first question after the mount reads a whole table from the disk, to count what is
/// free; later ones are answered from memory.
bool CountsAtFirst(std::string_view type) { return type == "vfat" || type == "msdos"; }

/// The mounts of such types that have answered before, by their ids and devices.
class CountedMounts {
 public:
  /// Forgets those that are mounted no more.
  void Begin(const std::vector<MountEntry>& mounts) {
    Places still;
    for (const MountEntry& mount : mounts) {
      if (Has(mount)) {
        still.insert(PlaceOf(mount));
      }
    }
    m_places.swap(still);
  }
  [[nodiscard]] bool Has(const MountEntry& mount) const {
    return m_places.contains(PlaceOf(mount));
  }
  void Add(const MountEntry& mount) {
    if (CountsAtFirst(mount.type)) {
      m_places.insert(PlaceOf(mount));
    }
  }

 private:
  using Places = std::set<std::pair<std::uint64_t, std::uint64_t>>;
  static Places::value_type PlaceOf(const MountEntry& mount) { return {mount.id, mount.device}; }

  Places m_places;
};

CountedMounts& KnownCountedMounts() {
  static CountedMounts mounts;
  return mounts;
}

/// Whether a path leads through one of the mount points, which are in order.
bool LeadsThrough(std::string_view path, const std::vector<std::string>& mountPoints) {
  for (std::size_t end = path.find('/', 1); end != std::string_view::npos;
       end = path.find('/', end + 1)) {
    if (std::binary_search(mountPoints.begin(), mountPoints.end(), path.substr(0, end),
                           std::less<>())) {
      return true;
    }
  }
  return false;
}

/// The mount points that a question may wait at, in order.
std::vector<std::string> SlowMountPoints(const std::vector<MountEntry>& mounts) {
  std::vector<std::string> slow;
  for (const MountEntry& mount : mounts) {
    if (!AnswersAtOnce(mount.type) && !IsNeverAsked(mount.type)) {
      slow.push_back(mount.mountPoint);
    }
  }
  std::sort(slow.begin(), slow.end());
  return slow;
}

/// What was mounted of a remote file system as a whole: the kernel may tell the source of a folder
/// of it with the folder's path. Slashes at the end say nothing.
std::string_view WholeSourceOf(const MountEntry& mount) {
  std::string_view source = mount.source;
  if (mount.root != "/" && source.ends_with(mount.root)) {
    source.remove_suffix(mount.root.size());
  }
  while (source.ends_with('/')) {
    source.remove_suffix(1);
  }
  return source;
}

/// What tells one file system from another.
std::string IdentityOf(const MountEntry& mount) {
  // Each subvolume may have a device of its own, without being one.
  if (mount.type == "btrfs") {
    return "btrfs " + mount.source;
  }
  std::string identity = std::to_string(mount.device);
  if (IsRemoteType(mount.type)) {
    identity.append(1, ' ').append(WholeSourceOf(mount));
  }
  return identity;
}

void FillModernFigures(x_free_space& record, const struct ::statfs64& figures) {
  static_assert(sizeof record.fsid == sizeof figures.f_fsid);
  std::memcpy(&record.fsid, &figures.f_fsid, sizeof record.fsid);
  record.blockSize = static_cast<std::uint32_t>(figures.f_bsize);
  record.fragmentSize =
      figures.f_frsize == 0 ? record.blockSize : static_cast<std::uint32_t>(figures.f_frsize);
  record.blocks = figures.f_blocks;
  record.blocksFree = figures.f_bfree;
  record.blocksAvail = figures.f_bavail;
  record.files = figures.f_files;
  // One that makes inodes as it needs them has no count of those that are free either.
  record.filesFree = record.files == 0 ? 0 : figures.f_ffree;
  record.filesAvail = record.filesFree;
}

void FillModernNames(x_free_space& record, const MountEntry& mount, const std::string& nodeName) {
  record.remote = IsRemoteType(mount.type) ? 1 : 0;
  if (record.remote == 0) {
    record.host = nodeName;
    record.remotePath = mount.source;
  } else {
    const RemotePlace place = SplitRemoteSource(mount.type, mount.source);
    record.host = place.host;
    record.remotePath = place.path;
  }
  record.mountPoint = mount.mountPoint;
  mount.type.copy(record.fsType.data(), record.fsType.size() - 1);
}

}  // namespace

std::vector<MountEntry> MountsToAsk(std::vector<MountEntry> mounts) {
  std::vector<MountEntry> chosen;
  std::unordered_map<std::string, std::size_t> places;
  for (MountEntry& mount : mounts) {
    if (IsNeverAsked(mount.type)) {
      continue;
    }
    const auto [known, isNew] = places.emplace(IdentityOf(mount), chosen.size());
    if (isNew) {
      chosen.push_back(std::move(mount));
    } else if (mount.mountPoint.size() < chosen[known->second].mountPoint.size()) {
      chosen[known->second] = std::move(mount);
    }
  }
  return chosen;
}

ModernFileSystemSource::ModernFileSystemSource() {
  TraceEntry("ModernFileSystemSource::ModernFileSystemSource");
  ++s_statistics.constructed;
  struct ::utsname host {};
  if (Os().uname(&host) == 0) {
    m_nodeName = host.nodename;
  }
  m_mounts = ReadMounts();
  m_slow = SlowMountPoints(m_mounts.entries);
  m_mounts.entries = MountsToAsk(std::move(m_mounts.entries));
  KnownCountedMounts().Begin(m_mounts.entries);
  if (MountQuestion::IsLimited()) {
    AskSlowOnes();
  }
  TraceExit("ModernFileSystemSource::ModernFileSystemSource");
}

bool ModernFileSystemSource::MayWait(const MountEntry& mount) const {
  return !AnswersAtOnce(mount.type) ||
         (CountsAtFirst(mount.type) && !KnownCountedMounts().Has(mount)) ||
         LeadsThrough(mount.mountPoint, m_slow);
}

void ModernFileSystemSource::AskSlowOnes() {
  std::vector<std::string> mountPoints;
  for (const MountEntry& mount : m_mounts.entries) {
    if (MayWait(mount)) {
      mountPoints.push_back(PlaceOf(mount));
    }
  }
  if (!mountPoints.empty()) {
    m_question.AskAll(mountPoints);
  }
}

std::string ModernFileSystemSource::PlaceOf(const MountEntry& mount) const {
  return m_mounts.prefix + mount.mountPoint;
}

void ModernFileSystemSource::read(x_free_space* record) {
  TraceEntry("ModernFileSystemSource::read", AddressOf(record));
  m_more = false;
  while (m_pendingError == nullptr && !m_more && m_next < m_mounts.entries.size()) {
    const MountEntry& mount = m_mounts.entries[m_next++];
    const std::string place = PlaceOf(mount);
    const MountReply reply =
        MayWait(mount) ? m_question.Ask(place.c_str()) : MountQuestion::AskDirectly(place.c_str());
    if (reply.answer == MountAnswer::kAnswered) {
      KnownCountedMounts().Add(mount);
    }
    if (reply.answer == MountAnswer::kFailed) {
      Trace(20, kError, "The error occurred by OS API(statfs). (en=%1, arg1=%2, arg2=%3)",
            reply.code, mount.mountPoint, AddressOf(&reply.figures));
    } else if (reply.answer == MountAnswer::kAnswered && reply.figures.f_blocks != 0) {
      FillModernNames(*record, mount, m_nodeName);
      FillModernFigures(*record, reply.figures);
      m_more = true;
    }
  }
  TraceExit("ModernFileSystemSource::read");
}
