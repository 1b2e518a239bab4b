#include "process/PastProcesses.h"

#include <utility>

ProcessSnapshot BatchSnapshot::Take(std::uint32_t cycle, const std::vector<Process>& processes) {
  ProcessSnapshot snapshot = cycle == m_cycle ? m_snapshot.lock() : nullptr;
  if (!snapshot) {
    snapshot = std::make_shared<const std::vector<Process>>(processes);
    m_snapshot = snapshot;
    m_cycle = cycle;
  }
  return snapshot;
}

PastProcesses PastProcesses::Advance(ProcessList& current, std::span<const Acct> ended,
                                     ProcessSnapshot newSnapshot, std::int32_t now) const {
  PastProcesses next{std::move(newSnapshot), now, lastEnd};
  if (!ended.empty()) {
    ExpandProcessList(current, Processes(), ended, next.lastEnd);
  }
  return next;
}

std::span<const Acct> EndedProcesses(const Collector& collector, int getDiedProcess) {
  return getDiedProcess == 0 ? std::span<const Acct>{}
                             : std::span<const Acct>(*collector.GetAcct());
}
