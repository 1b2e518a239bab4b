#include "support/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/Descriptor.h"
#include "support/WholeTransfer.h"

namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kModeBits = 07777;

/// Leaves `errno` as it is.
std::string Because(const std::string& what) {
  const int reason = errno;
  std::string text = what + ": " + std::strerror(reason);
  errno = reason;
  return text;
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Removes what could not be finished; `errno` still tells why.
void RemoveFailed(const std::string& path) {
  const int reason = errno;
  ::unlink(path.c_str());
  errno = reason;
}

/// Gives the new file what the model has. Another owner's file may be replaced by the folder's
/// owner, who then can't give the new one away: that is no failure.
bool TakeOver(const std::string& model, int fd) {
  struct stat old {};
  struct stat target {};
  if (::lstat(model.c_str(), &old) != 0) {
    return errno == ENOENT && ::fchmod(fd, kNewFileMode) == 0;
  }
  if (S_ISLNK(old.st_mode)) {
    // Somebody else may have put it there: what is behind it lends no owner and no set-id bit.
    return ::fchmod(
               fd, ::stat(model.c_str(), &target) == 0 ? target.st_mode & 0666 : kNewFileMode) == 0;
  }
  const bool isOwner = ::fchown(fd, old.st_uid, old.st_gid) == 0;
  // Set-id bits meant for another owner are not taken over.
  const mode_t bits = isOwner ? kModeBits : mode_t{0777};
  return ::fchmod(fd, old.st_mode & bits) == 0;
}

/// Writes the file that is to take the place of another; it is gone again if that fails.
bool WriteFresh(const std::string& model, const std::string& fresh, std::string_view content,
                std::string& error) {
  ::unlink(fresh.c_str());
  const Descriptor file(
      ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.IsOpen()) {
    error = Because(fresh + ": can't be made");
    return false;
  }
  if (TakeOver(model, file.Get()) && WriteFully(file.Get(), content) && ::fsync(file.Get()) == 0) {
    return true;
  }
  error = Because(fresh + ": can't be written");
  RemoveFailed(fresh);
  return false;
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view content, std::string& error) {
  return ReplaceFileLike(path, path, content, error);
}

bool ReplaceFileLike(const std::string& model, const std::string& path, std::string_view content,
                     std::string& error) {
  const std::string fresh = path + ".new";
  if (!WriteFresh(model, fresh, content, error)) {
    return false;
  }
  if (::rename(fresh.c_str(), path.c_str()) != 0) {
    error = Because(path + ": can't be replaced");
    RemoveFailed(fresh);
    return false;
  }
  if (!SyncFolderOf(path)) {
    error = Because(path + ": its folder can't be synced, so that a crash may undo the write");
  }
  return true;
}

bool SyncFolderOf(const std::string& path) {
  const Descriptor folder(::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Some file systems have no sync of folders and say so by EINVAL.
  return folder.IsOpen() && (::fsync(folder.Get()) == 0 || errno == EINVAL);
}

std::string BehindLinks(const std::string& path) {
  // A relative path stays with the working directory, whatever takes the name of that one.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
    return path;
  }
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  return real == nullptr ? path : real.get();
}
