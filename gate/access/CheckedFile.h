#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/KeyFileLimit.h"

/// What changes when a file is written or replaced, or when its rights are.
struct FileStamp {
  std::int64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since the epoch, as the next
  std::int64_t changed = 0;

  friend bool operator==(const FileStamp& left, const FileStamp& right) = default;
};

/// A file as it was when it was opened.
struct CheckedFile {
  std::string text;
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
};

/// The stamp of what stands at a path now; that of nothing if there is none.
[[nodiscard]] FileStamp StampOf(const std::string& path);

/// A whole regular file of at most so many bytes; neither a pipe nor an endless file holds it up.
/// Throws AccessError.
[[nodiscard]] CheckedFile ReadCheckedFile(const std::string& path,
                                          std::size_t most = kMostKeyFileBytes);
