#include <span>

#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/DetailRows.h"
#include "records/modern/FigurePairs.h"
#include "support/NotTold.h"
#include "support/TraceLog.h"

namespace {

using HostRecord = recordPD_HOST;

constexpr FigurePair<HostRecord, HostFacts> kHostPairs[] = {
    {&HostRecord::rebootNeeded, &HostFacts::rebootNeeded},
    {&HostRecord::sockets, &HostFacts::sockets},
    {&HostRecord::cores, &HostFacts::cores},
    {&HostRecord::threads, &HostFacts::threads},
    {&HostRecord::memoryBytes, &HostFacts::memoryBytes},
    {&HostRecord::clockSynchronised, &HostFacts::clockSynchronised},
    {&HostRecord::clockOffsetSeconds, &HostFacts::clockOffsetSeconds},
    {&HostRecord::clockErrorSeconds, &HostFacts::clockErrorSeconds},
    {&HostRecord::entropyBits, &HostFacts::entropyBits},
    {&HostRecord::openFiles, &HostFacts::openFiles},
    {&HostRecord::mostOpenFiles, &HostFacts::mostOpenFiles},
    {&HostRecord::tasks, &HostFacts::tasks},
    {&HostRecord::mostTasks, &HostFacts::mostTasks}};

HostRecord HostRow(const HostFacts& facts, std::int32_t now) {
  HostRecord row = NewRow<HostRecord>(now);
  row.name = facts.name;
  row.machineId = facts.machineId;
  row.distribution = facts.distribution;
  row.distributionId = facts.distributionId;
  row.distributionVersion = facts.distributionVersion;
  row.kernel = facts.kernel;
  row.kernelVersion = facts.kernelVersion;
  row.architecture = facts.architecture;
  row.virtualisation = facts.virtualisation;
  row.container = facts.container;
  row.processor = facts.processorModel;
  row.clockSource = facts.clockSource;
  row.bootTime = static_cast<std::int32_t>(OrZero(facts.bootTime));
  PutFigures<HostRecord, HostFacts>(row, facts, kHostPairs);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_HOST(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_HOST", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<HostRecord>(std::span(&m_pCollector->GetModern()->host, 1), *pEvent, HostRow);
  TraceExit("RecordBuilder::BuildPD_HOST", 0);
  return nullptr;
}
