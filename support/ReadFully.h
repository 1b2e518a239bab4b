#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <span>

#include "support/Uninterrupted.h"

/// Reads until `bytes` are full or the file ends, however little comes at a time: how many have
/// come, or -1 with errno set.
[[nodiscard]] inline ssize_t ReadFully(int descriptor, std::span<char> bytes) {
  std::size_t got = 0;
  while (got < bytes.size()) {
    const ssize_t piece =
        Uninterrupted([&] { return ::read(descriptor, bytes.data() + got, bytes.size() - got); });
    if (piece < 0) {
      return -1;
    }
    if (piece == 0) {
      break;
    }
    got += static_cast<std::size_t>(piece);
  }
  return static_cast<ssize_t>(got);
}
