#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/filesystem/MountQuestion.h"
#include "collect/filesystem/MountTable.h"

/// One mounted file system as the source reads it.
struct x_free_space {
  std::array<std::int32_t, 2> fsid{};
  std::string remotePath;          ///< behind the colon of the device's name; without one all of it
  std::uint32_t blockSize = 0;     ///< bytes
  std::uint32_t fragmentSize = 0;  ///< bytes, the unit of the counts of blocks
  std::uint64_t blocks = 0;
  std::uint64_t blocksFree = 0;
  std::uint64_t blocksAvail = 0;  ///< free to users without privileges
  std::uint64_t files = 0;        ///< inodes, as the next two
  std::uint64_t filesFree = 0;
  std::uint64_t filesAvail = 0;
  std::uint32_t remote = 0;  ///< 1 if the device's name holds a colon, else 0
  std::array<char, 32> fsType{};
  std::string mountPoint;
  std::string host;  ///< before the colon; without one this host's name, which may be empty
};

/// One mounted file system as builders see it.
class FileSystem : public x_free_space {
 public:
  [[nodiscard]] static const char* name() { return "File System"; }

  [[nodiscard]] bool IsRemote() const { return remote != 0; }
  [[nodiscard]] const std::string& GetMountPoint() const { return mountPoint; }
  /// Where the file system lies: the device of a local one, the server's path of a remote one.
  [[nodiscard]] const std::string& GetDevice() const { return remotePath; }
  [[nodiscard]] const std::string& GetHost() const { return host; }
  [[nodiscard]] const char* GetType() const { return fsType.data(); }
};

/// Reads one row per mounted file system of /etc/mtab that holds files, with the figures of
/// statfs(2), in the order of the mounts. Fails as a whole only if /etc/mtab cannot be opened or
/// the host has no name; a mount that cannot be asked has no row.
class FileSystemSourceUser : public PtrSource<x_free_space, FileSystem, std::vector<FileSystem>> {
 public:
  FileSystemSourceUser();
  ~FileSystemSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  /// Fills the next row of the table, which keeps the place between calls.
  void read(x_free_space* record) override;

 private:
  inline static SourceStatistics s_statistics;

  /// Has all mounts of the table asked together, and goes back to its beginning.
  void AskAll();

  MountTable m_mtab;
  MountQuestion m_question;
  std::string m_nodeName;
};
