#include "collect/modern/FileSystemSource.h"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "collect/modern/RemoteMount.h"

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
  m_mounts.entries = MountsToAsk(std::move(m_mounts.entries));
  if (MountQuestion::IsLimited()) {
    std::vector<std::string> mountPoints;
    mountPoints.reserve(m_mounts.entries.size());
    for (const MountEntry& mount : m_mounts.entries) {
      mountPoints.push_back(PlaceOf(mount));
    }
    m_question.AskAll(mountPoints);
  }
  TraceExit("ModernFileSystemSource::ModernFileSystemSource");
}

std::string ModernFileSystemSource::PlaceOf(const MountEntry& mount) const {
  return m_mounts.prefix + mount.mountPoint;
}

void ModernFileSystemSource::read(x_free_space* record) {
  TraceEntry("ModernFileSystemSource::read", AddressOf(record));
  m_more = false;
  while (m_pendingError == nullptr && !m_more && m_next < m_mounts.entries.size()) {
    const MountEntry& mount = m_mounts.entries[m_next++];
    const MountReply reply = m_question.Ask(PlaceOf(mount).c_str());
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
