#include "process/ProcessSummary.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <unordered_map>
#include <utility>

#include "collect/Collector.h"
#include "collect/device/DeviceMap.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "process/ProcessRules.h"
#include "process/ProcessTrace.h"
#include "support/TraceLog.h"

namespace {

constexpr std::uint32_t kLastStateCode = 9;

void SortByPid(ProcessSamples& samples) {
  const auto isBefore = [](const ProcessSample& a, const ProcessSample& b) {
    return a.pid < b.pid;
  };
  // The kernel lists processes in this order.
  if (!std::is_sorted(samples.begin(), samples.end(), isBefore)) {
    std::stable_sort(samples.begin(), samples.end(), isBefore);
  }
}

/// The place of reads and writes in a sample's counters, and what stands there for ones that are
/// unknown: none is above it.
constexpr std::size_t kFirstIoCount = 4;
constexpr std::uint32_t kUnknownCount = std::numeric_limits<std::uint32_t>::max();

ProcessSample SampleOf(const Process& process) {
  const bool isUnknown = process.modern.isIoUnknown;
  return {.pid = process.pid,
          .userSeconds = process.userTime.seconds,
          .userNanoseconds = process.userTime.nanoseconds,
          .systemSeconds = process.systemTime.seconds,
          .systemNanoseconds = process.systemTime.nanoseconds,
          .counters = {process.minorFaults, process.majorFaults, process.contextSwitches,
                       process.signals, isUnknown ? kUnknownCount : process.reads,
                       isUnknown ? kUnknownCount : process.writes},
          .totalBytes = process.totalBytes,
          .cwdInode = process.cwdInode,
          .totalKB = process.modern.totalKB,
          .startTicks = process.modern.startTicks};
}

/// The terminals of one walk: the device map is asked once for each number.
class Terminals {
 public:
  /// Without `devices` each number is known.
  explicit Terminals(DeviceMap* devices) : m_devices(devices) {}

  /// The number, or kNoTerminal for one that no device file has.
  std::uint64_t Known(std::uint64_t rdev) {
    if (rdev == kNoTerminal || m_devices == nullptr) {
      return rdev;
    }
    const auto [place, isNew] = m_known.try_emplace(rdev, rdev);
    if (isNew) {
      const char* name = m_devices->Name(rdev);
      if (name != nullptr && std::strcmp(name, "??") == 0) {
        place->second = kNoTerminal;
      }
    }
    return place->second;
  }

 private:
  DeviceMap* m_devices;
  std::unordered_map<std::uint64_t, std::uint64_t> m_known;
};

/// The entry of a function of the summary.
template <class A = const char*, class B = const char*, class C = const char*>
void Started(const char* name, const A& a = "unused", const B& b = "unused",
             const C& c = "unused") {
  Message(10498, name, a, b, c, "unused");
}

/// Its exit, with 1 for an error; gives the error on.
UtlError* Exited(const char* name, UtlErrorPtr error) {
  Message(10499, name, error ? 1 : 0);
  return error.release();
}

}  // namespace

void TakeSamples(const std::vector<Process>& processes, ProcessSamples& samples) {
  samples.clear();
  samples.reserve(processes.size());
  for (const Process& process : processes) {
    samples.push_back(SampleOf(process));
  }
  SortByPid(samples);
}

ProcessSummary::ProcessSummary(Collector* collector, DeviceMap* devices)
    : m_collector(collector), m_rules(&ProcessRulesOf(g_hostProfile)), m_devices(devices) {}

void ProcessSummary::ClearCounters() {
  m_counts = {};
  m_initialised = false;
  m_fullSummary = 0;
  m_lastCycle = 0;
}

UtlError* ProcessSummary::BuildLiteSummary(std::uint32_t cycle) {
  constexpr const char* kName = "ProcessSummary::BuildLiteSummary";
  Started(kName, cycle);
  if (m_lastCycle == cycle) {
    return Exited(kName, nullptr);
  }
  ClearCounters();
  UtlErrorPtr error{Build(0)};
  if (error) {
    Trace(30, kWarning, "Process Table Summary Failed:%1.", error->GetMessage());
  } else {
    m_lastCycle = cycle;
  }
  return Exited(kName, std::move(error));
}

UtlError* ProcessSummary::BuildFullSummary(std::uint32_t cycle, int realtime,
                                           ProcessSamples* previous) {
  constexpr const char* kName = "ProcessSummary::BuildFullSummary";
  Started(kName, cycle, realtime, AddressOf(previous));
  if (m_lastCycle == cycle && m_fullSummary == 1) {
    return Exited(kName, nullptr);
  }
  ClearCounters();
  m_fullSummary = 1;
  if (previous != nullptr) {
    SortByPid(*previous);
    if (realtime != 0) {
      m_previousList.swap(*previous);
    } else {
      m_previousList = *previous;
    }
  }
  UtlErrorPtr error{Build(realtime)};
  if (previous != nullptr && realtime != 0) {
    m_previousList.swap(*previous);
  }
  if (error) {
    Trace(30, kWarning, "Process Table Summary Failed:%1.", error->GetMessage());
  } else {
    m_lastCycle = cycle;
  }
  return Exited(kName, std::move(error));
}

UtlError* ProcessSummary::Build(int realtime) {
  constexpr const char* kName = "ProcessSummary::Build";
  Started(kName, realtime);
  try {
    Walk(realtime);
  } catch (const std::bad_alloc&) {
    return Exited(kName, std::make_unique<UtlError>("Out of memory for the list of processes",
                                                    __FILE__, __LINE__));
  }
  Trace(30, kInformation, "ProcessSummary::Build() found %1 current processes.",
        m_counts.processes);
  m_initialised = true;
  return Exited(kName, nullptr);
}

