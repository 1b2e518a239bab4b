#include "tests/faults/WalkProcess.h"

#include <execinfo.h>

#include <deque>

#include "tests/support/TempFolder.h"

#ifdef QMT_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// A walk waits more than it works.
constexpr std::size_t kWalksAtATime = 12;

int g_placeFile = -1;

/// A walk that is under way.
class WalkProcess {
 public:
  WalkProcess(const std::function<void(const Fault&)>& live, const Fault& fault) {
    m_child = ::fork();
    if (m_child == 0) {
      std::filesystem::current_path(m_folder.Path());
      live(fault);
      ::_exit(0);
    }
  }
  ~WalkProcess() { Wait(); }
  WalkProcess(const WalkProcess&) = delete;
  WalkProcess& operator=(const WalkProcess&) = delete;

  [[nodiscard]] const std::filesystem::path& Folder() const { return m_folder.Path(); }
  int Wait() {
    if (std::exchange(m_isRunning, false)) {
      ::waitpid(m_child, &m_status, 0);
    }
    return m_status;
  }

 private:
  TempFolder m_folder;
  pid_t m_child = -1;
  int m_status = 0;
  bool m_isRunning = true;
};

}  // namespace

void faults::BeginProcessOfWalk(unsigned seconds) {
  ::alarm(seconds);
  const int errors = ::open("stderr.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  ::dup2(errors, STDERR_FILENO);
  ::close(errors);
  // The first use loads a library.
  void* caller = nullptr;
  (void)::backtrace(&caller, 1);
  g_placeFile = ::open("place", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
}

void faults::NotePlaceOfFailure() {
  std::array<void*, 40> callers{};
  const int depth = ::backtrace(callers.data(), static_cast<int>(callers.size()));
  ::backtrace_symbols_fd(callers.data(), depth, g_placeFile);
}

int faults::CountDescriptors() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

int faults::CountDescriptorsAtRest(int expected) {
  int count = CountDescriptors();
  for (int turn = 0; turn < 100 && count > expected; ++turn) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    count = CountDescriptors();
  }
  return count;
}

bool faults::HasLeak() {
#ifdef QMT_ADDRESS_SANITIZER
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

void faults::RunWalks(
    const std::vector<Fault>& faults, const std::function<void(const Fault& fault)>& live,
    const std::function<bool(const Fault& fault, const std::filesystem::path& folder, int status)>&
        look) {
  std::deque<WalkProcess> running;
  auto next = faults.begin();
  for (const Fault& fault : faults) {
    for (; next != faults.end() && running.size() < kWalksAtATime; ++next) {
      running.emplace_back(live, *next);
    }
    const int status = running.front().Wait();
    if (!look(fault, running.front().Folder(), status)) {
      return;
    }
    running.pop_front();
  }
}
