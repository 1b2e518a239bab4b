#include "tests/faults/Faults.h"

#include <array>
#include <atomic>
#include <cerrno>

#include "support/OsCalls.h"
#include "tests/faults/Allocator.h"

namespace {

OsCalls g_counted{};  // what the counting ones call
std::size_t g_failingPlace = 0;
std::atomic<bool> g_hasFailed = false;
void (*g_onFailure)() = nullptr;
std::string g_kind;
std::vector<std::size_t> g_places;

/// The calls of a member of the table since it was armed.
template <auto kMember>
std::size_t g_counts = 0;

bool IsCallToFail(std::size_t count, int code) {
  if (count != g_failingPlace) {
    return false;
  }
  faults::NoteFailure();
  errno = code;
  return true;
}

/// A call of the table that counts itself and fails at its turn by `kResult` and errno `kCode`.
template <auto kMember, auto kResult, int kCode, class Result, class... Arguments>
Result Counting(Arguments... arguments) {
  return IsCallToFail(++g_counts<kMember>, kCode) ? static_cast<Result>(kResult)
                                                  : (g_counted.*kMember)(arguments...);
}

template <auto kMember, auto kResult, int kCode, class Result, class... Arguments>
void Install(Result (*OsCalls::*)(Arguments...)) {
  Os().*kMember = Counting<kMember, kResult, kCode, Result, Arguments...>;
}

template <auto kMember, auto kResult, int kCode>
void InstallCall() {
  g_counts<kMember> = 0;
  Install<kMember, kResult, kCode>(kMember);
}

struct FailingCall {
  const char* name;
  void (*install)();
  const std::size_t* counts;
};

template <auto kMember, auto kResult, int kCode>
constexpr FailingCall FailingBy(const char* name) {
  return {name, InstallCall<kMember, kResult, kCode>, &g_counts<kMember>};
}

// Those without a way to fail are left out: getpagesize, time without an address, setpwent and
// endpwent. The counts of processors fall back to 1, as the library's own do.
constexpr std::array kFailingCalls{
    FailingBy<&OsCalls::sysinfo, -1, EFAULT>("sysinfo"),
    FailingBy<&OsCalls::uname, -1, EFAULT>("uname"),
    FailingBy<&OsCalls::getrlimit, -1, EINVAL>("getrlimit"),
    FailingBy<&OsCalls::setrlimit, -1, EPERM>("setrlimit"),
    FailingBy<&OsCalls::get_nprocs, 1, EMFILE>("get_nprocs"),
    FailingBy<&OsCalls::get_nprocs_conf, 1, EMFILE>("get_nprocs_conf"),
    FailingBy<&OsCalls::getpwuid, nullptr, EIO>("getpwuid"),
    FailingBy<&OsCalls::getgrgid, nullptr, EIO>("getgrgid"),
    FailingBy<&OsCalls::socket, -1, EMFILE>("socket"),
    FailingBy<&OsCalls::ioctl, -1, ENODEV>("ioctl"),
    FailingBy<&OsCalls::acct, -1, EPERM>("acct"),
    FailingBy<&OsCalls::stat, -1, EACCES>("stat"),
    FailingBy<&OsCalls::statfs64, -1, EIO>("statfs64"),
    FailingBy<&OsCalls::quotactl, -1, ESRCH>("quotactl"),
    FailingBy<&OsCalls::semctl, -1, ENOSYS>("semctl"),
    FailingBy<&OsCalls::shmctl, -1, ENOSYS>("shmctl"),
    FailingBy<&OsCalls::msgctl, -1, ENOSYS>("msgctl"),
    FailingBy<&OsCalls::getpwent, nullptr, EIO>("getpwent"),
    FailingBy<&OsCalls::fork, -1, EAGAIN>("fork"),
    FailingBy<&OsCalls::gettimeofday, -1, EINVAL>("gettimeofday"),
    FailingBy<&OsCalls::clock_gettime, -1, EINVAL>("clock_gettime"),
    FailingBy<&OsCalls::adjtimex, -1, EPERM>("adjtimex"),
    FailingBy<&OsCalls::sleep, 1U, EINTR>("sleep")};

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

void faults::Arm(const std::string& kind, std::size_t place, std::size_t turn) {
  g_kind = kind;
  g_hasFailed = false;
  if (kind == kAllocation) {
    CountAllocations(place);
    return;
  }
  if (kind == kPlace) {
    WatchPlaces(place, turn);
    return;
  }
  g_counted = Os();
  g_failingPlace = place;
  for (const FailingCall& call : kFailingCalls) {
    if (kind == call.name || kind == kEachCall) {
      call.install();
    }
  }
}

std::size_t faults::Disarm() {
  if (g_kind == kAllocation) {
    return StopCountingAllocations();
  }
  if (g_kind == kPlace) {
    g_places = StopWatchingPlaces();
    return g_places.size();
  }
  Os() = g_counted;
  return CallsOf(g_kind);
}

std::size_t faults::CallsOf(const std::string& kind) {
  for (const FailingCall& call : kFailingCalls) {
    if (kind == call.name) {
      return *call.counts;
    }
  }
  return 0;
}

const std::vector<std::size_t>& faults::Places() { return g_places; }
bool faults::HasFailed() { return g_hasFailed; }
void faults::ForgetFailure() { g_hasFailed = false; }
void faults::OnFailure(void (*action)()) { g_onFailure = action; }
