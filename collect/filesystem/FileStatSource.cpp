#include "collect/filesystem/FileStatSource.h"

#include <sys/stat.h>

#include <cerrno>

#include "collect/filesystem/FileStatArgs.h"
#include "support/HostPaths.h"

namespace {

constexpr std::size_t kFileStatFixedSize = 97;

tagUTIME Seconds(std::time_t time) { return {static_cast<std::int32_t>(time), 0}; }

void Fill(x_filestat& record, const struct ::stat& status) {
  record.size = static_cast<std::uint32_t>(record.path.size() + kFileStatFixedSize);
  record.device = status.st_dev;
  record.mode = status.st_mode;
  record.uid = status.st_uid;
  record.gid = status.st_gid;
  record.inode = static_cast<std::uint32_t>(status.st_ino);
  record.fileSize = status.st_size;
  record.links = static_cast<std::uint32_t>(status.st_nlink);
  record.accessTime = Seconds(status.st_atime);
  record.modifyTime = Seconds(status.st_mtime);
  record.changeTime = Seconds(status.st_ctime);
}

}  // namespace

FileStatSourceUser::FileStatSourceUser() {
  TraceEntry("FileStatSourceUser::FileStatSourceUser");
  ++s_statistics.constructed;
  TraceExit("FileStatSourceUser::FileStatSourceUser");
}

void FileStatSourceUser::read(x_filestat* record) {
  TraceEntry("FileStatSourceUser::read", AddressOf(record));
  m_more = false;
  if (const char* path = m_pendingError == nullptr ? FileStatArgs::Next() : nullptr;
      path != nullptr) {
    record->path = path;
    struct ::stat status {};
    if (Os().stat(HostPath(path).c_str(), &status) == 0) {
      Fill(*record, status);
      m_more = true;
    } else {
      const int code = errno;
      m_pendingError = std::make_unique<UtlError>(__FILE__, __LINE__);
      m_pendingError->GetStream() << "FileStatUser::read()  Cannot stat file: " << path
                                  << "errno: " << code;
    }
  }
  TraceExit("FileStatSourceUser::read");
}
