#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "tests/support/Testing.h"

namespace {

constexpr unsigned kUser = 64321;
constexpr std::uint32_t kRights = 1U << CAP_DAC_READ_SEARCH | 1U << CAP_SYS_PTRACE;

/// Becomes the program as the service manager starts the daemon: another user, two ambient rights.
[[noreturn]] void RunAsDaemon(const char* program, int errors) {
  ::__user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<::__user_cap_data_struct, 2> sets{};
  sets[0] = {kRights, kRights, kRights};
  if (::prctl(PR_SET_KEEPCAPS, 1) != 0 || ::setresgid(kUser, kUser, kUser) != 0 ||
      ::setresuid(kUser, kUser, kUser) != 0 || ::syscall(SYS_capset, &header, sets.data()) != 0 ||
      ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0) != 0 ||
      ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SYS_PTRACE, 0, 0) != 0 ||
      ::dup2(errors, STDERR_FILENO) < 0) {
    ::_exit(1);
  }
  std::array<char, 16> nowhere{"/no/such/folder"};
  std::array<char, 2> second{"1"};
  std::array<char, 8> name{"helper"};
  const std::array<char*, 4> words{name.data(), nowhere.data(), second.data(), nullptr};
  ::execv(program, words.data());
  ::_exit(1);
}

std::map<std::string, std::string> StatusOf(pid_t process) {
  std::map<std::string, std::string> status;
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string key, value; file >> key && std::getline(file >> std::ws, value);) {
    status[key] = value;
  }
  return status;
}

struct HelperCase {
  const char* program;
  const char* name;
  const char* kept;
};

class HelperRightsTest : public testing::TestWithParam<HelperCase> {};

}  // namespace

TEST_P(HelperRightsTest, FewerThanTheDaemons) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  // The file to open is missing, and the helper waits as it tells so: nobody takes its words.
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096);
  const std::string full(4096, 'x');
  ASSERT_EQ(::write(ends[1], full.data(), full.size()), 4096);
  const pid_t helper = ::fork();
  if (helper == 0) {
    RunAsDaemon(GetParam().program, ends[1]);
  }
  ASSERT_GT(helper, 0);
  std::map<std::string, std::string> status;
  EXPECT_TRUE(WaitUntil([&] {
    status = StatusOf(helper);
    return (status["Name:"] == GetParam().name && status["State:"].starts_with('S')) ||
           status["State:"].starts_with('Z');
  }));
  ::kill(helper, SIGKILL);
  ::waitpid(helper, nullptr, 0);
  ::close(ends[0]);
  ::close(ends[1]);
  ASSERT_EQ(status["Name:"], GetParam().name) << "this machine can't give the rights";
  EXPECT_EQ(status["Uid:"].substr(0, 5), std::to_string(kUser));
  EXPECT_EQ(status["CapEff:"], GetParam().kept);
  EXPECT_EQ(status["CapPrm:"], GetParam().kept);
  EXPECT_EQ(status["CapInh:"], "0000000000000000");
  EXPECT_EQ(status["CapAmb:"], "0000000000000000");
}

INSTANTIATE_TEST_SUITE_P(
    Helpers, HelperRightsTest,
    testing::Values(HelperCase{QMT_HOSTUTIL_PROGRAM, "qmt_hostutil", "0000000000000000"},
                    HelperCase{QMT_UFSS_PROGRAM, "qmt_ufss", "0000000000000004"}));
