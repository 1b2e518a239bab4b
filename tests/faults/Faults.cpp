#include "tests/faults/Faults.h"

#include <array>
#include <atomic>
#include <cerrno>

#include "support/OsCalls.h"
#include "tests/faults/Allocator.h"

namespace {

OsCalls g_counted{};  // what the counting ones call
std::size_t g_counts = 0;
std::size_t g_failingPlace = 0;
std::atomic<bool> g_hasFailed = false;
void (*g_onFailure)() = nullptr;
std::string g_kind;

bool IsCallToFail(int code) {
  if (++g_counts != g_failingPlace) {
    return false;
  }
  faults::NoteFailure();
  errno = code;
  return true;
}

/// A call of the table that counts itself and fails at its turn by `kResult` and errno `kCode`.
template <auto kMember, auto kResult, int kCode, class Result, class... Arguments>
Result Counting(Arguments... arguments) {
  return IsCallToFail(kCode) ? static_cast<Result>(kResult) : (g_counted.*kMember)(arguments...);
}

template <auto kMember, auto kResult, int kCode, class Result, class... Arguments>
void Install(Result (*OsCalls::*)(Arguments...)) {
  Os().*kMember = Counting<kMember, kResult, kCode, Result, Arguments...>;
}

template <auto kMember, auto kResult, int kCode>
void InstallCall() {
  Install<kMember, kResult, kCode>(kMember);
}

struct FailingCall {
  const char* name;
  void (*install)();
};

// Those without a way to fail are left out: getpagesize, time without an address, setpwent and
// endpwent. The counts of processors fall back to 1, as the library's own do.
constexpr std::array kFailingCalls{
    FailingCall{"sysinfo", InstallCall<&OsCalls::sysinfo, -1, EFAULT>},
    FailingCall{"uname", InstallCall<&OsCalls::uname, -1, EFAULT>},
    FailingCall{"getrlimit", InstallCall<&OsCalls::getrlimit, -1, EINVAL>},
    FailingCall{"setrlimit", InstallCall<&OsCalls::setrlimit, -1, EPERM>},
    FailingCall{"get_nprocs", InstallCall<&OsCalls::get_nprocs, 1, EMFILE>},
    FailingCall{"get_nprocs_conf", InstallCall<&OsCalls::get_nprocs_conf, 1, EMFILE>},
    FailingCall{"getpwuid", InstallCall<&OsCalls::getpwuid, nullptr, EIO>},
    FailingCall{"getgrgid", InstallCall<&OsCalls::getgrgid, nullptr, EIO>},
    FailingCall{"socket", InstallCall<&OsCalls::socket, -1, EMFILE>},
    FailingCall{"ioctl", InstallCall<&OsCalls::ioctl, -1, ENODEV>},
    FailingCall{"acct", InstallCall<&OsCalls::acct, -1, EPERM>},
    FailingCall{"stat", InstallCall<&OsCalls::stat, -1, EACCES>},
    FailingCall{"statfs64", InstallCall<&OsCalls::statfs64, -1, EIO>},
    FailingCall{"quotactl", InstallCall<&OsCalls::quotactl, -1, ESRCH>},
    FailingCall{"semctl", InstallCall<&OsCalls::semctl, -1, ENOSYS>},
    FailingCall{"shmctl", InstallCall<&OsCalls::shmctl, -1, ENOSYS>},
    FailingCall{"msgctl", InstallCall<&OsCalls::msgctl, -1, ENOSYS>},
    FailingCall{"getpwent", InstallCall<&OsCalls::getpwent, nullptr, EIO>},
    FailingCall{"fork", InstallCall<&OsCalls::fork, -1, EAGAIN>},
    FailingCall{"gettimeofday", InstallCall<&OsCalls::gettimeofday, -1, EINVAL>},
    FailingCall{"adjtimex", InstallCall<&OsCalls::adjtimex, -1, EPERM>},
    FailingCall{"sleep", InstallCall<&OsCalls::sleep, 1U, EINTR>}};

}  // namespace

void faults::NoteFailure() {
  g_hasFailed = true;
  if (g_onFailure != nullptr) {
    g_onFailure();
  }
}

std::vector<std::string> faults::OsCallNames() {
  std::vector<std::string> names;
  for (const FailingCall& call : kFailingCalls) {
    names.emplace_back(call.name);
  }
  return names;
}

void faults::Arm(const std::string& kind, std::size_t place) {
  g_kind = kind;
  g_hasFailed = false;
  if (kind == kAllocation) {
    CountAllocations(place);
    return;
  }
  g_counted = Os();
  g_counts = 0;
  g_failingPlace = place;
  for (const FailingCall& call : kFailingCalls) {
    if (kind == call.name) {
      call.install();
    }
  }
}

std::size_t faults::Disarm() {
  if (g_kind == kAllocation) {
    return StopCountingAllocations();
  }
  Os() = g_counted;
  return g_counts;
}

bool faults::HasFailed() { return g_hasFailed; }
void faults::OnFailure(void (*action)()) { g_onFailure = action; }
