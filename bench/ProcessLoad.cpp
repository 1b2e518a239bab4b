// qmt_process_load COUNT [unknown-users]
//
// Makes COUNT sleeping processes, says "ready" and keeps them until its standard input ends. They
// end with it, however it ends. With "unknown-users", as root, they belong to as many users that
// the system knows as to ones that it does not, up to ten of each.

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kUsersOfAKind = 10;
constexpr uid_t kFirstUnknown = 900'001;

/// Known and unknown users by turns; a system with one user has one turn.
std::vector<uid_t> MixedUsers() {
  std::vector<uid_t> users;
  uid_t unknown = kFirstUnknown;
  ::setpwent();
  for (const passwd* entry = ::getpwent(); entry != nullptr && users.size() < 2 * kUsersOfAKind;
       entry = ::getpwent()) {
    users.push_back(entry->pw_uid);
    users.push_back(unknown++);
  }
  ::endpwent();
  for (std::size_t index = 1; index < users.size(); index += 2) {
    while (::getpwuid(users[index]) != nullptr) {
      users[index] += static_cast<uid_t>(kUsersOfAKind);
    }
  }
  return users;
}

[[noreturn]] void Sleep(pid_t parent, const uid_t* user) {
  // A change of user takes the parent's death signal away, so it comes first.
  if (user != nullptr && ::setuid(*user) != 0) {
    ::_exit(1);
  }
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
    ::_exit(1);
  }
  for (;;) {
    ::pause();
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  const std::string_view text = argc < 2 ? "" : argv[1];
  const bool mixed = argc == 3 && argv[2] == std::string_view("unknown-users");
  if (argc < 2 || argc > 3 || (argc == 3 && !mixed) ||
      std::from_chars(text.data(), text.data() + text.size(), count).ptr !=
          text.data() + text.size()) {
    std::fputs("usage: qmt_process_load COUNT [unknown-users]\n", stderr);
    return 2;
  }
  const std::vector<uid_t> users = mixed ? MixedUsers() : std::vector<uid_t>{};
  ::signal(SIGCHLD, SIG_IGN);
  const pid_t parent = ::getpid();
  std::vector<pid_t> children;
  for (std::size_t made = 0; made < count; ++made) {
    const pid_t child = ::fork();
    if (child == 0) {
      Sleep(parent, users.empty() ? nullptr : &users[made % users.size()]);
    }
    if (child < 0) {
      std::fprintf(stderr, "qmt_process_load: after %zu processes: %s\n", made,
                   std::strerror(errno));
      return 1;
    }
    children.push_back(child);
  }
  std::puts("ready");
  std::fflush(stdout);
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) {
  }
  for (const pid_t child : children) {
    ::kill(child, SIGKILL);
  }
  // Nothing is left to wait for once all have gone.
  while (::wait(nullptr) > 0 || errno == EINTR) {
  }
  return 0;
}
