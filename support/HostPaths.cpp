#include "support/HostPaths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "support/Descriptor.h"
#include "support/HostReads.h"

namespace {

std::string WithoutTrailingSlash(std::string root) {
  while (!root.empty() && root.back() == '/') {
    root.pop_back();
  }
  return root;
}

std::string FromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  return value == nullptr ? std::string{} : WithoutTrailingSlash(value);
}

std::string& HostRoot() {
  static std::string root = FromEnvironment("QMT_HOST_ROOT");
  return root;
}

std::string& ProductRoot() {
  static std::string root = FromEnvironment("QMT_PRODUCT_ROOT");
  return root;
}

std::string Below(const std::string& root, std::string_view path) {
  std::string place;
  if (path.empty() || path.front() != '/') {
    return place.assign(path);
  }
  place.reserve(root.size() + path.size());
  return place.append(root).append(path);
}

}  // namespace

std::string HostPath(std::string_view absolute) { return Below(HostRoot(), absolute); }
std::string ProductPath(std::string_view absolute) { return Below(ProductRoot(), absolute); }
void SetHostRoot(std::string root) { HostRoot() = WithoutTrailingSlash(std::move(root)); }
void SetProductRoot(std::string root) { ProductRoot() = WithoutTrailingSlash(std::move(root)); }

bool IsRunningHost() {
  return g_hostReads == nullptr ? HostRoot().empty() : g_hostReads->IsRunningHost();
}

std::string HostMountTable() {
  struct ::stat own {};
  struct ::stat first {};
  const std::string ofFirst = HostPath("/proc/1/mounts");
  const bool isElsewhere =
      StatHost(AT_FDCWD, HostPath("/proc/self/ns/mnt").c_str(), &own) == 0 &&
      StatHost(AT_FDCWD, HostPath("/proc/1/ns/mnt").c_str(), &first) == 0 &&
      (own.st_ino != first.st_ino || own.st_dev != first.st_dev) &&
      Descriptor(OpenHost(AT_FDCWD, ofFirst.c_str(), O_RDONLY | O_CLOEXEC)).IsOpen();
  return isElsewhere ? ofFirst : HostPath("/etc/mtab");
}
