#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/filesystem/QuotaSource.h"
#include "support/OsCalls.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as a quota file of either format, which the first byte chooses, and a user whose id is
/// the next four.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  static ::passwd user;
  static bool isAsked;
  if (size < 5) {
    return 0;
  }
  Os().quotactl = [](int, const char*, int, char*) {
    errno = ESRCH;
    return -1;
  };
  Os().setpwent = [] { isAsked = false; };
  Os().getpwent = []() -> ::passwd* {
    const bool first = !isAsked;
    isAsked = true;
    return first ? &user : nullptr;
  };
  std::memcpy(&user.pw_uid, data + 1, sizeof user.pw_uid);
  const std::string_view text(reinterpret_cast<const char*>(data) + 5, size - 5);
  const char* name = data[0] % 2 == 0 ? "/quota.user" : "/aquota.user";
  host.Write("/etc/mtab", "/dev/a / ext3 usrquota 0 0\n");
  std::filesystem::remove(host.Path("/quota.user"));
  std::filesystem::remove(host.Path("/aquota.user"));
  host.Write(name, text);
  std::vector<Quota> rows;
  QuotaSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  return 0;
}
