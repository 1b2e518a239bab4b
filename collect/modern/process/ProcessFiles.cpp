#include "collect/modern/process/ProcessFiles.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>

#include "collect/modern/process/ProcessText.h"
#include "support/Descriptor.h"
#include "support/TextHash.h"
#include "support/Uninterrupted.h"

ssize_t ReadOnce(const ProcessWalk& walk, const char* path, std::span<char> buffer) {
  const int descriptor = walk.Open(path);
  if (descriptor < 0) {
    return -1;
  }
  const ssize_t length =
      Uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
  const int code = errno;
  ::close(descriptor);
  errno = code;
  return length;
}

void ReadArguments(const ProcessWalk& walk, ProcessFolder& folder, std::span<char> field) {
  const ssize_t length = ReadOnce(walk, folder.PathOf("cmdline"), field);
  const std::size_t used =
      length > 0 ? TidyArguments(field.first(static_cast<std::size_t>(length))) : 0;
  std::fill(field.begin() + static_cast<std::ptrdiff_t>(used), field.end(), '\0');
}

std::uint64_t ReadFolderMark(const ProcessWalk& walk, ProcessFolder& folder) {
  std::array<char, PATH_MAX> target;
  const ssize_t length = walk.ReadLink(folder.PathOf("cwd"), target.data(), target.size());
  return length > 0 ? TextHash({target.data(), static_cast<std::size_t>(length)}) : 0;
}
