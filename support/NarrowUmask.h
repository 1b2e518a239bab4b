#pragma once

#include <sys/stat.h>

/// While it lives, what the process makes has no rights beyond `mode`: others are kept out between
/// the making of a file and any change of its mode. The mask is the whole process's, so no other
/// thread may make files.
class NarrowUmask {
 public:
  explicit NarrowUmask(mode_t mode) : m_former(::umask(0777 & ~mode)) {}
  ~NarrowUmask() { ::umask(m_former); }
  NarrowUmask(const NarrowUmask&) = delete;
  NarrowUmask& operator=(const NarrowUmask&) = delete;

 private:
  mode_t m_former;
};
