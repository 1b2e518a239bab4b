#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "collect/filesystem/FileSystemSource.h"
#include "collect/filesystem/MountQuestion.h"
#include "collect/modern/filesystem/Mountinfo.h"

/// One mount for each file system that has figures, in the order in which they come first: that of
/// the shortest path, or else the first. File systems are told apart by the device; a remote one by
/// what was mounted, too, and one that makes a device for each of its parts by that alone.
[[nodiscard]] std::vector<MountEntry> MountsToAsk(std::vector<MountEntry> mounts);

/// Reads one row per file system of /proc/PID/mountinfo that has blocks, with the figures of
/// statfs(2): sizes in fragments (f_frsize), as df(1) counts them. Fails as a whole only beyond the
/// file's limit; a mount that cannot be asked, or does not answer in time, has no row and is told.
class ModernFileSystemSource : public PtrSource<x_free_space, FileSystem, std::vector<FileSystem>> {
 public:
  ModernFileSystemSource();
  ~ModernFileSystemSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_free_space* record) override;

 private:
  inline static SourceStatistics s_statistics;

  [[nodiscard]] std::string PlaceOf(const MountEntry& mount) const;
  /// Whether a server, a program or a slow disk has to answer for the mount or for one on the way.
  [[nodiscard]] bool MayWait(const MountEntry& mount) const;
  /// Has all those asked together, by children: to make them costs more than all other mounts.
  void AskSlowOnes();

  HostMounts m_mounts;
  std::vector<std::string> m_slow;  ///< the mount points that a question may wait at, in order
  std::size_t m_next = 0;
  MountQuestion m_question;
  std::string m_nodeName;  ///< empty if the host has none
};
