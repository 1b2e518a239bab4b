#pragma once

#include <deque>
#include <span>
#include <vector>

#include "collect/accounting/AcctRecord.h"
#include "collect/process/ProcessSourceLINUX.h"

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
void ExpandProcessList(ProcessList& current, std::span<const Process> old,
                       std::span<const Acct> acctList, tagUTIME& lastEndTime);
