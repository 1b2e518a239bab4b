#include "support/HostPaths.h"

#include <cstdlib>

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
