#include "tests/faults/GateWalk.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>

#include "gate/Gate.h"
#include "gate/GateLog.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/Faults.h"
#include "tests/faults/SystemCalls.h"
#include "tests/support/TempFolder.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr std::size_t kGatesAtATime = 12;
constexpr unsigned kGateSeconds = 60;
constexpr PushPace kWalkPace{milliseconds(50), milliseconds(50), milliseconds(200),
                             milliseconds(2000), milliseconds(100)};

int g_gatePlaceFile = -1;

void NotePlaceOfGate() {
  std::array<void*, 40> callers{};
  const int depth = ::backtrace(callers.data(), static_cast<int>(callers.size()));
  ::backtrace_symbols_fd(callers.data(), depth, g_gatePlaceFile);
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int CountDescriptors() {
  return static_cast<int>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// A thread of the gate's that has written a file may still be about to end.
int CountDescriptorsAtRest(int expected) {
  int count = CountDescriptors();
  for (int turn = 0; turn < 100 && count > expected; ++turn) {
    std::this_thread::sleep_for(milliseconds(10));
    count = CountDescriptors();
  }
  return count;
}

bool IsLeaking() {
#ifdef __SANITIZE_ADDRESS__
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

int RunGate() {
  try {
    return Gate("control.sock", false, "state", kWalkPace).Run();
  } catch (const std::exception& error) {
    // As the program does.
    GateLog(error.what());
    return 1;
  }
}

/// The gate's process, alone in it; its findings are files of the working directory.
[[noreturn]] void LiveAsGate(const Fault& fault, int begin) {
  ::alarm(kGateSeconds);
  const int errors = ::open("stderr.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  ::dup2(errors, STDERR_FILENO);
  ::close(errors);
  std::signal(SIGPIPE, SIG_IGN);
  void* caller = nullptr;
  (void)::backtrace(&caller, 1);
  g_gatePlaceFile = ::open("place", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  char byte = 0;
  (void)!::read(begin, &byte, 1);
  const int before = CountDescriptors();
  faults::OnFailure(NotePlaceOfGate);
  const bool isAllocation = fault.kind == faults::kAllocation;
  faults::ForgetFailure();
  faults::ArmSystemCall(fault.kind, fault.place);
  if (isAllocation) {
    faults::CountAllocationsOfAll(fault.place);
  }
  const int exitValue = RunGate();
  const std::size_t allocations = faults::StopCountingAllocationsOfAll();
  faults::DisarmSystemCalls();
  const int after = CountDescriptorsAtRest(before);
  std::ofstream figures("figures");
  figures << exitValue << ' ' << faults::HasFailed() << ' ' << before << ' ' << after << ' '
          << IsLeaking() << ' ' << allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures << ' ' << faults::SystemCallsOf(name);
  }
  figures.close();
  ::_exit(0);
}

/// The process around the gate, which it starts first: it has no thread yet.
[[noreturn]] void LiveAround(GateScene scene, const Fault& fault) {
  fs::create_directory("state");
  int ends[2];
  (void)!::pipe2(ends, O_CLOEXEC);
  const pid_t gate = ::fork();
  if (gate == 0) {
    ::close(ends[1]);
    LiveAsGate(fault, ends[0]);
  }
  {
    const std::unique_ptr<GateSurroundings> around = scene(gate);
    (void)!::write(ends[1], "b", 1);
    around->Walk();
    around->Stop();
  }
  ::_exit(0);
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

GateWalkResult ReadGateResult(const fs::path& folder) {
  GateWalkResult result;
  std::istringstream(ReadAll(folder / "status")) >> result.status;
  std::istringstream figures(ReadAll(folder / "figures"));
  std::size_t allocations = 0;
  figures >> result.exitValue >> result.hasFailed >> result.descriptorsBefore >>
      result.descriptorsAfter >> result.hasLeak >> allocations;
  result.calls[faults::kAllocation] = allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures >> result.calls[name];
  }
  result.hasHung = fs::exists(folder / "hung");
  result.errors = ReadAll(folder / "stderr.txt");
  result.failedPlace = ReadAll(folder / "place");
  result.hasAddress = fs::exists(folder / "address");
  result.pages = LinesOf(ReadAll(folder / "pages"));
  result.sent = LinesOf(ReadAll(folder / "sent"));
  result.told = ReadAll(folder / "told");
  return result;
}

/// One that is under way.
class RunningGateWalk {
 public:
  RunningGateWalk(GateScene scene, const Fault& fault) {
    m_child = ::fork();
    if (m_child == 0) {
      fs::current_path(m_folder.Path());
      LiveAround(scene, fault);
    }
  }
  ~RunningGateWalk() { Wait(); }
  RunningGateWalk(const RunningGateWalk&) = delete;
  RunningGateWalk& operator=(const RunningGateWalk&) = delete;

  GateWalkResult End() {
    Wait();
    return ReadGateResult(m_folder.Path());
  }

 private:
  void Wait() {
    if (std::exchange(m_isRunning, false)) {
      ::waitpid(m_child, nullptr, 0);
    }
  }

  TempFolder m_folder;
  pid_t m_child = -1;
  bool m_isRunning = true;
};

}  // namespace

void RunGateWalks(GateScene scene, const std::vector<Fault>& faults,
                  const std::function<void(const Fault& fault, const GateWalkResult& walk)>& look) {
  std::deque<std::unique_ptr<RunningGateWalk>> running;
  auto next = faults.begin();
  for (const Fault& fault : faults) {
    for (; next != faults.end() && running.size() < kGatesAtATime; ++next) {
      running.push_back(std::make_unique<RunningGateWalk>(scene, *next));
    }
    const GateWalkResult walk = running.front()->End();
    running.pop_front();
    look(fault, walk);
  }
}
