#include "records/CPUSummary.h"

#include "collect/Collector.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "node/Node.h"
#include "records/IntervalEngine.h"
#include "support/TraceLog.h"

namespace {
const UtlTime kZero(std::int64_t{0}, std::int64_t{0}, UtlTime::kUtc);
}

CPUSummary::CPUSummary(Collector* collector) : m_collector(collector) { Clear(); }

void CPUSummary::Clear() {
  m_built = false;
  m_lastRequest = 0;
  m_cpuCount = m_contextSwitches = m_traps = m_interrupts = m_systemCalls = 0;
  m_idleTime = m_userTime = m_kernelTime = m_waitTime = m_totalTime = kZero;
}

UtlError* CPUSummary::Build(std::uint32_t requestId) {
  if (requestId == m_lastRequest) {
    return nullptr;
  }
  CMBNode::DebugPrintf("CPUSummary.cpp", __LINE__, "CPUSummary::Build()\n");
  Clear();
  for (const CPU& cpu : *m_collector->GetCPU()) {
    m_contextSwitches += cpu.GetContextSwitches();
    m_traps += cpu.GetTraps();
    m_interrupts += cpu.GetInterrupts();
    m_systemCalls += cpu.GetSystemCalls();
    AddTime(m_idleTime, cpu.GetIdleTime());
    AddTime(m_userTime, cpu.GetUserTime());
    AddTime(m_kernelTime, cpu.GetSystemTime());
    AddTime(m_waitTime, cpu.GetWaitTime());
    ++m_cpuCount;
  }
  Trace(30, kInformation, "CPUSummary::Build() found %1 cpus.", m_cpuCount);
  m_built = true;
  m_lastRequest = requestId;
  return nullptr;
}

void CPUSummary::AddTime(UtlTime& field, const tagUTIME& value) {
  const UtlTime time = WideTime(value);
  field += time;
  m_totalTime += time;
}

void CPUSummary::WarnUnlessBuilt() const {
  if (!m_built) {
    Trace(30, kWarning, "CPUSummary has not been built.");
  }
}
