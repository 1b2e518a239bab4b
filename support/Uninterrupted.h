#pragma once

#include <cerrno>

/// The result of a system call that tells failure by a negative one, made again for as long as a
/// signal interrupts it.
template <class Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}
