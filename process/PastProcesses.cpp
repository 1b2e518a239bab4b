#include "process/PastProcesses.h"

ProcessSnapshot BatchSnapshot::Take(std::uint32_t cycle, const std::vector<Process>& processes) {
  ProcessSnapshot snapshot = cycle == m_cycle ? m_snapshot.lock() : nullptr;
  if (!snapshot) {
    snapshot = std::make_shared<const std::vector<Process>>(processes);
    m_snapshot = snapshot;
    m_cycle = cycle;
  }
  return snapshot;
}

ProcessInput RecordBuilder::InputOfProcesses() {
  return {.collector = *m_pCollector,
          .getDiedProcess = m_bGetDiedProcess,
          .processors = m_numCPUs,
          .cycle = m_cycle,
          .snapshot = StateOf<BatchSnapshot>(),
          .names = StateOf<BatchNames>(),
          .rules = ProcessRulesOf(g_hostProfile)};
}

PastProcesses ProcessInput::Advance(const PastProcesses& past, ProcessList& current,
                                    std::int32_t now) const {
  PastProcesses next{snapshot.Take(cycle, Processes()), now, past.lastEnd};
  if (getDiedProcess != 0 && !collector.GetAcct()->empty()) {
    ExpandProcessList(current, past.Processes(), *collector.GetAcct(), next.lastEnd);
  }
  return next;
}
