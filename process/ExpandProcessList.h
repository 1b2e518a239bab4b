#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "collect/AcctRecord.h"
#include "collect/ProcessSourceLINUX.h"

/// The counters of a process that a previous look is subtracted from, in the order of
/// PreviousProcess::counters.
inline constexpr std::array<std::uint32_t Process::*, 9> kProcessCounters{
    &Process::majorFaults,     &Process::minorFaults, &Process::swaps,
    &Process::contextSwitches, &Process::signals,     &Process::reads,
    &Process::writes,          &Process::blockOps,    &Process::ioKbytes};

/// What a previous list keeps of a process: who it was and its cumulative figures.
struct PreviousProcess {
  /// `snapshotTime` is in seconds since 1970.
  PreviousProcess(const Process& process, std::int32_t snapshotTime);
  /// The process with the fields that are kept.
  [[nodiscard]] Process Recall() const;

  std::int32_t pid;
  std::int32_t euid;
  std::int32_t egid;
  std::uint32_t state;
  std::uint64_t tty;
  tagNTIME startTime;
  tagNTIME userTime;
  tagNTIME systemTime;
  std::uint32_t residentBytes;
  std::uint32_t virtualSize;
  std::array<std::uint32_t, kProcessCounters.size()> counters;
  std::int32_t snapshotTime;
  std::string name;
};

/// The processes of one build: those of the collector, which are referred to, and ended ones.
class ProcessList {
 public:
  /// `snapshot` outlives the list and does not change meanwhile.
  explicit ProcessList(const std::vector<Process>& snapshot);
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;

  void AddEnded(const Process& process);

  /// May be sorted at will.
  std::vector<const Process*> rows;

 private:
  std::deque<Process> m_ended;
};

/// Adds to `current` each process of `acctList`, in its order, up to the first one that has not
/// ended after `lastEndTime`, which becomes the end of the last one added. One that the list `old`
/// holds keeps what is known of it from there; another one gets the process number -1.
void ExpandProcessList(ProcessList& current, std::span<const PreviousProcess> old,
                       std::span<const Acct> acctList, tagUTIME& lastEndTime);
