#include "gate/GateRights.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/landlock.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "gate/CallFilter.h"
#include "support/Capabilities.h"
#include "support/Descriptor.h"

namespace {

bool BecomeUser(const std::string& user, std::string& error) {
  errno = 0;
  const ::passwd* entry = ::getpwnam(user.c_str());
  if (entry == nullptr) {
    error = "no user \"" + user + '"';
    return false;
  }
  // The entry is the library's, and the next call may change it.
  const uid_t uid = entry->pw_uid;
  const gid_t gid = entry->pw_gid;
  if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0 ||
      ::setuid(0) == 0) {
    error = "can't become user \"" + user + "\": " + std::strerror(errno);
    return false;
  }
  return true;
}

// By the numbers of the kernel's interface, which the headers of an older one lack.
constexpr std::uint64_t kRefer = std::uint64_t{1} << 13;
constexpr std::uint64_t kTruncate = std::uint64_t{1} << 14;
constexpr std::uint64_t kScopeSignal = std::uint64_t{1} << 1;
struct Rules {
  std::uint64_t fileAccess;
  std::uint64_t netAccess;
  std::uint64_t scoped;
};

/// What the kernel can keep a program from doing with files, by its version of that.
std::uint64_t RefusedFileAccess(long version) {
  std::uint64_t access =
      LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
      LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
      LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
      LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
  access |= version >= 2 ? kRefer : 0;
  access |= version >= 3 ? kTruncate : 0;
  return access;
}

/// A link or a file in the folder's place gets nothing.
void AllowFilesIn(const std::string& folder, std::uint64_t refused, int rules) {
  const Descriptor opened(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  ::landlock_path_beneath_attr allowed{};
  allowed.parent_fd = opened.Get();
  allowed.allowed_access = refused & (LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG |
                                      LANDLOCK_ACCESS_FS_REMOVE_FILE | kTruncate);
  if (opened.IsOpen()) {
    ::syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &allowed, 0);
  }
}

/// Has the kernel refuse to change files and, where it can (6.12 and newer), to signal others than
/// this process. Without it the file's modes and FilterCalls still hold.
void RestrictByLandlock(const std::string& state) {
  const long version =
      ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 1) {
    return;
  }
  const bool canScope = version >= 6;
  const Rules rules{RefusedFileAccess(version), 0, canScope ? kScopeSignal : 0};
  const std::size_t size = canScope ? sizeof rules : sizeof rules.fileAccess;
  const Descriptor ruleset(
      static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rules, size, 0)));
  if (!ruleset.IsOpen()) {
    return;
  }
  if (!state.empty()) {
    AllowFilesIn(state, rules.fileAccess, ruleset.Get());
  }
  ::syscall(SYS_landlock_restrict_self, ruleset.Get(), 0);
}

}  // namespace

bool GiveUpRights(const std::string& user, const std::string& state, std::string& error) {
  if (::geteuid() == 0 && !user.empty() && !BecomeUser(user, error)) {
    return false;
  }
  if (!KeepCapabilities(0) || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    error = std::string("the capabilities can't be given up: ") + std::strerror(errno);
    return false;
  }
  const ::rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  RestrictByLandlock(state);
  // Without it the user, the capabilities and the modes of files still hold.
  static_cast<void>(FilterCalls());
  return true;
}

bool EndWithParent(pid_t parent) {
  return ::prctl(PR_SET_PDEATHSIG, SIGTERM, 0, 0, 0) == 0 && ::getppid() == parent;
}
