#include "helpers/bpf/TaskPin.h"

#include <bpf/bpf.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "support/TaskFigures.h"

namespace {

constexpr ::mode_t kFolderMode = 0750;
constexpr ::mode_t kAllRights = 07777;

std::string Failure(const std::string& path, int error = errno) {
  return path + ": " + std::strerror(error);
}

bool IsBpfFileSystem(int folder) {
  struct ::statfs status {};
  return ::fstatfs(folder, &status) == 0 && std::cmp_equal(status.f_type, BPF_FS_MAGIC);
}

/// Whether the folder is this user's, which is root, and nobody else may write there.
bool IsOwnFolder(int folder) {
  struct ::stat status {};
  return ::fstat(folder, &status) == 0 && status.st_uid == ::geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Size and version from the first structure; they stay 0 if there is none or it is too short.
void ReadFirst(int tasks, PinState& state) {
  TaskFigures figures{};
  const ::ssize_t size = ::read(tasks, &figures, sizeof figures);
  if (size >= static_cast<::ssize_t>(offsetof(TaskFigures, present))) {
    state.size = figures.size;
    state.version = figures.version;
  }
}

}  // namespace

TaskPin::TaskPin(std::string folder) : m_folder(std::move(folder)) {
  while (m_folder.size() > 1 && m_folder.back() == '/') {
    m_folder.pop_back();
  }
}

std::string TaskPin::LastName() const { return m_folder.substr(m_folder.rfind('/') + 1); }

Descriptor TaskPin::OpenParent(std::string& reason) const {
  const std::string path = m_folder.substr(0, m_folder.rfind('/') + 1);
  Descriptor parent(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent.IsOpen()) {
    reason = Failure(path);
  } else if (!IsBpfFileSystem(parent.Get())) {
    reason = path + " is on no BPF file system: mount -t bpf bpf /sys/fs/bpf";
    return {};
  }
  return parent;
}

Descriptor TaskPin::OpenFolder(std::string& reason) const {
  const Descriptor parent = OpenParent(reason);
  if (!parent.IsOpen()) {
    return {};
  }
  Descriptor folder(
      ::openat(parent.Get(), LastName().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.IsOpen()) {
    reason = errno == ENOENT ? std::string() : Failure(m_folder);
  }
  return folder;
}

bool TaskPin::PlaceNew(int folder, int link, ::gid_t group, ::mode_t mode,
                       std::string& reason) const {
  // The folder itself, whatever stands at its path by now.
  const std::string place = "/proc/self/fd/" + std::to_string(folder) + "/" + kNewName;
  // What a helper has left that was killed here.
  ::unlinkat(folder, kNewName, 0);
  if (::bpf_obj_pin(link, place.c_str()) != 0) {
    reason = "the iterator can't be pinned at " + Failure(m_folder);
    return false;
  }
  if (::fchownat(folder, kNewName, ::geteuid(), group, AT_SYMLINK_NOFOLLOW) == 0 &&
      ::fchmodat(folder, kNewName, mode, 0) == 0 &&
      ::renameat(folder, kNewName, folder, kName) == 0) {
    return true;
  }
  reason = Failure(Path());
  ::unlinkat(folder, kNewName, 0);
  return false;
}

bool TaskPin::Replace(int link, ::gid_t group, ::mode_t mode, std::string& reason) {
  const Descriptor parent = OpenParent(reason);
  if (!parent.IsOpen()) {
    return false;
  }
  const bool isMade = ::mkdirat(parent.Get(), LastName().c_str(), kFolderMode) == 0;
  if (!isMade && errno != EEXIST) {
    reason = Failure(m_folder);
    return false;
  }
  const Descriptor folder = OpenFolder(reason);
  if (!folder.IsOpen() && reason.empty()) {
    reason = Failure(m_folder, ENOENT);  // somebody has taken it away meanwhile
  }
  if (folder.IsOpen() && !IsOwnFolder(folder.Get())) {
    reason = m_folder + " is another user's, or others may write there";
  } else if (folder.IsOpen() && (::flock(folder.Get(), LOCK_EX) != 0 ||
                                 ::fchown(folder.Get(), ::geteuid(), group) != 0 ||
                                 ::fchmod(folder.Get(), kFolderMode) != 0)) {
    reason = Failure(m_folder);
  } else if (folder.IsOpen() && PlaceNew(folder.Get(), link, group, mode, reason)) {
    return true;
  }
  if (isMade) {
    ::unlinkat(parent.Get(), LastName().c_str(), AT_REMOVEDIR);
  }
  return false;
}

bool TaskPin::Remove(std::string& reason) {
  struct ::stat status {};
  // There may be no file system either that it could stand on.
  if (::lstat(m_folder.c_str(), &status) != 0 && errno == ENOENT) {
    return true;
  }
  const Descriptor folder = OpenFolder(reason);
  if (!folder.IsOpen()) {
    return reason.empty();
  }
  for (const char* name : {kName, kNewName}) {
    if (::unlinkat(folder.Get(), name, 0) != 0 && errno != ENOENT) {
      reason = Failure(m_folder + "/" + name);
      return false;
    }
  }
  // What others keep there stays, and so does the folder.
  if (::rmdir(m_folder.c_str()) != 0 && errno != ENOTEMPTY && errno != ENOENT) {
    reason = Failure(m_folder);
    return false;
  }
  return true;
}

bool TaskPin::Look(PinState& state, std::string& reason) const {
  const Descriptor folder = OpenFolder(reason);
  if (!folder.IsOpen()) {
    return reason.empty();
  }
  struct ::stat status {};
  if (::fstatat(folder.Get(), kName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) {
      return true;
    }
    reason = Failure(Path());
    return false;
  }
  state.isPinned = S_ISREG(status.st_mode);
  state.user = status.st_uid;
  state.group = status.st_gid;
  state.mode = status.st_mode & kAllRights;
  const Descriptor tasks(::openat(folder.Get(), kName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (tasks.IsOpen()) {
    ReadFirst(tasks.Get(), state);
  }
  return true;
}