void ProcessSummary::Walk(int realtime) {
  m_rules = &ProcessRulesOf(g_hostProfile);
  const std::vector<Look> looks = LookAtProcesses();
  CountUsers(looks);
  for (const Look& look : looks) {
    CountFlags(look);
    CountState(m_rules->summaryState(*look.process));
    ++m_counts.processes;
  }
  CountTerminals(looks);
  if (realtime == 0) {
    ProcessSamples samples;
    TakeSamples(*m_collector->GetProcess(), samples);
    m_previousList.swap(samples);
  }
}

/// The current processes by user. Their activity is found before, in the order of the previous
/// list.
std::vector<ProcessSummary::Look> ProcessSummary::LookAtProcesses() {
  const std::vector<Process>& processes = *m_collector->GetProcess();
  std::vector<Look> looks;
  looks.reserve(processes.size());
  PrintProcessTrace("process list of %zu taken", processes.size());
  for (const Process& process : processes) {
    looks.push_back({process.pid, process.euid, &process, false});
  }
  std::sort(looks.begin(), looks.end(), [](const Look& a, const Look& b) { return a.pid < b.pid; });
  if (m_fullSummary == 1) {
    m_matchFrom = 0;
    for (Look& look : looks) {
      look.active = ProcessActive(look.process) != 0;
    }
  }
  std::sort(looks.begin(), looks.end(), [](const Look& a, const Look& b) { return a.uid < b.uid; });
  return looks;
}

void ProcessSummary::CountUsers(const std::vector<Look>& looks) {
  std::int32_t lastUid = -1;
  bool userActive = false;
  for (const Look& look : looks) {
    if (look.uid != lastUid) {
      ++m_counts.users;
      userActive = false;
      lastUid = look.uid;
    }
    if (!userActive && m_rules->isInUse(*look.process, look.active)) {
      userActive = true;
      ++m_counts.activeUsers;
    }
  }
}

void ProcessSummary::CountTerminals(const std::vector<Look>& looks) {
  Terminals terminals(m_rules->needsTerminalFile ? m_devices : nullptr);
  std::vector<std::uint64_t> inUse;
  for (const Look& look : looks) {
    const std::uint64_t terminal = terminals.Known(look.process->tty);
    if (terminal == kNoTerminal) {
      ++m_counts.daemon;
    } else if (m_rules->isInUse(*look.process, look.active)) {
      inUse.push_back(terminal);
    }
  }
  std::sort(inUse.begin(), inUse.end());
  m_counts.activeTerminals =
      static_cast<std::int32_t>(std::unique(inUse.begin(), inUse.end()) - inUse.begin());
}

void ProcessSummary::CountFlags(const Look& look) {
  const std::uint32_t flags = m_rules->summaryFlags(*look.process);
  const bool isSystem = (flags & kProcessSystem) != 0;
  m_counts.system += isSystem ? 1 : 0;
  if (look.active) {
    ++(isSystem ? m_counts.activeSystem : m_counts.activeUser);
  }
  m_counts.memMgmt += (flags & kProcessMemMgmt) != 0 ? 1 : 0;
  m_counts.swapped += (flags & kProcessInCore) == 0 ? 1 : 0;
}

void ProcessSummary::CountState(std::uint32_t state) {
  if (state < m_counts.states.size()) {
    ++m_counts.states[state];
  } else if (state > kLastStateCode) {
    ++m_counts.stateUnknown;
  }
}

const ProcessSample* ProcessSummary::MatchProc(const Process* process) {
  const std::size_t size = m_previousList.size();
  if (m_matchFrom > size ||
      (m_matchFrom > 0 && m_previousList[m_matchFrom - 1].pid >= process->pid)) {
    m_matchFrom = 0;
  }
  while (m_matchFrom < size && m_previousList[m_matchFrom].pid < process->pid) {
    ++m_matchFrom;
  }
  if (m_matchFrom == size || m_previousList[m_matchFrom].pid != process->pid) {
    return nullptr;
  }
  return &m_previousList[m_matchFrom];
}

int ProcessSummary::ProcessActive(const Process* process) {
  if (process == nullptr) {
    Trace(30, kWarning, "Bad pointer passed.");
    return 0;
  }
  const ProcessSample* before = MatchProc(process);
  if (before == nullptr || before->startTicks != process->modern.startTicks) {
    return 1;
  }
  const ProcessSample now = SampleOf(*process);
  const bool sameTimes = now.userSeconds == before->userSeconds &&
                         now.userNanoseconds == before->userNanoseconds &&
                         now.systemSeconds == before->systemSeconds &&
                         now.systemNanoseconds == before->systemNanoseconds;
  bool grew = false;
  const std::size_t known = process->modern.isIoUnknown ? kFirstIoCount : now.counters.size();
  for (std::size_t i = 0; i < known; ++i) {
    grew = grew || now.counters[i] > before->counters[i];
  }
  return !sameTimes || grew || now.totalBytes != before->totalBytes ||
                 now.cwdInode != before->cwdInode || now.totalKB != before->totalKB
             ? 1
             : 0;
}

std::int32_t ProcessSummary::Read(std::int32_t counter) const {
  if (!m_initialised) {
    Trace(30, kWarning, "Retrieving data from uninitialized ProcessSummary class.");
  }
  return counter;
}
