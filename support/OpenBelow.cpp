#include "support/OpenBelow.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "support/Descriptor.h"

namespace {

std::uint64_t ResolveBits(LinkRule rule) {
  switch (rule) {
    case LinkRule::kRooted:
      return RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    case LinkRule::kInside:
      return RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    case LinkRule::kNone:
      break;
  }
  return RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
}

}  // namespace

int OpenBelow(int folder, const std::string& path, int flags, LinkRule rule) {
  ::open_how how{};
  how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC;
  how.resolve = ResolveBits(rule);
  return static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof(how)));
}

int OpenRegularBelow(int folder, const std::string& path) {
  Descriptor file(OpenBelow(folder, path, O_RDONLY | O_NOCTTY | O_NONBLOCK, LinkRule::kNone));
  struct ::stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    return -1;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = ENXIO;
    return -1;
  }
  return file.Release();
}

bool LeadsOut(int folder, const std::string& path) {
  const Descriptor target(OpenBelow(folder, path, O_PATH, LinkRule::kInside));
  const bool leadsNowhere = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
  return !target.IsOpen() && !leadsNowhere;
}
