#pragma once

#include <dirent.h>

#include <memory>

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
/// Owns one stream of a directory's entries.
using DirectoryPtr = std::unique_ptr<DIR, CloseDirectory>;
