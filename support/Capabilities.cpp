#include "support/Capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

bool KeepCapabilities(std::uint64_t kept) {
  if (::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) {
    return false;
  }
  ::__user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<::__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  if (::syscall(SYS_capget, &header, sets.data()) != 0) {
    return false;
  }
  for (auto& set : sets) {
    const auto mask = static_cast<std::uint32_t>(kept);
    kept >>= 32;
    set.permitted &= mask;
    set.effective &= mask;
    set.inheritable = 0;
  }
  return ::syscall(SYS_capset, &header, sets.data()) == 0;
}
