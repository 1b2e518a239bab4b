#include "local/alarm/CommandFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/Descriptor.h"

namespace {

const char* CommandErrno() {
  const char* reason = ::strerrordesc_np(errno);
  return reason == nullptr ? "it can't be looked at" : reason;
}

bool BelongsToOthers(const struct stat& file, uid_t user) {
  return file.st_uid != 0 && file.st_uid != user;
}

bool IsOpenToOthers(const struct stat& file) { return (file.st_mode & (S_IWGRP | S_IWOTH)) != 0; }

/// Cuts the path down to its folder.
const char* CommandFolderFault(char* path, uid_t user) {
  char* const slash = std::strrchr(path, '/');
  if (slash == nullptr) {
    return "its folder is not known";
  }
  slash[slash == path ? 1 : 0] = '\0';
  const Descriptor folder(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!folder.IsOpen() || ::fstat(folder.Get(), &status) != 0) {
    return CommandErrno();
  }
  return BelongsToOthers(status, user) ? "its folder belongs to another user"
         : IsOpenToOthers(status)      ? "its folder may be written to by others"
                                       : nullptr;
}

}  // namespace

const char* CommandFault(const char* path, uid_t user) {
  const Descriptor file(::open(path, O_PATH | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    return CommandErrno();
  }
  if (!S_ISREG(status.st_mode)) {
    return "it is no regular file";
  }
  if (BelongsToOthers(status, user)) {
    return "it belongs to another user";
  }
  if (IsOpenToOthers(status)) {
    return "it may be written to by others";
  }
  std::array<char, PATH_MAX> name{};
  if (std::strlen(path) >= name.size()) {
    return "its path is too long";
  }
  std::strcpy(name.data(), path);
  if (const char* fault = CommandFolderFault(name.data(), user); fault != nullptr) {
    return fault;
  }
  std::array<char, 64> link{};
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file.Get());
  const ssize_t size = ::readlink(link.data(), name.data(), name.size() - 1);
  if (size < 0) {
    return CommandErrno();
  }
  name[static_cast<std::size_t>(size)] = '\0';
  return CommandFolderFault(name.data(), user);
}
