#include "support/SecretFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t kLongestSecret = 4096;

}  // namespace

SecretModeFault FaultOfSecretMode(mode_t mode) {
  if ((mode & S_IRWXO) != 0) {
    return SecretModeFault::kOthersReach;
  }
  return (mode & (S_IWGRP | S_IXGRP)) != 0 ? SecretModeFault::kGroupWrites : SecretModeFault::kNone;
}

std::string SecretLineOf(std::string text) {
  text.resize(std::min(text.size(), text.find_first_of("\r\n")));
  const bool isPrintable = std::ranges::all_of(
      text, [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != '\x7f'; });
  return isPrintable && text.size() <= kLongestSecret ? text : "";
}
