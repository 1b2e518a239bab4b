#pragma once

#include <string>
#include <vector>

/// A file system to be walked.
struct LocalMount {
  std::string mountPoint;  ///< as the host names it
  std::string path;        ///< where it is opened: below the host root
};

/// The local file systems of a table of mounts such as /etc/mtab, whose path is `table`, in its
/// order. Left out are those on servers, which a colon in the device's name or their type tells,
/// those without blocks by statfs(2), such as /proc, and all but the first mount of one device.
/// False with `errno` if the table can't be read.
[[nodiscard]] bool FindLocalMounts(const std::string& table, std::vector<LocalMount>& mounts);
