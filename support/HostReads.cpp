#include "support/HostReads.h"

#include <cerrno>

HostEntries::HostEntries(int folder) : m_directory(folder < 0 ? nullptr : ::fdopendir(folder)) {
  if (m_directory == nullptr) {
    if (folder >= 0) {
      const int code = errno;
      ::close(folder);
      errno = code;
    }
    return;
  }
  if (g_hostReads != nullptr) {
    m_listed = std::make_unique<std::vector<::dirent>>();
    if (!g_hostReads->List(Folder(), *m_listed)) {
      const int code = errno;
      m_directory.reset();
      errno = code;
    }
  }
}

const ::dirent* HostEntries::Next() {
  if (m_listed == nullptr) {
    return ::readdir(m_directory.get());
  }
  return m_place < m_listed->size() ? &(*m_listed)[m_place++] : nullptr;
}

void HostEntries::Rewind() {
  m_place = 0;
  if (m_listed == nullptr) {
    ::rewinddir(m_directory.get());
  }
}
