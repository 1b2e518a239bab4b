#include "records/modern/GroupPath.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace {

/// The same from one start of the agent to the next.
std::uint32_t NumberOfPath(std::string_view path) {
  std::uint32_t number = 2166136261U;
  for (const char letter : path) {
    number = (number ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return number;
}

}  // namespace

std::string ShownGroupPath(std::string_view path, std::size_t most) {
  if (path.size() <= most) {
    return std::string(path);
  }
  std::array<char, 16> head{};
  std::snprintf(head.data(), head.size(), "...%08x...", NumberOfPath(path));
  std::string shown(head.data());
  return shown.append(path.substr(path.size() - (most - shown.size())));
}
