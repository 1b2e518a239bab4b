#include "gate/access/CheckedFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "gate/access/AccessError.h"
#include "support/KeyFileLimit.h"
#include "support/TextFile.h"

namespace {

std::int64_t Nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

FileStamp StampOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return {};
  }
  return {static_cast<std::int64_t>(status.st_dev), status.st_ino, status.st_size,
          Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim)};
}

CheckedFile ReadCheckedFile(const std::string& path) {
  const TextFilePtr stream = OpenTextFile(path);
  struct stat status {};
  if (stream == nullptr || ::fstat(::fileno(stream.get()), &status) != 0) {
    const int code = errno;
    const std::string why =
        path + ": " + (code == EINVAL ? "it is no regular file" : std::strerror(code));
    if (code == EMFILE || code == ENFILE || code == ENOMEM || code == EINTR) {
      throw PassingAccessError(why);
    }
    throw AccessError(why);
  }
  CheckedFile file{{}, status.st_mode, status.st_uid, status.st_gid};
  // One byte more tells a file that is too long, whatever its size was said to be.
  file.text.resize(kMostKeyFileBytes + 1);
  file.text.resize(std::fread(file.text.data(), 1, file.text.size(), stream.get()));
  if (std::ferror(stream.get()) != 0) {
    throw AccessError(path + ": it can't be read");
  }
  if (file.text.size() > kMostKeyFileBytes) {
    throw AccessError(path + ": it is longer than " + std::to_string(kMostKeyFileBytes) + " bytes");
  }
  return file;
}
