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

std::string_view ReadText(int descriptor, std::span<char> room, std::string* more) {
  constexpr std::size_t kMostText = std::size_t{1} << 20U;
  const auto readInto = [&](char* place, std::size_t size) {
    return Uninterrupted([&] { return ::read(descriptor, place, size); });
  };
  const ssize_t first = readInto(room.data(), room.size());
  if (first <= 0) {
    errno = first < 0 ? errno : 0;
    return {};
  }
  auto size = static_cast<std::size_t>(first);
  if (more == nullptr || size < room.size()) {
    return {room.data(), size};
  }
  more->assign(room.data(), size);
  while (more->size() == size && size < kMostText) {
    more->resize(std::min(2 * size, kMostText));
    const ssize_t next = readInto(more->data() + size, more->size() - size);
    size += static_cast<std::size_t>(std::max<ssize_t>(next, 0));
  }
  more->resize(size);
  return *more;
}

std::string_view ReadText(const ProcessWalk& walk, const char* path, std::span<char> room,
                          std::string* more) {
  const Descriptor file(walk.Open(path));
  return file.IsOpen() ? ReadText(file.Get(), room, more) : std::string_view();
}

void ReadArguments(const ProcessWalk& walk, ProcessFolder& folder, std::span<char> field) {
  const std::size_t length = ReadText(walk, folder.PathOf("cmdline"), field).size();
  const std::size_t used = TidyArguments(field.first(length));
  std::fill(field.begin() + static_cast<std::ptrdiff_t>(used), field.end(), '\0');
}

std::uint64_t ReadFolderMark(const ProcessWalk& walk, ProcessFolder& folder) {
  std::array<char, PATH_MAX> target;
  const ssize_t length = walk.ReadLink(folder.PathOf("cwd"), target.data(), target.size());
  return length > 0 ? TextHash({target.data(), static_cast<std::size_t>(length)}) : 0;
}
