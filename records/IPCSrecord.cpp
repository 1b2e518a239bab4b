#include <unordered_set>

#include "collect/ipc/IPCSource.h"
#include "collect/ipc/SHMSource.h"
#include "collect/ipc/SemSource.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"

namespace {

void CountObjects(recordPD_IPCS& row, const std::vector<Sem>& semaphores,
                  const std::vector<SHM>& segments) {
  std::unordered_set<std::int32_t> sets;
  for (const Sem& semaphore : semaphores) {
    sets.insert(semaphore.semId);
  }
  row.semaphoreIdsInUse = static_cast<std::uint32_t>(sets.size());
  row.semaphoresInUse = static_cast<std::uint32_t>(semaphores.size());

  std::uint32_t attached = 0;
  double bytes = 0;
  for (const SHM& segment : segments) {
    attached += segment.nAttach;
    bytes += static_cast<double>(segment.segmentSize);
  }
  row.sharedMemSegments = static_cast<std::uint32_t>(segments.size());
  row.processesAttached = attached;
  row.sharedMemAlloc = bytes;
  Trace(30, kInformation, "Looked at %1 SEMD and %2 SHMD record(s).", semaphores.size(),
        segments.size());
}

void FillLimits(recordPD_IPCS& row, const IPC& limits) {
  row.maxSharedMemSize = static_cast<double>(limits.shmMax);
  row.minSharedMemSize = limits.shmMin;
  row.sharedMemIds = limits.shmMni;
  row.maxSharedMemSegments = limits.shmSeg;
  row.semaphoreMapEntries = limits.semMap;
  row.semaphoreIds = limits.semMni;
  row.semaphores = limits.semMns;
  row.semaphoreUndoStructures = limits.semMnu;
  row.maxSemaphoresId = limits.semMsl;
  row.maxSemops = limits.semOpm;
  row.maxUndo = limits.semUme;
  row.undoSize = limits.semUsz;
  row.semaphoreMaxValue = limits.semVmx;
  row.semaphoreAdjustMaxValue = limits.semAem;
  row.maxMessageEntries = limits.msgMap;
  row.maxMsgSize = limits.msgMax;
  row.maxMsgTotalBytes = limits.msgMnb;
  row.maxMsgQueueIds = limits.msgMni;
  row.msgSegmentSize = limits.msgSsz;
  row.maxMsgOutstanding = limits.msgTql;
  row.msgSegmentsAlloc = limits.msgSeg;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_IPCS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_IPCS", AddressOf(pEvent), AddressOf(pRequest));
  const IPC& limits = *m_pCollector->GetIPC();
  auto row = NewRow<recordPD_IPCS>(static_cast<std::int32_t>(Os().time(nullptr)));
  CountObjects(row, *m_pCollector->GetSem(), *m_pCollector->GetSHM());
  FillLimits(row, limits);
  if (limits.swapFailed) {
    Trace(20, kError, "Error in getting Swap Memory Space. Function (%1).", "sysinfo");
  }
  if (limits.totalSwap != 0) {
    row.sharedMemPercentInSwap = static_cast<float>(static_cast<double>(row.sharedMemAlloc) *
                                                    100.0 / static_cast<double>(limits.totalSwap));
  }
  DumpRecord(row, 0);
  pEvent->AddRecord(std::make_unique<cmbClassPD_IPCS>(&row));
  TraceCreated(__FILE__, __LINE__, RecordTraits<recordPD_IPCS>::kName, 1);
  TraceExit("RecordBuilder::BuildPD_IPCS", 0);
  return nullptr;
}
