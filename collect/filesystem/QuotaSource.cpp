#include "collect/filesystem/QuotaSource.h"

#include <fcntl.h>
#include <linux/dqblk_xfs.h>
#include <sys/quota.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/HostPaths.h"
#include "support/HostReads.h"

namespace {

constexpr std::uint32_t kQuotaRecordSize = 1072;

enum Version : int { kNoVersion = -1, kVersion1 = 1, kVersion2 = 2, kXfs = 3 };
constexpr const char* kFileV1 = "/quota.user";
constexpr const char* kFileV2 = "/aquota.user";

constexpr int kGetV2 = QCMD(0x0d00, USRQUOTA);
constexpr int kGetV1 = QCMD(0x0300, USRQUOTA);
constexpr int kGetXfs = QCMD(Q_XGETQUOTA, USRQUOTA);

/// Room for the longest answer of the three calls.
union KernelAnswer {
  mem_dqblk v2;
  v1_disk_dqblk v1;
  fs_disk_quota xfs;
};
static_assert(sizeof(KernelAnswer) >= sizeof(v1_disk_dqblk) + 2 * sizeof(long));

bool Holds(const char* text, const char* part) { return std::strstr(text, part) != nullptr; }

/// Of the second format, kernel or file.
template <class Block>
QuotaFigures FromV2(const Block& block) {
  return {block.space >> 10U, block.blockSoftLimit, block.blockHardLimit,
          block.inodes,       block.inodeSoftLimit, block.inodeHardLimit};
}

QuotaFigures FromV1(const v1_disk_dqblk& block) {
  return {block.blocks, block.blockSoftLimit, block.blockHardLimit,
          block.inodes, block.inodeSoftLimit, block.inodeHardLimit};
}

/// XFS counts in half Kbytes.
QuotaFigures FromXfs(const fs_disk_quota& block) {
  return {block.d_bcount >> 1U, block.d_blk_softlimit >> 1U, block.d_blk_hardlimit >> 1U,
          block.d_icount,       block.d_ino_softlimit,       block.d_ino_hardlimit};
}

/// Of figures as the kernel gives them: half a Kbyte is something.
bool AreZero(const fs_disk_quota& block) {
  return (block.d_bcount | block.d_blk_softlimit | block.d_blk_hardlimit | block.d_icount |
          block.d_ino_softlimit | block.d_ino_hardlimit) == 0;
}

bool AreZero(const QuotaFigures& figures) {
  return (figures.usedKB | figures.softKB | figures.hardKB | figures.usedFiles | figures.softFiles |
          figures.hardFiles) == 0;
}

bool Exists(const std::string& path) {
  struct ::stat status {};
  return Os().stat(HostPath(path).c_str(), &status) == 0;
}

}  // namespace

QuotaSourceUser::QuotaSourceUser() {
  TraceEntry("QuotaSourceUser::QuotaSourceUser");
  ++s_statistics.constructed;
  m_pendingError.reset(Initialize(kMtab));
  if (m_pendingError != nullptr) {
    Trace(20, kError, "An error occured in function (QuotaSourceUser::Initialize).(rc=%1, arg1=%2)",
          AddressOf(m_pendingError.get()), kMtab);
  }
  TraceExit("QuotaSourceUser::QuotaSourceUser");
}

QuotaSourceUser::~QuotaSourceUser() {
  ++s_statistics.destroyed;
  if (m_quotaFd != -1) {
    CloseFile();
  }
}

UtlError* QuotaSourceUser::Initialize(const char* mtab) {
  if (m_mtab.Open(mtab)) {
    return nullptr;
  }
  const int code = errno;
  Trace(20, kError, "The error occurred by OS API(fopen). (en=%1,arg1=%2, arg2=%3)", code, mtab,
        "r");
  auto error = std::make_unique<UtlError>(__FILE__, __LINE__);
  error->GetStream() << "QuotaSourceUser::Initialize(fopen = " << mtab << ' ' << code;
  return error.release();
}

mntent* QuotaSourceUser::GetFsName(std::FILE* mtab) {
  while (mntent* mount = m_mtab.Next(mtab)) {
    const char* type = mount->mnt_type;
    if ((Holds(type, "ext3") || Holds(type, "ext2") || Holds(type, "xfs")) &&
        Holds(mount->mnt_opts, "usrquota")) {
      return mount;
    }
  }
  return nullptr;
}

int QuotaSourceUser::GetQuotaVersion(const mntent* mount) {
  m_device = mount->mnt_fsname;
  m_quotaOn = true;
  KernelAnswer answer{};
  if (Holds(mount->mnt_type, "xfs")) {
    m_quotaOn = AskKernel(kGetXfs, 0, &answer);
    return kXfs;
  }
  if (AskKernel(kGetV2, 0, &answer)) {
    return kVersion2;
  }
  if (AskKernel(kGetV1, 0, &answer)) {
    return kVersion1;
  }
  m_quotaOn = false;
  const std::string directory = mount->mnt_dir;
  if (Exists(directory + kFileV2)) {
    return kVersion2;
  }
  return Exists(directory + kFileV1) ? kVersion1 : kNoVersion;
}

