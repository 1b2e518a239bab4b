#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/filesystem/MountTable.h"
#include "collect/filesystem/QuotaTree.h"

/// One user's quota on one file system as the source reads it.
struct x_quota {
  std::uint32_t size = 0;  ///< always 1072
  std::array<std::uint32_t, 2> reserved{};
  std::uint32_t uid = 0;
  std::string mountPoint;    ///< the quota file; of XFS the mount point and a "/"
  std::uint32_t usedKB = 0;  ///< low 32 bits, as all figures
  std::uint32_t softKB = 0;
  std::uint32_t hardKB = 0;
  std::uint32_t usedFiles = 0;
  std::uint32_t softFiles = 0;
  std::uint32_t hardFiles = 0;
  std::array<char, 4> state{};  ///< "on" or "off": whether the kernel enforces the quotas
};

/// One user's quota as builders see it.
class Quota : public x_quota {
 public:
  [[nodiscard]] static const char* name() { return "Quota"; }

  [[nodiscard]] const std::string& GetPath() const { return mountPoint; }
  [[nodiscard]] const char* GetState() const { return state.data(); }
};

/// Reads one row per user and file system with user quotas, of those users that have a limit or use
/// something: from the kernel, or from the quota files where it does not enforce them. Fails as a
/// whole only if /etc/mtab cannot be opened.
class QuotaSourceUser : public PtrSource<x_quota, Quota, std::vector<Quota>> {
 public:
  QuotaSourceUser();
  ~QuotaSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  /// Fills the next user's row of the current file system, or of the next one.
  void read(x_quota* record) override;

  /// Opens the table of mounts. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Initialize(const char* mtab);
  /// The next file system of a known type with user quotas; null at the end.
  [[nodiscard]] mntent* GetFsName(std::FILE* mtab);
  /// The format of a file system's quotas: 1, 2, 3 for XFS, -1 if there is none. Learns whether the
  /// kernel enforces them.
  [[nodiscard]] int GetQuotaVersion(const mntent* mount);

  /// Reads a block of kQuotaBlock bytes, with zeros behind the end of the file. The bytes read, or
  /// -1, which is traced.
  [[nodiscard]] static int ReadBlock(int fd, std::uint32_t block, char* buf);
  /// Look for a user's entry in a file of the second format, and in one of its blocks of data: its
  /// offset in the file, or 0, and then `*entry` is as it was.
  [[nodiscard]] static std::int64_t FindDQEntry(int fd, std::uint32_t uid, v2_disk_dqblk* entry);
  [[nodiscard]] static std::int64_t FindBlockDQEntry(int fd, std::uint32_t block, std::uint32_t uid,
                                                     v2_disk_dqblk* entry);

 private:
  [[nodiscard]] bool OpenNextFileSystem();
  [[nodiscard]] bool OpenFile(const char* name);
  void CloseFile();
  [[nodiscard]] bool AskKernel(int command, std::uint32_t uid, void* answer) const;
  // The current user's figures; false if they cannot be had or are all zero.
  [[nodiscard]] bool FindFigures(QuotaFigures& figures) const;
  [[nodiscard]] bool AskFigures(QuotaFigures& figures) const;
  [[nodiscard]] bool ReadFileV1(QuotaFigures& figures) const;
  void GetQuotaRecord(const QuotaFigures& figures, x_quota& record) const;

  inline static SourceStatistics s_statistics;

  MountTable m_mtab;
  std::string m_device;
  std::string m_path;
  int m_quotaFd = -1;  ///< 0 for XFS, which has no file
  bool m_quotaOn = true;
  int m_version = -1;
  std::uint32_t m_currentUid = 0;
};
