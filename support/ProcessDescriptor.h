#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "support/Descriptor.h"

/// A descriptor of a child (pidfd_open), which becomes readable at its end. Throws
/// std::system_error.
[[nodiscard]] inline Descriptor OpenProcess(::pid_t pid) {
  // The header of the C library's own function says nothing to C++ programs of how it links.
  Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U)));
  if (!process.IsOpen()) {
    throw std::system_error(errno, std::generic_category());
  }
  return process;
}
