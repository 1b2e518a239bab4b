#include "agent/OpenFilesLimit.h"

#include <algorithm>
#include <cerrno>

#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr rlim_t kOpenFiles = 512;

}  // namespace

void RaiseOpenFilesLimit() {
  rlimit limit{};
  if (Os().getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    Message(10100, "getrlimit", errno, static_cast<int>(RLIMIT_NOFILE), AddressOf(&limit), "");
    return;
  }
  if (limit.rlim_cur > kOpenFiles) {
    return;
  }
  limit.rlim_cur = std::min(kOpenFiles, limit.rlim_max);
  if (Os().setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    Message(10100, "setrlimit", errno, static_cast<int>(RLIMIT_NOFILE), AddressOf(&limit), "");
    return;
  }
  Trace(20, kInformation, "Set Open files limit to %1", limit.rlim_cur);
}
