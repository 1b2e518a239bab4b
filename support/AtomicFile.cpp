#include "support/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/Descriptor.h"

namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kModeBits = 07777;

std::string Because(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Gives the new file what the old one had. Another owner's file may be replaced by the folder's
/// owner, who then can't give the new one away: that is no failure.
bool TakeOver(const std::string& oldPath, int fd) {
  struct stat old {};
  if (::stat(oldPath.c_str(), &old) != 0) {
    return errno == ENOENT && ::fchmod(fd, kNewFileMode) == 0;
  }
  const bool isOwner = ::fchown(fd, old.st_uid, old.st_gid) == 0;
  // Set-id bits meant for another owner are not taken over.
  const mode_t bits = isOwner ? kModeBits : mode_t{0777};
  return ::fchmod(fd, old.st_mode & bits) == 0;
}

/// Writes the temporary file; it is gone again if that fails.
bool WriteTemporary(const std::string& path, std::string_view content, std::string& temporary,
                    std::string& error) {
  temporary = path + ".XXXXXX";
  Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.IsOpen()) {
    error = Because(path + ": can't make a temporary file beside it");
    return false;
  }
  if (TakeOver(path, file.Get()) && WriteAll(file.Get(), content) && ::fsync(file.Get()) == 0) {
    return true;
  }
  error = Because(temporary + ": can't be written");
  ::unlink(temporary.c_str());
  return false;
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view content, std::string& error) {
  const std::string folder = FolderOf(path);
  const Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.IsOpen()) {
    error = Because(folder + ": can't be opened");
    return false;
  }
  std::string temporary;
  if (!WriteTemporary(path, content, temporary, error)) {
    return false;
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    error = Because(path + ": can't be replaced");
    ::unlink(temporary.c_str());
    return false;
  }
  // Some file systems have no sync of folders and say so by EINVAL.
  if (::fsync(directory.Get()) != 0 && errno != EINVAL) {
    error = Because(folder + ": can't be synced, so that a crash may undo the write of " + path);
  }
  return true;
}
