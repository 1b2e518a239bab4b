#include "tests/faults/GateWalk.h"

#include <exception>

#include "gate/Gate.h"
#include "gate/GateLog.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/Faults.h"
#include "tests/faults/SystemCalls.h"
#include "tests/faults/WalkProcess.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr unsigned kGateSeconds = 60;
constexpr PushPace kWalkPace{milliseconds(50), milliseconds(50), milliseconds(200),
                             milliseconds(2000), milliseconds(100)};

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
  faults::BeginProcessOfWalk(kGateSeconds);
  std::signal(SIGPIPE, SIG_IGN);
  char byte = 0;
  (void)!::read(begin, &byte, 1);
  const int before = faults::CountDescriptors();
  faults::OnFailure(faults::NotePlaceOfFailure);
  const bool isAllocation = fault.kind == faults::kAllocation;
  faults::ForgetFailure();
  faults::ArmSystemCall(fault.kind, fault.place);
  if (isAllocation) {
    faults::CountAllocationsOfAll(fault.place);
  }
  const int exitValue = RunGate();
  const std::size_t allocations = faults::StopCountingAllocationsOfAll();
  faults::DisarmSystemCalls();
  const int after = faults::CountDescriptorsAtRest(before);
  std::ofstream figures("figures");
  figures << exitValue << ' ' << faults::HasFailed() << ' ' << before << ' ' << after << ' '
          << faults::HasLeak() << ' ' << allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures << ' ' << faults::SystemCallsOf(name);
  }
  figures.close();
  ::_exit(0);
}

/// The process around the gate, which it starts first: it has no thread yet.
void LiveAround(GateScene scene, const Fault& fault) {
  fs::create_directory("state");
  int ends[2];
  (void)!::pipe2(ends, O_CLOEXEC);
  const pid_t gate = ::fork();
  if (gate == 0) {
    ::close(ends[1]);
    LiveAsGate(fault, ends[0]);
  }
  const std::unique_ptr<GateSurroundings> around = scene(gate);
  (void)!::write(ends[1], "b", 1);
  around->Walk();
  around->Stop();
}

GateWalkResult ReadGateResult(const fs::path& folder) {
  GateWalkResult result;
  std::istringstream(FileText(folder / "status")) >> result.status;
  std::istringstream figures(FileText(folder / "figures"));
  std::size_t allocations = 0;
  figures >> result.exitValue >> result.hasFailed >> result.descriptorsBefore >>
      result.descriptorsAfter >> result.hasLeak >> allocations;
  result.calls[faults::kAllocation] = allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures >> result.calls[name];
  }
  result.hasHung = fs::exists(folder / "hung");
  result.errors = FileText(folder / "stderr.txt");
  result.failedPlace = FileText(folder / "place");
  result.hasAddress = fs::exists(folder / "address");
  result.pages = CutAt('\n', FileText(folder / "pages"));
  result.sent = CutAt('\n', FileText(folder / "sent"));
  result.told = FileText(folder / "told");
  return result;
}

}  // namespace

void RunGateWalks(GateScene scene, const std::vector<Fault>& faults,
                  const std::function<void(const Fault& fault, const GateWalkResult& walk)>& look) {
  faults::RunWalks(
      faults, [scene](const Fault& fault) { LiveAround(scene, fault); },
      [&](const Fault& fault, const fs::path& folder, int) {
        look(fault, ReadGateResult(folder));
        return true;
      });
}
