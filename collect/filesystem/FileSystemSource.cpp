#include "collect/filesystem/FileSystemSource.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/Switches.h"

namespace {

/// Whether the mount holds no files of its own that anybody counts.
bool IsPassedOver(const mntent& mount) {
  const std::string_view directory = mount.mnt_dir;
  const std::string_view type = mount.mnt_type;
  if (directory == "/proc" || directory.starts_with("/proc/") ||
      std::strstr(mount.mnt_fsname, "(pid") != nullptr || type == "devpts") {
    return true;
  }
  return g_kernelVariant == kNewestKernel && (type == "sysfs" || type == "rpc_pipefs");
}

void FillFigures(x_free_space& record, const struct ::statfs64& figures) {
  static_assert(sizeof record.fsid == sizeof figures.f_fsid);
  std::memcpy(&record.fsid, &figures.f_fsid, sizeof record.fsid);
  record.blockSize = static_cast<std::uint32_t>(figures.f_bsize);
  record.fragmentSize = record.blockSize;
  record.blocks = figures.f_blocks;
  record.blocksFree = figures.f_bfree;
  record.blocksAvail = figures.f_bavail;
  record.files = figures.f_files;
  record.filesFree = figures.f_ffree;
  record.filesAvail = figures.f_ffree;
}

void FillNames(x_free_space& record, const mntent& mount, const std::string& nodeName) {
  const std::string_view device = mount.mnt_fsname;
  // The server may be an address in brackets, which has colons of its own.
  const std::size_t bracket = device.starts_with('[') ? device.find("]:") : std::string_view::npos;
  const std::size_t colon = bracket == std::string_view::npos ? device.find(':') : bracket + 1;
  record.remote = colon == std::string_view::npos ? 0 : 1;
  record.host = record.remote == 0 ? nodeName : device.substr(0, colon);
  record.remotePath = device.substr(record.remote == 0 ? 0 : colon + 1);
  record.mountPoint = mount.mnt_dir;
  std::string_view(mount.mnt_type).copy(record.fsType.data(), record.fsType.size() - 1);
}

}  // namespace

FileSystemSourceUser::FileSystemSourceUser() {
  constexpr const char* kFunction = "FileSystemSourceUser::FileSystemSourceUser";
  TraceEntry(kFunction);
  ++s_statistics.constructed;
  struct ::utsname host {};
  if (!m_mtab.Open(kMtab)) {
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)", errno,
          kMtab, "r");
    m_pendingError = std::make_unique<UtlError>("Unable to open /etc/mtab", __FILE__, __LINE__);
  } else if (Os().uname(&host) < 0) {
    const int code = errno;
    m_pendingError = std::make_unique<UtlError>(__FILE__, __LINE__);
    m_pendingError->GetStream() << '(' << kFunction << ") uname() failed! errno:" << code;
  }
  m_nodeName = host.nodename;
  if (m_pendingError == nullptr && MountQuestion::IsLimited()) {
    AskAll();
  }
  TraceExit(kFunction);
}

void FileSystemSourceUser::AskAll() {
  std::vector<std::string> mountPoints;
  while (const mntent* mount = m_mtab.Next()) {
    if (!IsPassedOver(*mount)) {
      mountPoints.emplace_back(mount->mnt_dir);
    }
  }
  m_question.AskAll(mountPoints);
  if (!m_mtab.Rewind()) {
    Trace(20, kError, "The error occurred by OS API(fseek). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, kMtab, 0, "SEEK_SET");
  }
}

void FileSystemSourceUser::read(x_free_space* record) {
  TraceEntry("FileSystemSourceUser::read", AddressOf(record));
  m_more = false;
  while (m_pendingError == nullptr && !m_more) {
    const mntent* mount = m_mtab.Next();
    if (mount == nullptr) {
      if (!m_mtab.Rewind()) {
        Trace(20, kError, "The error occurred by OS API(fseek). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
              errno, kMtab, 0, "SEEK_SET");
      }
      break;
    }
    if (IsPassedOver(*mount)) {
      continue;
    }
    const MountReply reply = m_question.Ask(mount->mnt_dir);
    if (reply.answer == MountAnswer::kFailed) {
      Trace(20, kError, "The error occurred by OS API(statfs). (en=%1, arg1=%2, arg2=%3)",
            reply.code, mount->mnt_dir, AddressOf(&reply.figures));
    } else if (reply.answer == MountAnswer::kAnswered) {
      FillNames(*record, *mount, m_nodeName);
      FillFigures(*record, reply.figures);
      m_more = true;
    }
  }
  TraceExit("FileSystemSourceUser::read");
}
