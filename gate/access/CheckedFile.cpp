#include "gate/access/CheckedFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "gate/access/AccessError.h"
#include "support/TextFile.h"

namespace {

std::int64_t Nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// All that a stream holds, but one byte more than `most` at most, which tells one that is too
/// long, whatever its size was said to be.
std::string ReadSome(std::FILE* stream, std::size_t expected, std::size_t most) {
  std::string text;
  std::size_t size = 0;
  while (size == text.size() && size <= most) {
    text.resize(std::min(std::max(expected + 1, 2 * size), most + 1));
    size += std::fread(text.data() + size, 1, text.size() - size, stream);
  }
  text.resize(size);
  return text;
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

CheckedFile ReadCheckedFile(const std::string& path, std::size_t most) {
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
  CheckedFile file{ReadSome(stream.get(), static_cast<std::size_t>(status.st_size), most),
                   status.st_mode, status.st_uid, status.st_gid};
  if (std::ferror(stream.get()) != 0) {
    throw AccessError(path + ": it can't be read");
  }
  if (file.text.size() > most) {
    throw AccessError(path + ": it is longer than " + std::to_string(most) + " bytes");
  }
  return file;
}