void QuotaSourceUser::read(x_quota* record) {
  TraceEntry("QuotaSourceUser::read", AddressOf(record));
  m_more = false;
  while (m_pendingError == nullptr && !m_more) {
    if (m_quotaFd == -1 && !OpenNextFileSystem()) {
      break;
    }
    const ::passwd* user = Os().getpwent();
    if (user == nullptr) {
      CloseFile();
      continue;
    }
    m_currentUid = user->pw_uid;
    QuotaFigures figures;
    if (FindFigures(figures)) {
      GetQuotaRecord(figures, *record);
      m_more = true;
    }
  }
  TraceExit("QuotaSourceUser::read");
}

bool QuotaSourceUser::OpenNextFileSystem() {
  while (const mntent* mount = GetFsName(m_mtab.Stream())) {
    m_path = mount->mnt_dir;
    m_version = GetQuotaVersion(mount);
    if (m_version == kXfs) {
      m_path += '/';
      m_quotaFd = 0;
    } else if (m_version == kNoVersion || !OpenFile(m_version == kVersion2 ? kFileV2 : kFileV1)) {
      continue;
    }
    Os().setpwent();
    return true;
  }
  return false;
}

bool QuotaSourceUser::OpenFile(const char* name) {
  m_path += name;
  // A captured tree may hold a pipe in its place, which must not block.
  m_quotaFd =
      OpenHost(AT_FDCWD, HostPath(m_path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (m_quotaFd < 0) {
    m_quotaFd = -1;
    Trace(20, kError, "The error occurred by OS API(open). (en=%1,arg1=%2, arg2=%3)", errno, m_path,
          "O_RDONLY");
  }
  return m_quotaFd >= 0;
}

void QuotaSourceUser::CloseFile() {
  if (m_version != kXfs) {
    ::close(m_quotaFd);
  }
  m_quotaFd = -1;
  Os().endpwent();
}

bool QuotaSourceUser::AskKernel(int command, std::uint32_t uid, void* answer) const {
  return Os().quotactl(command, HostPath(m_device).c_str(), static_cast<int>(uid),
                       static_cast<char*>(answer)) == 0;
}

bool QuotaSourceUser::FindFigures(QuotaFigures& figures) const {
  if (m_quotaOn) {
    return AskFigures(figures);
  }
  if (m_version == kVersion1) {
    return ReadFileV1(figures) && !AreZero(figures);
  }
  v2_disk_dqblk entry{};
  if (m_version != kVersion2 || FindDQEntry(m_quotaFd, m_currentUid, &entry) == 0) {
    return false;
  }
  figures = FromV2(entry);
  return !AreZero(figures);
}

bool QuotaSourceUser::AskFigures(QuotaFigures& figures) const {
  KernelAnswer answer{};
  const int command = m_version == kXfs ? kGetXfs : m_version == kVersion2 ? kGetV2 : kGetV1;
  if (!AskKernel(command, m_currentUid, &answer)) {
    return false;
  }
  if (m_version == kXfs) {
    figures = FromXfs(answer.xfs);
    return !AreZero(answer.xfs);
  }
  figures = m_version == kVersion2 ? FromV2(answer.v2) : FromV1(answer.v1);
  return !AreZero(figures);
}

bool QuotaSourceUser::ReadFileV1(QuotaFigures& figures) const {
  v1_disk_dqblk block{};
  const std::int64_t offset = std::int64_t{m_currentUid} * std::int64_t{sizeof block};
  const ssize_t count = ::pread64(m_quotaFd, &block, sizeof block, offset);
  if (count < 0) {
    Trace(20, kError, "An error occurred in OS API read. (%1) (err=%2)", m_path, errno);
  }
  figures = FromV1(block);
  return count == static_cast<ssize_t>(sizeof block);
}

void QuotaSourceUser::GetQuotaRecord(const QuotaFigures& figures, x_quota& record) const {
  const auto low = [](std::uint64_t figure) { return static_cast<std::uint32_t>(figure); };
  record.size = kQuotaRecordSize;
  record.uid = m_currentUid;
  record.mountPoint = m_path;
  record.usedKB = low(figures.usedKB);
  record.softKB = low(figures.softKB);
  record.hardKB = low(figures.hardKB);
  record.usedFiles = low(figures.usedFiles);
  record.softFiles = low(figures.softFiles);
  record.hardFiles = low(figures.hardFiles);
  std::string_view(m_quotaOn ? "on" : "off").copy(record.state.data(), record.state.size() - 1);
}
