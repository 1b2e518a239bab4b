#include "collect/device/DeviceMap.h"

#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <string_view>

#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kPseudoTerminals = "/dev/pts";
constexpr std::string_view kDevices = "/dev/";
constexpr std::uint64_t kNoDevice = ~std::uint64_t{0};

/// Names of whatever the asking process has open there.
bool IsStandardStream(std::string_view name) {
  return name == "stdin" || name == "stdout" || name == "stderr";
}

}  // namespace

DeviceMap& DeviceMap::Instance() {
  static DeviceMap map;
  return map;
}

const char* DeviceMap::Name(std::uint64_t rdev) {
  constexpr const char* kUnknown = "??";
  if (rdev == kNoDevice) {
    return kUnknown;
  }
  auto found = m_names.find(rdev);
  if (found == m_names.end()) {
    if (m_filled) {
      ScanDirectory(kPseudoTerminals);
    } else {
      Fill();
    }
    found = m_names.find(rdev);
  }
  return found == m_names.end() ? kUnknown : found->second.c_str();
}

void DeviceMap::Fill() {
  m_filled = true;
  ScanDirectory(kPseudoTerminals);
  ScanDirectory("/dev");
}

void DeviceMap::ScanDirectory(const char* directory) {
  HostEntries entries(HostPath(directory));
  if (!entries.IsOpen()) {
    return;
  }
  std::string path;
  while (const ::dirent* entry = entries.Next()) {
    path.assign(directory).append("/").append(entry->d_name);
    struct ::stat status {};
    if (Os().stat(HostPath(path).c_str(), &status) != 0) {
      const int code = errno;
      Trace(20, kError, "An error occurred in stat(%1). (%2) (err=%3)", path, std::strerror(code),
            code);
      continue;
    }
    const std::string_view name = std::string_view(path).substr(kDevices.size());
    if (S_ISCHR(status.st_mode) && !IsStandardStream(name)) {
      m_names.try_emplace(status.st_rdev, name);
    }
  }
}

void DeviceMap::clear() {
  m_names.clear();
  m_filled = false;
}

void DeviceMap::dump(std::FILE* out) const {
  std::fputs("DUMP:\n", out);
  for (const auto& [rdev, name] : m_names) {
    std::fprintf(out, "%s %" PRIx64 "\n", name.c_str(), rdev);
  }
}
