#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GroupPath.h"
#include "records/modern/GrowthRows.h"

namespace {

using GroupRecord = recordPI_CGRP;

constexpr FigurePair<GroupRecord, ControlGroup> kGroupPairs[] = {
    {&GroupRecord::processes, &ControlGroup::processes},
    {&GroupRecord::threads, &ControlGroup::threads}};
constexpr FigurePair<GroupRecord, ControlGroupCpu> kGroupCpuPairs[] = {
    {&GroupRecord::cpuSeconds, &ControlGroupCpu::totalSeconds},
    {&GroupRecord::userSeconds, &ControlGroupCpu::userSeconds},
    {&GroupRecord::systemSeconds, &ControlGroupCpu::systemSeconds},
    {&GroupRecord::periods, &ControlGroupCpu::periods},
    {&GroupRecord::throttledPeriods, &ControlGroupCpu::throttledPeriods},
    {&GroupRecord::throttledSeconds, &ControlGroupCpu::throttledSeconds}};
constexpr FigurePair<GroupRecord, ControlGroupMemory> kGroupMemoryPairs[] = {
    {&GroupRecord::memoryBytes, &ControlGroupMemory::current},
    {&GroupRecord::anonymousBytes, &ControlGroupMemory::anonymous},
    {&GroupRecord::fileBytes, &ControlGroupMemory::file},
    {&GroupRecord::kernelBytes, &ControlGroupMemory::kernel},
    {&GroupRecord::swapBytes, &ControlGroupMemory::swap},
    {&GroupRecord::limitBytes, &ControlGroupMemory::limit},
    {&GroupRecord::outOfMemoryKills, &ControlGroupMemory::outOfMemoryKills},
    {&GroupRecord::highEvents, &ControlGroupMemory::highEvents},
    {&GroupRecord::maxEvents, &ControlGroupMemory::maxEvents}};
constexpr FigurePair<GroupRecord, ControlGroupIo> kGroupIoPairs[] = {
    {&GroupRecord::readBytes, &ControlGroupIo::bytesRead},
    {&GroupRecord::writeBytes, &ControlGroupIo::bytesWritten},
    {&GroupRecord::reads, &ControlGroupIo::reads},
    {&GroupRecord::writes, &ControlGroupIo::writes}};

void FillGroup(GroupRecord& row, const ControlGroup& group) {
  row.path = ShownGroupPath(group.path, sizeof(row.path) - 1);
  row.kind = group.kind;
  row.containerId = group.containerId.empty() ? group.containerName : group.containerId;
  row.runtime = group.runtime;
  row.pod = group.pod;
  PutFigures<GroupRecord, ControlGroup>(row, group, kGroupPairs);
  PutFigures<GroupRecord, ControlGroupCpu>(row, group.cpu, kGroupCpuPairs);
  PutFigures<GroupRecord, ControlGroupMemory>(row, group.memory, kGroupMemoryPairs);
  PutFigures<GroupRecord, ControlGroupIo>(row, group.io, kGroupIoPairs);
  row.limitPercent = static_cast<float>(100 * Quotient(group.memory.current, group.memory.limit));
  const ControlGroupPressure& pressure = group.pressure;
  row.cpuSomePercent = static_cast<float>(pressure.cpuSome);
  row.cpuFullPercent = static_cast<float>(pressure.cpuFull);
  row.memorySomePercent = static_cast<float>(pressure.memorySome);
  row.memoryFullPercent = static_cast<float>(pressure.memoryFull);
  row.ioSomePercent = static_cast<float>(pressure.ioSome);
  row.ioFullPercent = static_cast<float>(pressure.ioFull);
}

}  // namespace

UtlError* RecordBuilder::Build_CGRP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto derive = [this](GroupRecord& row, const GroupRecord&, double) {
    row.allCpusPercent = static_cast<float>(Quotient(row.cpuPercent, GetNumCPUs()));
  };
  return BuildGrowthRows<GroupRecord, NewInstance::kAll>(
      {"RecordBuilder::Build_CGRP", pEvent, pRequest, GetUpTimeSeconds(),
       m_pCollector->TakenAt(COLLECT_CONTROL_GROUP)},
      StateOf<GrowthState<GroupRecord>>(), m_pCollector->GetModern()->groups, FillGroup, derive);
}
