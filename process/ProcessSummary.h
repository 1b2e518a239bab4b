#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/UtlError.h"

class Collector;
class DeviceMap;
class Process;
struct ProcessRules;

/// The figures of a process that show at the next look whether it has been active. A list of them
/// costs a small part of what the rows cost.
struct ProcessSample {
  std::int32_t pid = 0;
  std::int32_t userSeconds = 0;
  std::int32_t userNanoseconds = 0;
  std::int32_t systemSeconds = 0;
  std::int32_t systemNanoseconds = 0;
  /// Minor and major faults, context switches, signals, reads, writes; the last two are the
  /// greatest number where they are unknown.
  std::array<std::uint32_t, 6> counters{};
  std::uint32_t totalBytes = 0;
  std::uint64_t cwdInode = 0;
  // 0 under the profile `classic`.
  std::uint64_t totalKB = 0;
  std::uint64_t startTicks = 0;
};

/// In the order of process identifiers.
using ProcessSamples = std::vector<ProcessSample>;

/// `samples` becomes the picture of `processes`.
void TakeSamples(const std::vector<Process>& processes, ProcessSamples& samples);

/// The process list of one pass reduced to counts.
class ProcessSummary {
 public:
  /// Neither is owned; both outlive the summary.
  ProcessSummary(Collector* collector, DeviceMap* devices);

  // The following count once for each `cycle`; a later call with the same cycle key costs nothing.
  // Null, or an error that the caller owns.

  /// Leaves the figures of activity at 0.
  [[nodiscard]] UtlError* BuildLiteSummary(std::uint32_t cycle);
  /// Compares with `previous`, which is brought into order, or with the summary's own picture of
  /// the last look if that is null. The own picture changes only if `realtime` is 0. A lite summary
  /// of the same cycle does not count.
  [[nodiscard]] UtlError* BuildFullSummary(std::uint32_t cycle, int realtime,
                                           ProcessSamples* previous);
  /// The walk itself: adds to the counters. Null, or an error that the caller owns; the counters
  /// then hold what has been counted so far.
  [[nodiscard]] UtlError* Build(int realtime);
  void ClearCounters();

  /// The process as it was at the last look, null if it was not there; valid until the next build.
  /// Calls in the order of process identifiers cost one walk together.
  [[nodiscard]] const ProcessSample* MatchProc(const Process* process);
  /// 1 if the process is new or has done anything since the last look, else 0.
  [[nodiscard]] int ProcessActive(const Process* process);

  // Each of the following traces at level 30 before the first build.
  [[nodiscard]] std::int32_t GetProcessCount() const { return Read(m_counts.processes); }
  [[nodiscard]] std::int32_t GetSystemProcessCount() const { return Read(m_counts.system); }
  [[nodiscard]] std::int32_t GetMemMgmtProcessCount() const { return Read(m_counts.memMgmt); }
  /// Processes without a terminal; under the profile `classic` those too whose terminal no device
  /// file has.
  [[nodiscard]] std::int32_t GetDaemonProcessCount() const { return Read(m_counts.daemon); }
  [[nodiscard]] std::int32_t GetSwappedProcessCount() const { return Read(m_counts.swapped); }
  [[nodiscard]] std::int32_t GetStateNoneCount() const { return Read(m_counts.states[0]); }
  [[nodiscard]] std::int32_t GetStateSleepCount() const { return Read(m_counts.states[1]); }
  [[nodiscard]] std::int32_t GetStateRunCount() const { return Read(m_counts.states[2]); }
  [[nodiscard]] std::int32_t GetStateIdleCount() const { return Read(m_counts.states[3]); }
  [[nodiscard]] std::int32_t GetStateZombieCount() const { return Read(m_counts.states[4]); }
  [[nodiscard]] std::int32_t GetStateStopCount() const { return Read(m_counts.states[5]); }
  [[nodiscard]] std::int32_t GetStateOnCPUCount() const { return Read(m_counts.states[6]); }
  /// Codes that mean nothing. A process in a wait for a disk is in no count of states, but under
  /// the profile `modern` each process is in one.
  [[nodiscard]] std::int32_t GetStateUnknownCount() const { return Read(m_counts.stateUnknown); }
  [[nodiscard]] std::int32_t GetUniqueUserCount() const { return Read(m_counts.users); }
  /// Users with an active process; under the profile `modern` those with a process that has a
  /// terminal.
  [[nodiscard]] std::int32_t GetActiveUserCount() const { return Read(m_counts.activeUsers); }
  /// Terminals of active processes; under the profile `modern` of all processes.
  [[nodiscard]] std::int32_t GetActiveTerminalCount() const {
    return Read(m_counts.activeTerminals);
  }
  [[nodiscard]] std::int32_t GetActiveSystemProcessCount() const {
    return Read(m_counts.activeSystem);
  }
  [[nodiscard]] std::int32_t GetActiveUserProcessCount() const { return Read(m_counts.activeUser); }

 private:
  /// A process of the current list in the course of the walk.
  struct Look {
    std::int32_t pid;
    std::int32_t uid;
    const Process* process;
    bool active;
  };
  struct Counts {
    std::int32_t processes = 0;
    std::int32_t system = 0;
    std::int32_t memMgmt = 0;
    std::int32_t daemon = 0;
    std::int32_t swapped = 0;
    std::array<std::int32_t, 7> states{};
    std::int32_t stateUnknown = 0;
    std::int32_t users = 0;
    std::int32_t activeUsers = 0;
    std::int32_t activeTerminals = 0;
    std::int32_t activeSystem = 0;
    std::int32_t activeUser = 0;
  };

  [[nodiscard]] std::vector<Look> LookAtProcesses();
  void CountUsers(const std::vector<Look>& looks);
  void CountTerminals(const std::vector<Look>& looks);
  void CountFlags(const Look& look);
  void CountState(std::uint32_t state);
  void Walk(int realtime);
  std::int32_t Read(std::int32_t counter) const;

  Collector* m_collector;
  const ProcessRules* m_rules;  ///< of the walk
  DeviceMap* m_devices;
  bool m_initialised = false;
  int m_fullSummary = 0;
  std::uint32_t m_lastCycle = 0;
  ProcessSamples m_previousList;
  /// No entry of the previous list before this one has the process identifier last sought.
  std::size_t m_matchFrom = 0;
  Counts m_counts;
};
