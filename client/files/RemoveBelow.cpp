#include "client/files/RemoveBelow.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/Descriptor.h"
#include "support/Directory.h"

namespace {

/// None, too, if the folder can't be read.
std::vector<std::string> NamesIn(int folder) {
  Descriptor copy(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const DirectoryPtr entries(copy.IsOpen() ? ::fdopendir(copy.Get()) : nullptr);
  std::vector<std::string> names;
  if (entries == nullptr) {
    return names;
  }
  static_cast<void>(copy.Release());
  while (const ::dirent* entry = ::readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      names.emplace_back(name);
    }
  }
  return names;
}

}  // namespace

void RemoveBelow(int folder, const char* name) {
  if (::unlinkat(folder, name, 0) == 0) {
    return;
  }
  const Descriptor inner(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (inner.IsOpen()) {
    EmptyFolder(inner.Get());
  }
  ::unlinkat(folder, name, AT_REMOVEDIR);
}

void EmptyFolder(int folder) {
  for (const std::string& name : NamesIn(folder)) {
    RemoveBelow(folder, name.c_str());
  }
}
