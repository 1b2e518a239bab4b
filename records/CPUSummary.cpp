#include "records/CPUSummary.h"

#include <cstddef>

#include "collect/Collector.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "node/Node.h"
#include "records/IntervalEngine.h"
#include "support/HostProfile.h"
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
  const auto figuresOf = g_hostProfile == HostProfile::kModern ? &CPUSummary::LastFigures
                                                               : &CPUSummary::CurrentFigures;
  for (const CPU& cpu : *m_collector->GetCPU()) {
    const Figures figures = (this->*figuresOf)(cpu);
    m_contextSwitches += cpu.GetContextSwitches();
    m_traps += cpu.GetTraps();
    m_interrupts += figures.interrupts;
    m_systemCalls += cpu.GetSystemCalls();
    AddTime(m_idleTime, figures.idleTime);
    AddTime(m_userTime, figures.userTime);
    AddTime(m_kernelTime, figures.kernelTime);
    AddTime(m_waitTime, figures.waitTime);
    ++m_cpuCount;
  }
  Trace(30, kInformation, "CPUSummary::Build() found %1 cpus.", m_cpuCount);
  m_built = true;
  m_lastRequest = requestId;
  return nullptr;
}

CPUSummary::Figures CPUSummary::CurrentFigures(const CPU& cpu) {
  return {cpu.GetInterrupts(), cpu.GetIdleTime(), cpu.GetUserTime(), cpu.GetSystemTime(),
          cpu.GetWaitTime()};
}

CPUSummary::Figures CPUSummary::LastFigures(const CPU& cpu) {
  if (cpu.GetCpuId() >= m_histories.size()) {
    m_histories.resize(std::size_t{cpu.GetCpuId()} + 1);
  }
  History& history = m_histories[cpu.GetCpuId()];
  if (cpu.GetOnline() == 0) {
    history.last = CurrentFigures(cpu);
    history.isSeen = true;
    if (history.isBaseDue) {
      history.base = history.last;
      history.isBaseDue = false;
    }
  } else {
    history.isBaseDue = !history.isSeen;
  }
  const Figures& last = history.last;
  const Figures& base = history.base;
  return {last.interrupts - base.interrupts, TimeGrowth(last.idleTime, base.idleTime),
          TimeGrowth(last.userTime, base.userTime), TimeGrowth(last.kernelTime, base.kernelTime),
          TimeGrowth(last.waitTime, base.waitTime)};
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
