#include "helpers/bpf/Reasons.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "support/HostPaths.h"

namespace {

/// The first line of one of the kernel's files; empty if there is none.
std::string FirstLine(const char* path) {
  std::string line;
  std::ifstream file(HostPath(path));
  std::getline(file, line);
  return line;
}

/// Whether the rights of root count for the kernel itself: they don't in a container that has users
/// of its own.
bool IsInitialUserNamespace() {
  unsigned inside = 1;
  unsigned outside = 1;
  unsigned long count = 0;
  const std::string line = FirstLine("/proc/self/uid_map");
  constexpr unsigned long kAllUsers = 0xffffffff;
  return std::sscanf(line.c_str(), "%u %u %lu", &inside, &outside, &count) == 3 && inside == 0 &&
         outside == 0 && count == kAllUsers;
}

bool IsLockedDown() {
  return FirstLine("/sys/kernel/security/lockdown").find("[confidentiality]") != std::string::npos;
}

std::string WhyNoRights() {
  if (!IsInitialUserNamespace()) {
    return "root of a container with users of its own may load no BPF program: load it on the host";
  }
  if (::geteuid() != 0) {
    return "only root may load a BPF program";
  }
  return "the kernel lets this process load no BPF program: in a container and in a sandbox root "
         "lacks the capabilities CAP_BPF and CAP_PERFMON";
}

}  // namespace

std::string WhyNotLoaded(int error) {
  // EACCES is the word of the check of the program itself.
  const bool isRefused = error == EPERM;
  if (::access(HostPath("/sys/kernel/btf/vmlinux").c_str(), F_OK) != 0) {
    return "the kernel does not tell how its structures lie: there is no /sys/kernel/btf/vmlinux "
           "(CONFIG_DEBUG_INFO_BTF)";
  }
  if (isRefused && ::geteuid() != 0) {
    return WhyNoRights();
  }
  if (IsLockedDown()) {
    return "the kernel is locked down: no BPF program may read its memory "
           "(/sys/kernel/security/lockdown is at confidentiality)";
  }
  if (isRefused) {
    return WhyNoRights();
  }
  if (error == ESRCH || error == ENOENT) {
    return "the kernel has no iterator over tasks: it came with Linux 5.8";
  }
  if (error == ENOSYS) {
    return "the kernel has no BPF";
  }
  return std::string("the kernel does not take the program: ") + std::strerror(error) +
         "; --verbose tells its own words";
}

unsigned ProcessorsWithoutGap() {
  const std::string line = FirstLine("/sys/devices/system/cpu/possible");
  unsigned first = 0;
  unsigned last = 0;
  int end = 0;
  if (std::sscanf(line.c_str(), "%u-%u%n", &first, &last, &end) == 2) {
    return first == 0 && static_cast<std::size_t>(end) == line.size() ? last + 1 : 0;
  }
  return line == "0" ? 1 : 0;
}
