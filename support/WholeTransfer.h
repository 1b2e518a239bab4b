#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>

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

/// Writes all of the text, however little is taken at a time. False with errno set.
[[nodiscard]] inline bool WriteFully(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t piece =
        Uninterrupted([&] { return ::write(descriptor, text.data(), text.size()); });
    if (piece <= 0) {
      errno = piece == 0 ? EIO : errno;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(piece));
  }
  return true;
}
