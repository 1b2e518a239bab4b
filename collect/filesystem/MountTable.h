#pragma once

#include <mntent.h>

#include <vector>

#include "support/TextFile.h"

inline constexpr const char* kMtab = "/etc/mtab";

/// The host's table of mounts, read entry by entry.
class MountTable {
 public:
  /// `path` is kMtab. False with `errno` set if it is no file that can be read.
  [[nodiscard]] bool Open(const char* path);
  [[nodiscard]] std::FILE* Stream() const { return m_stream.get(); }
  /// The next entry, with blanks and kin decoded; null at the end. It lives until the next call.
  [[nodiscard]] mntent* Next() { return Next(m_stream.get()); }
  [[nodiscard]] mntent* Next(std::FILE* stream);
  /// Goes back to the first entry; false with `errno` set on failure.
  [[nodiscard]] bool Rewind();

 private:
  TextFilePtr m_stream;
  mntent m_entry{};
  std::vector<char> m_line;
};
