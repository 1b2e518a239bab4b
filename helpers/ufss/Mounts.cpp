#include "helpers/ufss/Mounts.h"

#include <mntent.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "support/HostPaths.h"
#include "support/TextFile.h"

namespace {

/// Types of file systems on servers whose devices need no colon, and of such as mount others when
/// they are looked into.
constexpr std::array<std::string_view, 11> kElsewhere{
    "autofs", "nfs", "nfs4", "cifs", "smb3", "smbfs", "ncpfs", "afs", "9p", "ceph", "lustre"};
/// Room for a device and a mount point of 4095 characters each, all of them escaped by four.
constexpr std::size_t kLongestLine = 64 * 1024;

/// Programs that serve a file system mostly fetch it from elsewhere; "fuseblk" has a disk.
bool IsServedByProgram(std::string_view type) {
  return type == "fuse" || type.starts_with("fuse.");
}

bool IsElsewhere(const ::mntent& mount) {
  const std::string_view type = mount.mnt_type;
  return std::string_view(mount.mnt_fsname).find(':') != std::string_view::npos ||
         IsServedByProgram(type) ||
         std::find(kElsewhere.begin(), kElsewhere.end(), type) != kElsewhere.end();
}

bool HasBlocks(const std::string& path) {
  struct ::statfs64 figures {};
  return ::statfs64(path.c_str(), &figures) == 0 && figures.f_blocks != 0;
}

}  // namespace

bool FindLocalMounts(const std::string& table, std::vector<LocalMount>& mounts) {
  const TextFilePtr file = OpenTextFile(table);
  if (file == nullptr) {
    return false;
  }
  std::set<::dev_t> devices;
  std::vector<char> line(kLongestLine);
  ::mntent entry{};
  while (const ::mntent* mount =
             ::getmntent_r(file.get(), &entry, line.data(), static_cast<int>(line.size()))) {
    if (IsElsewhere(*mount)) {
      continue;
    }
    const std::string path = HostPath(mount->mnt_dir);
    struct ::stat status {};
    if (HasBlocks(path) && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        devices.insert(status.st_dev).second) {
      mounts.push_back({mount->mnt_dir, path});
    }
  }
  return true;
}
